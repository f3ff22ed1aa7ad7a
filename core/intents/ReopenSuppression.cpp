#include "ReopenSuppression.hpp"

namespace brimlet {

bool ReopenSuppression::isSuppressed(kestrow::ContinuousTime at) const {
    if (!lastRequest) return false;
    // A request recorded after the instant (a negative difference) never suppresses it; a
    // difference that is not a number fails both comparisons and does not either.
    const kestrow::Seconds elapsed = at - *lastRequest;
    return elapsed >= kestrow::Seconds::zero() && elapsed < window;
}

bool ReopenSuppression::reopenOpensDashboard(kestrow::ContinuousTime arrivedAt,
                                             kestrow::ContinuousTime checkedAt) const {
    return !isSuppressed(arrivedAt) && !isSuppressed(checkedAt);
}

}  // namespace brimlet
