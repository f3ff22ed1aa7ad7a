#include "MainLoop.hpp"

namespace kestrow {

bool WakeDetector::sample(ContinuousTime continuous, MonotonicTime monotonic) {
    // The two clocks' epochs differ; only how their distance changes from one reading to the next counts.
    const Seconds gap = continuous.time_since_epoch() - monotonic.time_since_epoch();
    const bool woke = lastGap_ && gap - *lastGap_ > threshold_;
    lastGap_ = gap;
    return woke;
}

}  // namespace kestrow
