// The host's AppKit factory: the shared item, the floating bar and the process's hot keys.
// Compiled with ARC.
#include "SystemSuiteUI.hpp"

#include "SuiteViews.hpp"

namespace kestrow::suite::mac {

SuiteStatusItemFactory systemStatusItemFactory(MainLoop& loop, HotKeyCenter& hotKeys) {
    (void)loop; // AppKit's callbacks already arrive on the main queue, which is the loop
    SuiteStatusItemFactory factory;
    // Left empty: the host takes the position from the participant's shared settings.
    factory.preferredPosition = nullptr;
    factory.make = [](SuiteHost& host) { return makeSystemSuiteStatusItem(host); };
    factory.makeFloatingPanel = [](SuiteHost& host) { return makeSuiteFloatingBar(host); };
    factory.hotKeys = &hotKeys;
    return factory;
}

} // namespace kestrow::suite::mac
