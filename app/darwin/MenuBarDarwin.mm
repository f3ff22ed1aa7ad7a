// Placeholder: the application's own menu bar item and popover, and its floating monitor.
#include "MacFrontEnd.hpp"

namespace brimlet::mac {

std::unique_ptr<MenuBar> makeMenuBar(BrimletApplication&, WindowPresenter&) { return nullptr; }
std::unique_ptr<FloatingMonitorController> makeFloatingMonitor(MonitorStore&) {
    return std::make_unique<NoFloatingMonitor>();
}

}  // namespace brimlet::mac
