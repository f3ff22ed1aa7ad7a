// Placeholder: the dashboard, cleanup and settings windows.
#include "MacFrontEnd.hpp"

namespace brimlet::mac {

std::unique_ptr<WindowPresenter> makeWindowPresenter(BrimletApplication&) { return nullptr; }

}  // namespace brimlet::mac
