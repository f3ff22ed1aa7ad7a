// Linux members have no windows to open yet, so no request is carried.
#include "../SuiteOpenObserver.hpp"

namespace kestrow::suite {

std::unique_ptr<SuiteOpenObserver> SuiteOpenObserver::make(SuiteApp, std::function<void()>) { return nullptr; }

}  // namespace kestrow::suite
