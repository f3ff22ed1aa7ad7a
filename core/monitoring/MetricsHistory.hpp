// The recent past for the live charts, and coarse health grades of one sample.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <array>

#include "MonitorTypes.hpp"

namespace brimlet {

struct HistoryPoint {
    Date date{};
    std::uint64_t memoryUsed = 0;
    std::uint64_t memoryCompressed = 0;
    std::optional<double> cpuLoad;
    std::optional<double> diskReadPerSecond;
    std::optional<double> diskWritePerSecond;
    std::map<std::string, std::uint64_t> appFootprints;  // group id → footprint, top groups only

    Date id() const { return date; }
    bool operator==(const HistoryPoint&) const = default;
};

struct MetricsHistory {
    static constexpr std::size_t defaultCapacity = 150;  // 5 minutes at one point every 2 seconds

    std::size_t capacity = defaultCapacity;
    std::vector<HistoryPoint> points;  // oldest first

    explicit MetricsHistory(std::int64_t capacity = defaultCapacity);

    void append(HistoryPoint point);
    // The point of a snapshot, with the footprints of its first topApps groups; negative is fatal.
    void append(const MonitorSnapshot& snapshot, std::int64_t topApps);
    bool operator==(const MetricsHistory&) const = default;
};

struct Rating : kestrow::RawValueEnum<Rating> {
    enum Value : int { great, good, fair, poor };
    static constexpr std::array<std::string_view, 4> rawValues{"Great", "Good", "Fair", "Poor"};
    Value value = great;

    constexpr Rating() = default;
    constexpr Rating(Value v) : value(v) {}
};

struct HealthRating {
    static constexpr std::uint64_t GiB = 1'073'741'824ULL;

    Rating memory;
    std::optional<Rating> cpu;  // absent while the CPU load is unknown
    Rating disk;
    Rating thermal;

    HealthRating() = default;
    explicit HealthRating(const SystemStats& stats);

    // Swap counts only while pressure is normal; any warning or critical pressure decides alone.
    static Rating memoryGrade(MemoryPressure pressure, std::uint64_t swapUsed);
    static Rating cpuGrade(double load);
    static Rating diskGrade(std::uint64_t freeBytes);
    static Rating thermalGrade(ThermalLevel level);
    bool operator==(const HealthRating&) const = default;
};

}  // namespace brimlet
