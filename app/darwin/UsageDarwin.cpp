#include "app/startup/PlatformUsage.hpp"

namespace brimlet {

LaunchPlatform currentLaunchPlatform() { return LaunchPlatform::mac; }

const char* platformDescription() {
    return "Kestrow Brimlet watches this Mac's memory, CPU, GPU, disk and processes,\n"
           "and cleans caches that rebuild themselves (--measure, --clean).\n"
           "Without --snapshot-json, --measure or --clean it runs the menu-bar app\n"
           "(normally opened as \"Kestrow Brimlet.app\"): the monitor in the menu bar, the\n"
           "dashboard, cleanup and settings windows, alerts as notifications, and its place\n"
           "in the Kestrow suite.\n"
           "Ctrl-C or SIGTERM quits it as the Quit command does.\n";
}

}  // namespace brimlet
