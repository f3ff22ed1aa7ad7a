#include "../PlatformUsage.hpp"

namespace brimlet {

LaunchPlatform currentLaunchPlatform() { return LaunchPlatform::mac; }

const char* platformDescription() {
    return "Kestrow Brimlet watches this Mac's memory, CPU, GPU, disk and processes.\n"
           "Without --snapshot-json it runs the menu-bar app (normally opened as\n"
           "\"Kestrow Brimlet.app\"): the monitor in the menu bar, the dashboard, cleanup and\n"
           "settings windows, alerts as notifications, and its place in the Kestrow suite.\n"
           "Ctrl-C or SIGTERM quits it as the Quit command does.\n";
}

}  // namespace brimlet
