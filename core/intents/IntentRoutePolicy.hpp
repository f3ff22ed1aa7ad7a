// Whether opening the cleanup window for an intent should start the cleanup over.
#pragma once

namespace brimlet::IntentRoutePolicy {

// A window already on screen or a run under way is the user's work: bring it forward untouched.
// Otherwise a fresh run starts from the beginning rather than showing an old result.
constexpr bool shouldResetBeforeOpening(bool windowOnScreen, bool storeBusy) { return !windowOnScreen && !storeBusy; }

}  // namespace brimlet::IntentRoutePolicy
