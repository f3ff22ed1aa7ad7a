// The process entry. "--snapshot-json" is handled before anything else is set up.
#include <cstdio>
#include <cstring>

#include "PlatformUsage.hpp"
#include "SnapshotCommand.hpp"

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--snapshot-json") == 0) {
            brimlet::SnapshotCommand::run();
            return 0;
        }
    }
    std::fputs(brimlet::platformUsageText(), stderr);
    return 2;
}
