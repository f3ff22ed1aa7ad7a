#include "MetricsHistory.hpp"

#include <algorithm>

#include "base/Checked.hpp"

namespace brimlet {

MetricsHistory::MetricsHistory(std::int64_t requested)
    : capacity(requested < 1 ? 1 : static_cast<std::size_t>(requested)) {
    points.reserve(capacity + 1);
}

void MetricsHistory::append(HistoryPoint point) {
    points.push_back(std::move(point));
    if (points.size() > capacity)
        points.erase(points.begin(), points.begin() + static_cast<std::ptrdiff_t>(points.size() - capacity));
}

void MetricsHistory::append(const MonitorSnapshot& snapshot, std::int64_t topApps) {
    if (topApps < 0) kestrow::fatalError("negative number of top applications");
    HistoryPoint point;
    point.date = snapshot.date;
    point.memoryUsed = snapshot.system.memoryUsed;
    point.memoryCompressed = snapshot.system.memoryCompressed;
    point.cpuLoad = snapshot.system.cpuLoad;
    point.diskReadPerSecond = snapshot.system.diskReadPerSecond;
    point.diskWritePerSecond = snapshot.system.diskWritePerSecond;
    const std::size_t count = std::min(static_cast<std::size_t>(topApps), snapshot.apps.size());
    for (std::size_t i = 0; i < count; ++i) point.appFootprints[snapshot.apps[i].id] = snapshot.apps[i].footprint;
    append(std::move(point));
}

HealthRating::HealthRating(const SystemStats& stats)
    : memory(memoryGrade(stats.pressure, stats.swapUsed)),
      cpu(stats.cpuLoad ? std::optional<Rating>(cpuGrade(*stats.cpuLoad)) : std::nullopt),
      disk(diskGrade(stats.diskFree)),
      thermal(thermalGrade(stats.thermal)) {}

Rating HealthRating::memoryGrade(MemoryPressure pressure, std::uint64_t swapUsed) {
    if (pressure == MemoryPressure::critical) return Rating::poor;
    if (pressure == MemoryPressure::warning) return Rating::fair;
    return swapUsed < GiB ? Rating::great : Rating::good;
}

Rating HealthRating::cpuGrade(double load) {
    if (load < 40) return Rating::great;
    if (load < 70) return Rating::good;
    if (load < 90) return Rating::fair;
    return Rating::poor;
}

Rating HealthRating::diskGrade(std::uint64_t freeBytes) {
    if (freeBytes >= 50 * GiB) return Rating::great;
    if (freeBytes >= 20 * GiB) return Rating::good;
    if (freeBytes >= 10 * GiB) return Rating::fair;
    return Rating::poor;
}

Rating HealthRating::thermalGrade(ThermalLevel level) {
    switch (level.value) {
    case ThermalLevel::nominal: return Rating::great;
    case ThermalLevel::fair: return Rating::good;
    case ThermalLevel::serious: return Rating::fair;
    case ThermalLevel::critical: return Rating::poor;
    }
    return Rating::poor;
}

}  // namespace brimlet
