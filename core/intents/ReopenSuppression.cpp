#include "ReopenSuppression.hpp"

namespace brimlet {

bool ReopenSuppression::isSuppressed(double uptime) const {
    if (!lastRequest) return false;
    // A request recorded after the instant (a negative difference) never suppresses it; a
    // difference that is not a number fails both comparisons and does not either.
    const double elapsed = uptime - *lastRequest;
    return elapsed >= 0 && elapsed < window;
}

bool ReopenSuppression::reopenOpensDashboard(double arrivedAt, double checkedAt) const {
    return !isSuppressed(arrivedAt) && !isSuppressed(checkedAt);
}

}  // namespace brimlet
