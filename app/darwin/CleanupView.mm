// Placeholder until the cleanup view is built.
#include "CleanupView.hpp"

namespace brimlet::mac {

NSViewController* makeCleanupViewController(BrimletApplication&) { return [[NSViewController alloc] init]; }

}  // namespace brimlet::mac
