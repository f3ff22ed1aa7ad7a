// The menu-bar application's start-up on macOS. Until the AppKit front end is complete, starting
// the program without "--snapshot-json" says so and ends with status 2.
#include "app/ApplicationRunner.hpp"

#include <cstdio>

namespace brimlet {

const char* applicationHelp() { return "The menu-bar application is not built yet.\n"; }

int runApplication(const std::vector<std::string>&, std::vector<kestrow::suite::SuiteFolder>,
                   const SuiteLaunch::DefaultsDomain&) {
    std::fputs("KestrowBrimlet: the menu-bar app is not built yet\n", stderr);
    return 2;
}

}  // namespace brimlet
