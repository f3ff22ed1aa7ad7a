// The value records of the monitor: what one sample of the machine looks like.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <array>

#include "AppGrouper.hpp"
#include "base/IsoDate.hpp"
#include "base/Json.hpp"
#include "base/RawValueEnum.hpp"

namespace brimlet {

using kestrow::Date;
using kestrow::JsonValue;

// ---- Memory pressure and thermal state ----

// Ordered normal < warning < critical.
struct MemoryPressure : kestrow::RawValueEnum<MemoryPressure> {
    enum Value : int { normal, warning, critical };
    static constexpr std::array<std::string_view, 3> rawValues{"normal", "warning", "critical"};
    Value value = normal;

    constexpr MemoryPressure() = default;
    constexpr MemoryPressure(Value v) : value(v) {}

    // The kernel's level: below 2 normal, 2 or 3 warning, 4 and above critical.
    static MemoryPressure fromKernelLevel(std::int32_t level);
};

struct ThermalLevel : kestrow::RawValueEnum<ThermalLevel> {
    enum Value : int { nominal, fair, serious, critical };
    static constexpr std::array<std::string_view, 4> rawValues{"nominal", "fair", "serious", "critical"};
    Value value = nominal;

    constexpr ThermalLevel() = default;
    constexpr ThermalLevel(Value v) : value(v) {}

    // The system's thermal state number: 0 nominal, 1 fair, 2 serious, 3 or more critical.
    static ThermalLevel fromState(std::int64_t state);
};

// ---- System-wide figures ----

struct SystemStats {
    std::uint64_t memoryTotal = 0;
    std::uint64_t memoryUsed = 0;
    std::uint64_t memoryCompressed = 0;
    std::uint64_t memoryWired = 0;
    MemoryPressure pressure;
    std::uint64_t swapUsed = 0;
    std::optional<double> cpuLoad;
    ThermalLevel thermal;
    std::optional<double> gpuUtilization;
    std::optional<double> diskReadPerSecond;
    std::optional<double> diskWritePerSecond;
    std::uint64_t diskFree = 0;
    std::uint64_t diskTotal = 0;

    bool operator==(const SystemStats&) const = default;
};

struct SystemGlance {
    std::uint64_t memoryUsed = 0;
    std::uint64_t memoryTotal = 0;
    MemoryPressure pressure;
    std::optional<double> cpuLoad;
    std::uint64_t diskFree = 0;

    // Used over total, 0 for an unknown total, never above 1.
    double memoryFraction() const;
    bool operator==(const SystemGlance&) const = default;
};

// ---- Processes ----

struct ProcessKey {
    std::int32_t pid = 0;
    std::uint64_t startTime = 0;  // microseconds since the epoch

    bool operator==(const ProcessKey&) const = default;
};

struct ProcessKeyHash {
    std::size_t operator()(const ProcessKey& key) const noexcept {
        return std::hash<std::uint64_t>()(key.startTime * 0x9E3779B97F4A7C15ULL ^ static_cast<std::uint32_t>(key.pid));
    }
};

struct ProcessSample {
    ProcessKey key;
    std::int32_t ppid = 0;
    std::string name;
    std::optional<std::string> path;
    std::optional<std::string> argv0;
    std::uint64_t footprint = 0;
    std::optional<double> cpuPercent;
    std::optional<double> diskReadPerSecond;
    std::optional<double> diskWritePerSecond;
    std::optional<AppGrouper::Identity> app;

    std::int32_t pid() const { return key.pid; }
    bool operator==(const ProcessSample&) const = default;
};

struct AppGroup {
    std::string id;
    std::string name;
    std::optional<std::string> bundlePath;
    std::vector<std::int32_t> pids;
    std::uint64_t footprint = 0;
    std::optional<double> cpuPercent;
    std::optional<double> diskReadPerSecond;
    std::optional<double> diskWritePerSecond;

    bool isGUIApp() const { return bundlePath.has_value(); }
    std::optional<double> diskTotalPerSecond() const;
    void add(const ProcessSample& sample);
    bool operator==(const AppGroup&) const = default;
};

// ---- The snapshot ----

struct HeavyProcess {
    std::int32_t pid = 0;
    std::string name;
    std::uint64_t footprint = 0;
    std::int32_t parentPID = 0;
    std::optional<std::string> parentName;

    bool operator==(const HeavyProcess&) const = default;
};

struct AppMetric : kestrow::RawValueEnum<AppMetric> {
    enum Value : int { memory, cpu, disk };
    static constexpr std::array<std::string_view, 3> rawValues{"memory", "cpu", "disk"};
    Value value = memory;

    constexpr AppMetric() = default;
    constexpr AppMetric(Value v) : value(v) {}

    std::string_view id() const { return rawValue(); }
    std::string_view title() const;
    double valueOf(const AppGroup& group) const;
};

struct MonitorSnapshot {
    static constexpr std::uint64_t heavyProcessThreshold = 8'589'934'592ULL;  // 8 GiB

    Date date{};
    std::vector<AppGroup> apps;
    SystemStats system;
    std::int64_t hiddenProcessCount = 0;
    std::int64_t readableProcessCount = 0;
    std::vector<HeavyProcess> heavyProcesses;

    SystemGlance glance() const;
    // Largest first by the metric; equal values keep their order in `apps`.
    std::vector<AppGroup> topApps(AppMetric metric, std::size_t limit) const;
    bool operator==(const MonitorSnapshot&) const = default;
};

// ---- JSON forms: keys are the field names; absent optionals are left out ----

JsonValue toJson(const SystemStats& value);
JsonValue toJson(const ProcessKey& value);
JsonValue toJson(const AppGrouper::Identity& value);
JsonValue toJson(const ProcessSample& value);
JsonValue toJson(const AppGroup& value);
JsonValue toJson(const HeavyProcess& value);
JsonValue toJson(const MonitorSnapshot& value);

bool fromJson(const JsonValue& json, SystemStats& out);
bool fromJson(const JsonValue& json, ProcessKey& out);
bool fromJson(const JsonValue& json, AppGrouper::Identity& out);
bool fromJson(const JsonValue& json, ProcessSample& out);
bool fromJson(const JsonValue& json, AppGroup& out);
bool fromJson(const JsonValue& json, HeavyProcess& out);
bool fromJson(const JsonValue& json, MonitorSnapshot& out);

}  // namespace brimlet
