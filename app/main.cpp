// The process entry. "--snapshot-json" is handled before anything else is set up.
#include <cstdio>
#include <cstring>

#include "SnapshotCommand.hpp"

namespace {

constexpr const char* usageText =
    "usage: KestrowBrimlet --snapshot-json\n"
    "\n"
    "Kestrow Brimlet watches this machine's memory, CPU, disk and processes.\n"
    "On this platform it offers:\n"
    "  --snapshot-json   sample the machine twice, one second apart, and print the\n"
    "                    second snapshot as JSON (memory, pressure, swap, CPU load,\n"
    "                    GPU, disk rates and space, thermal state, every process\n"
    "                    grouped into applications)\n"
    "The menu-bar application runs on macOS.\n";

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--snapshot-json") == 0) {
            brimlet::SnapshotCommand::run();
            return 0;
        }
    }
    std::fputs(usageText, stderr);
    return 2;
}
