#include "app/startup/PlatformUsage.hpp"

namespace brimlet {

LaunchPlatform currentLaunchPlatform() { return LaunchPlatform::linux; }

const char* platformDescription() {
    return "Kestrow Brimlet watches this computer's memory, CPU, GPU, disk and processes,\n"
           "and cleans caches that rebuild themselves (--measure, --clean).\n"
           "Without --snapshot-json, --measure or --clean it runs headless until SIGINT,\n"
           "SIGTERM or SIGHUP: it samples the machine every 10 s (every 2 s while alerts\n"
           "are on, as they are by default), publishes its glance to the Kestrow suite\n"
           "folder and competes to host the suite, and posts alerts (critical memory\n"
           "pressure, low disk, one app using a lot of memory) as desktop notifications.\n"
           "Settings live in $XDG_CONFIG_HOME/kestrow/com.kestrow.brimlet.json, the suite\n"
           "folder in $XDG_DATA_HOME/kestrow/suite.\n";
}

}  // namespace brimlet
