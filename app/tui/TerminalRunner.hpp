// "--tui": the application as the headless runner builds it (the same stores, the same suite
// membership, publishing and possibly hosting), with a full-screen terminal as its one live surface.
#pragma once

#include <string>
#include <vector>

#include "app/startup/SuiteLaunch.hpp"
#include "suite/protocol/SuiteFolder.hpp"

namespace brimlet {

// Returns the process's exit status: 2 with a message when there is no terminal to run in.
int runTerminalApplication(const std::vector<std::string>& arguments, std::vector<kestrow::suite::SuiteFolder> folders,
                           const SuiteLaunch::DefaultsDomain& suiteDomain);

}  // namespace brimlet
