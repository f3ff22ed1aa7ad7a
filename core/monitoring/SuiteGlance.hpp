// The monitor's readout for the suite's shared menu-bar item: an overall level from memory pressure
// and up to three metrics, each published only when its figure could be read. Its level and metrics
// are the suite's own record types, so the readout goes into a glance record as it stands.
#pragma once

#include <vector>

#include "MonitorTypes.hpp"
#include "suite/protocol/GlanceRecord.hpp"

namespace brimlet {

struct SuiteGlance {
    using Level = kestrow::suite::GlanceLevel;
    using Metric = kestrow::suite::GlanceMetric;

    Level level;
    std::vector<Metric> metrics;

    explicit SuiteGlance(const SystemGlance& glance);
    bool operator==(const SuiteGlance&) const = default;
};

}  // namespace brimlet
