#include "../PlatformUsage.hpp"

namespace brimlet {

// The menu-bar application is not part of this build yet; say what it does offer instead of
// pointing the user at a platform they are already on.
const char* platformUsageText() {
    return "usage: KestrowBrimlet --snapshot-json\n"
           "\n"
           "Kestrow Brimlet watches this Mac's memory, CPU, GPU, disk and processes.\n"
           "This build offers:\n"
           "  --snapshot-json   sample the Mac twice, one second apart, and print the\n"
           "                    second snapshot as JSON (memory, pressure, swap, CPU load,\n"
           "                    GPU, disk rates and space, thermal state, every process\n"
           "                    grouped into applications)\n"
           "The menu-bar application is not part of this build yet.\n";
}

}  // namespace brimlet
