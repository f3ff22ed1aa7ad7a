// What a platform provides to the application, defined in app/linux/ or app/darwin/ and linked into
// the executable, which takes every address below at start-up: a missing entry is a link error of
// the executable, with this list beside it. The lower floors list theirs in base/, suite/ and core/
// Platform.hpp.
#pragma once

#include <tuple>

#include "app/startup/ApplicationRunner.hpp"
#include "app/startup/PlatformUsage.hpp"
#include "tui/TerminalRunner.hpp"

namespace brimlet::platform {

inline constexpr auto appSeams =
    std::make_tuple(&currentLaunchPlatform,    // which options of the launch table this build accepts
                    &platformDescription,      // what running it without a one-shot option does, for "--help"
                    &runApplication,           // the front end: the menu-bar app, or the headless runner
                    &runTerminalApplication);  // "--tui" (or a build without ncurses saying it is not there)

}  // namespace brimlet::platform
