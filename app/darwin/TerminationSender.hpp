// What the quit event that AppKit is handling says about itself and the process that sent it, as
// plain values for the quit rule. Main thread only: the current Apple event belongs to it.
#pragma once

#include <optional>

#include "core/intents/IntentQuitPolicy.hpp"

namespace brimlet::mac {

// None when no Apple event is being handled (a quit from the menu or a signal goes through
// -terminate: without one).
std::optional<IntentQuitPolicy::Request> currentQuitRequest();

}  // namespace brimlet::mac
