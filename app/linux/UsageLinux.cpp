#include "../PlatformUsage.hpp"

namespace brimlet {

LaunchPlatform currentLaunchPlatform() { return LaunchPlatform::linux; }

const char* platformDescription() {
    return "Kestrow Brimlet watches this computer's memory, CPU, GPU, disk and processes.\n"
           "Without --snapshot-json it runs headless until SIGINT, SIGTERM or SIGHUP:\n"
           "it samples the machine every 10 s (every 2 s while alerts are on, as they are\n"
           "by default), publishes its glance to the Kestrow suite folder and competes to\n"
           "host the suite, and posts alerts (critical memory pressure, low disk, one app\n"
           "using a lot of memory) as desktop notifications.\n"
           "Settings live in $XDG_CONFIG_HOME/kestrow/com.kestrow.brimlet.json, the suite\n"
           "folder in $XDG_DATA_HOME/kestrow/suite.\n";
}

}  // namespace brimlet
