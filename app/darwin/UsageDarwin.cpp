#include "../PlatformUsage.hpp"

namespace brimlet {

const char* platformUsageText() {
    return "usage: KestrowBrimlet [--snapshot-json | options below | --help]\n"
           "\n"
           "Kestrow Brimlet watches this Mac's memory, CPU, GPU, disk and processes.\n"
           "  --snapshot-json   sample the Mac twice, one second apart, and print the\n"
           "                    second snapshot as JSON (memory, pressure, swap, CPU load,\n"
           "                    GPU, disk rates and space, thermal state, every process\n"
           "                    grouped into applications)\n";
}

}  // namespace brimlet
