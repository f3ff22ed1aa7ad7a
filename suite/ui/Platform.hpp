// What a platform provides to the suite's presentation library, defined in suite/ui/linux/ or darwin/.
// The test PlatformSeams.EveryEntryIsDefined takes each address (see base/Platform.hpp). The shared
// menu-bar item, floating panel and hot keys are AppKit and Carbon views over the shared rules, made
// by the Mac front end itself; a platform without them needs nothing more here.
#pragma once

#include <tuple>

#include "SuiteOpenObserver.hpp"

namespace kestrow::platform {

inline constexpr auto suiteUISeams = std::make_tuple(
    &suite::SuiteOpenObserver::make);  // hears another member ask this one to open its window (nothing on Linux)

}  // namespace kestrow::platform
