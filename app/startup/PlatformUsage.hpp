// What this build of the program is on its platform: which options of the launch table apply, and
// what running it without a one-shot option does, for "--help".
#pragma once

#include "app/startup/LaunchOptions.hpp"

namespace brimlet {

LaunchPlatform currentLaunchPlatform();
const char* platformDescription();

}  // namespace brimlet
