#include "MainLoop.hpp"

#include <chrono>

namespace kestrow {

double wallSeconds() {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

bool WakeDetector::sample(double continuous, double monotonic) {
    const double gap = continuous - monotonic;
    const bool woke = lastGap_ && gap - *lastGap_ > threshold_;
    lastGap_ = gap;
    return woke;
}

}  // namespace kestrow
