#include "SuiteGlance.hpp"

#include "base/Rounding.hpp"
#include <algorithm>
#include <cmath>

namespace brimlet {

SuiteGlance::SuiteGlance(const SystemGlance& glance) {
    // Only memory pressure raises the level: a busy CPU or a full disk is not an emergency.
    switch (glance.pressure.value) {
    case MemoryPressure::normal: level = Level::ok; break;
    case MemoryPressure::warning: level = Level::notice; break;
    case MemoryPressure::critical: level = Level::alert; break;
    }
    // Halves round away from zero.
    if (glance.memoryTotal != 0) {
        const double fraction =
            std::min(static_cast<double>(glance.memoryUsed) / static_cast<double>(glance.memoryTotal), 1.0);
        metrics.push_back({"mem", "Memory", kestrow::roundedHalfAway(fraction * 100), "%", level});
    }
    if (glance.cpuLoad) {
        const double load = *glance.cpuLoad;
        const double value = load <= 0 ? 0 : load > 100 ? 100 : kestrow::roundedHalfAway(load);
        metrics.push_back({"cpu", "CPU", value, "%", Level::ok});
    }
    if (glance.diskFree != 0) {
        const double gigabytes = kestrow::roundedHalfAway(static_cast<double>(glance.diskFree) / 1e9 * 10) / 10;
        metrics.push_back({"disk", "Free disk", gigabytes, "GB", Level::ok});
    }
}

}  // namespace brimlet
