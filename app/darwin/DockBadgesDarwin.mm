// Placeholder: the Dock badges and the intents' bridge.
#include "MacFrontEnd.hpp"

namespace brimlet::mac {

std::unique_ptr<DockBadgeController> makeDockBadges(MonitorStore&) { return std::make_unique<NoDockBadges>(); }
void installIntentBridge(BrimletApplication*) {}

}  // namespace brimlet::mac
