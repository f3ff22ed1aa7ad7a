// What a reopen (a click on the app in Finder or the Dock, launching it again) does once its short
// wait is over: nothing when it is the side effect of an intent that just started the app, nothing
// when the app shows its own menu bar icon (the user has that to click), else open the dashboard.
#pragma once

#include "core/intents/ReopenSuppression.hpp"

namespace brimlet::ReopenRule {

inline bool opensDashboard(const ReopenSuppression& lastIntent, kestrow::ContinuousTime arrivedAt,
                           kestrow::ContinuousTime checkedAt, bool showsOwnIcon) {
    return lastIntent.reopenOpensDashboard(arrivedAt, checkedAt) && !showsOwnIcon;
}

}  // namespace brimlet::ReopenRule
