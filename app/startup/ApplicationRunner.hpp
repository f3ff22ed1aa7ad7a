// The platform's front end of the application: it creates the loop and the platform seams, builds
// the application structure and runs until the application ends. Linux runs it headless; the
// macOS menu-bar front end is a separate file of its own.
#pragma once

#include <string>
#include <vector>

#include "app/startup/SuiteLaunch.hpp"
#include "suite/protocol/SuiteFolder.hpp"

namespace brimlet {

// Returns the process's exit status.
int runApplication(const std::vector<std::string>& arguments, std::vector<kestrow::suite::SuiteFolder> folders,
                   const SuiteLaunch::DefaultsDomain& suiteDefaults);

}  // namespace brimlet
