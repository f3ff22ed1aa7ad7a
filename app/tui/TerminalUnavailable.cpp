// "--tui" in a build made where ncurses' development files were missing.
#include <cstdio>

#include "TerminalRunner.hpp"

namespace brimlet {

int runTerminalApplication(const std::vector<std::string>&, std::vector<kestrow::suite::SuiteFolder>,
                           const SuiteLaunch::DefaultsDomain&) {
    std::fprintf(stderr, "%.*s--tui is not part of this build: it was built without ncurses (libncurses-dev)\n",
                 static_cast<int>(SuiteLaunch::messagePrefix.size()), SuiteLaunch::messagePrefix.data());
    return 2;
}

}  // namespace brimlet
