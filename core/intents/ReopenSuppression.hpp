// Starting the app for an intent makes the system send it a reopen as a side effect; that reopen
// must not pop the dashboard up. A reopen within a short window after an intent request is taken
// for that side effect. Times are read on the continuous clock.
#pragma once

#include <chrono>
#include <optional>

#include "base/Time.hpp"

namespace brimlet {

struct ReopenSuppression {
    static constexpr kestrow::Seconds window{1.0};
    // How long a reopen waits before deciding, so an intent whose request is recorded just after
    // the reopen arrived is still seen.
    static constexpr std::chrono::milliseconds reopenDelay{500};

    std::optional<kestrow::ContinuousTime> lastRequest;

    void noteRequest(kestrow::ContinuousTime at) { lastRequest = at; }
    bool isSuppressed(kestrow::ContinuousTime at) const;
    // Checks both the arrival and the check instant: either order of reopen and request is caught.
    bool reopenOpensDashboard(kestrow::ContinuousTime arrivedAt, kestrow::ContinuousTime checkedAt) const;
    // What a reopen does once its wait is over: open the dashboard only when it was deliberate and
    // the app shows no menu bar icon of its own (the user has that to click).
    bool opensDashboard(kestrow::ContinuousTime arrivedAt, kestrow::ContinuousTime checkedAt, bool showsOwnIcon) const {
        return reopenOpensDashboard(arrivedAt, checkedAt) && !showsOwnIcon;
    }

    bool operator==(const ReopenSuppression&) const = default;
};

}  // namespace brimlet
