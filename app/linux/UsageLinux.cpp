#include "../PlatformUsage.hpp"

namespace brimlet {

const char* platformUsageText() {
    return "usage: KestrowBrimlet [--snapshot-json | --suite-folder PATH | --help]\n"
           "\n"
           "Kestrow Brimlet watches this machine's memory, CPU, disk and processes.\n"
           "On this platform it offers:\n"
           "  --snapshot-json   sample the machine twice, one second apart, and print the\n"
           "                    second snapshot as JSON (memory, pressure, swap, CPU load,\n"
           "                    GPU, disk rates and space, thermal state, every process\n"
           "                    grouped into applications)\n";
}

}  // namespace brimlet
