// What a platform provides to the suite's protocol library, defined in suite/protocol/linux/ or
// darwin/. The test PlatformSeams.EveryEntryIsDefined takes each address (see base/Platform.hpp).
#pragma once

#include <tuple>

#include "SuiteFolder.hpp"

namespace kestrow::platform {

inline constexpr auto suiteProtocolSeams =
    std::make_tuple(&suite::SuiteFolder::standard,  // where the suite folder is (XDG data home; the group container)
                    &suite::applicationGroupContainer);  // an app group's container, where the platform has them

}  // namespace kestrow::platform
