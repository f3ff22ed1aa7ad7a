#include "MonitorTypes.hpp"

#include <algorithm>

#include "base/Checked.hpp"
#include "base/JsonCoding.hpp"

namespace brimlet {

MemoryPressure MemoryPressure::fromKernelLevel(std::int32_t level) {
    if (level < 2) return normal;
    if (level <= 3) return warning;
    return critical;
}

ThermalLevel ThermalLevel::fromState(std::int64_t state) {
    if (state <= 0) return nominal;
    if (state == 1) return fair;
    if (state == 2) return serious;
    return critical;
}

double SystemGlance::memoryFraction() const {
    if (memoryTotal == 0) return 0;
    return std::min(1.0, static_cast<double>(memoryUsed) / static_cast<double>(memoryTotal));
}

std::optional<double> AppGroup::diskTotalPerSecond() const {
    if (!diskReadPerSecond && !diskWritePerSecond) return std::nullopt;
    return diskReadPerSecond.value_or(0) + diskWritePerSecond.value_or(0);
}

namespace {
void addRate(std::optional<double>& total, const std::optional<double>& sample) {
    if (total) *total += sample.value_or(0);
    else if (sample) total = sample;
}
}  // namespace

void AppGroup::add(const ProcessSample& sample) {
    pids.push_back(sample.pid());
    // Footprints are bytes of real memory; their sum cannot reach 2^64 on any machine, so an overflow
    // here means corrupt input and is treated as the programming error it is.
    footprint = kestrow::checkedAdd(footprint, sample.footprint, "application footprint overflow");
    addRate(cpuPercent, sample.cpuPercent);
    addRate(diskReadPerSecond, sample.diskReadPerSecond);
    addRate(diskWritePerSecond, sample.diskWritePerSecond);
}

std::string_view AppMetric::title() const {
    switch (value) {
    case memory: return "Memory";
    case cpu: return "CPU";
    case disk: return "Disk";
    }
    return "Memory";
}

double AppMetric::valueOf(const AppGroup& group) const {
    switch (value) {
    case memory: return static_cast<double>(group.footprint);
    case cpu: return group.cpuPercent.value_or(0);
    case disk: return group.diskReadPerSecond.value_or(0) + group.diskWritePerSecond.value_or(0);
    }
    return 0;
}

SystemGlance MonitorSnapshot::glance() const {
    return SystemGlance{system.memoryUsed, system.memoryTotal, system.pressure, system.cpuLoad, system.diskFree};
}

std::vector<AppGroup> MonitorSnapshot::topApps(AppMetric metric, std::size_t limit) const {
    std::vector<AppGroup> sorted = apps;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [&](const AppGroup& a, const AppGroup& b) { return metric.valueOf(a) > metric.valueOf(b); });
    if (sorted.size() > limit) sorted.resize(limit);
    return sorted;
}

// ---- JSON ----

namespace {
using kestrow::field;

constexpr auto systemStatsFields = std::tuple{
    field("memoryTotal", &SystemStats::memoryTotal),
    field("memoryUsed", &SystemStats::memoryUsed),
    field("memoryCompressed", &SystemStats::memoryCompressed),
    field("memoryWired", &SystemStats::memoryWired),
    field("pressure", &SystemStats::pressure),
    field("swapUsed", &SystemStats::swapUsed),
    field("cpuLoad", &SystemStats::cpuLoad),
    field("thermal", &SystemStats::thermal),
    field("gpuUtilization", &SystemStats::gpuUtilization),
    field("diskReadPerSecond", &SystemStats::diskReadPerSecond),
    field("diskWritePerSecond", &SystemStats::diskWritePerSecond),
    field("diskFree", &SystemStats::diskFree),
    field("diskTotal", &SystemStats::diskTotal),
};

constexpr auto processKeyFields = std::tuple{
    field("pid", &ProcessKey::pid),
    field("startTime", &ProcessKey::startTime),
};

constexpr auto identityFields = std::tuple{
    field("key", &AppGrouper::Identity::key),
    field("name", &AppGrouper::Identity::name),
    field("bundlePath", &AppGrouper::Identity::bundlePath),
};

constexpr auto processSampleFields = std::tuple{
    field("key", &ProcessSample::key),
    field("ppid", &ProcessSample::ppid),
    field("name", &ProcessSample::name),
    field("path", &ProcessSample::path),
    field("argv0", &ProcessSample::argv0),
    field("footprint", &ProcessSample::footprint),
    field("cpuPercent", &ProcessSample::cpuPercent),
    field("diskReadPerSecond", &ProcessSample::diskReadPerSecond),
    field("diskWritePerSecond", &ProcessSample::diskWritePerSecond),
    field("app", &ProcessSample::app),
};

constexpr auto appGroupFields = std::tuple{
    field("id", &AppGroup::id),
    field("name", &AppGroup::name),
    field("bundlePath", &AppGroup::bundlePath),
    field("pids", &AppGroup::pids),
    field("footprint", &AppGroup::footprint),
    field("cpuPercent", &AppGroup::cpuPercent),
    field("diskReadPerSecond", &AppGroup::diskReadPerSecond),
    field("diskWritePerSecond", &AppGroup::diskWritePerSecond),
};

constexpr auto heavyProcessFields = std::tuple{
    field("pid", &HeavyProcess::pid),
    field("name", &HeavyProcess::name),
    field("footprint", &HeavyProcess::footprint),
    field("parentPID", &HeavyProcess::parentPID),
    field("parentName", &HeavyProcess::parentName),
};

constexpr auto snapshotFields = std::tuple{
    field("date", &MonitorSnapshot::date),
    field("apps", &MonitorSnapshot::apps),
    field("system", &MonitorSnapshot::system),
    field("hiddenProcessCount", &MonitorSnapshot::hiddenProcessCount),
    field("readableProcessCount", &MonitorSnapshot::readableProcessCount),
    field("heavyProcesses", &MonitorSnapshot::heavyProcesses),
};
}  // namespace

using kestrow::decodeFields;
using kestrow::encodeFields;

JsonValue toJson(const SystemStats& v) { return encodeFields(v, systemStatsFields); }
bool fromJson(const JsonValue& json, SystemStats& v) { return decodeFields(json, v, systemStatsFields); }

JsonValue toJson(const ProcessKey& v) { return encodeFields(v, processKeyFields); }
bool fromJson(const JsonValue& json, ProcessKey& v) { return decodeFields(json, v, processKeyFields); }

JsonValue toJson(const AppGrouper::Identity& v) { return encodeFields(v, identityFields); }
bool fromJson(const JsonValue& json, AppGrouper::Identity& v) { return decodeFields(json, v, identityFields); }

JsonValue toJson(const ProcessSample& v) { return encodeFields(v, processSampleFields); }
bool fromJson(const JsonValue& json, ProcessSample& v) { return decodeFields(json, v, processSampleFields); }

JsonValue toJson(const AppGroup& v) { return encodeFields(v, appGroupFields); }
bool fromJson(const JsonValue& json, AppGroup& v) { return decodeFields(json, v, appGroupFields); }

JsonValue toJson(const HeavyProcess& v) { return encodeFields(v, heavyProcessFields); }
bool fromJson(const JsonValue& json, HeavyProcess& v) { return decodeFields(json, v, heavyProcessFields); }

JsonValue toJson(const MonitorSnapshot& v) { return encodeFields(v, snapshotFields); }
bool fromJson(const JsonValue& json, MonitorSnapshot& v) { return decodeFields(json, v, snapshotFields); }

}  // namespace brimlet
