#include "MonitorTypes.hpp"

#include <algorithm>

#include "base/Checked.hpp"
#include "base/JsonCoding.hpp"

namespace brimlet {

using kestrow::JsonObjectBuilder;
using kestrow::JsonObjectReader;

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

JsonValue toJson(const SystemStats& v) {
    return JsonObjectBuilder()
        .set("memoryTotal", v.memoryTotal)
        .set("memoryUsed", v.memoryUsed)
        .set("memoryCompressed", v.memoryCompressed)
        .set("memoryWired", v.memoryWired)
        .set("pressure", v.pressure)
        .set("swapUsed", v.swapUsed)
        .set("cpuLoad", v.cpuLoad)
        .set("thermal", v.thermal)
        .set("gpuUtilization", v.gpuUtilization)
        .set("diskReadPerSecond", v.diskReadPerSecond)
        .set("diskWritePerSecond", v.diskWritePerSecond)
        .set("diskFree", v.diskFree)
        .set("diskTotal", v.diskTotal)
        .build();
}

bool fromJson(const JsonValue& json, SystemStats& v) {
    return JsonObjectReader(json)
        .get("memoryTotal", v.memoryTotal)
        .get("memoryUsed", v.memoryUsed)
        .get("memoryCompressed", v.memoryCompressed)
        .get("memoryWired", v.memoryWired)
        .get("pressure", v.pressure)
        .get("swapUsed", v.swapUsed)
        .get("cpuLoad", v.cpuLoad)
        .get("thermal", v.thermal)
        .get("gpuUtilization", v.gpuUtilization)
        .get("diskReadPerSecond", v.diskReadPerSecond)
        .get("diskWritePerSecond", v.diskWritePerSecond)
        .get("diskFree", v.diskFree)
        .get("diskTotal", v.diskTotal)
        .ok();
}

JsonValue toJson(const ProcessKey& v) {
    return JsonObjectBuilder().set("pid", v.pid).set("startTime", v.startTime).build();
}

bool fromJson(const JsonValue& json, ProcessKey& v) {
    return JsonObjectReader(json).get("pid", v.pid).get("startTime", v.startTime).ok();
}

JsonValue toJson(const AppGrouper::Identity& v) {
    return JsonObjectBuilder().set("key", v.key).set("name", v.name).set("bundlePath", v.bundlePath).build();
}

bool fromJson(const JsonValue& json, AppGrouper::Identity& v) {
    return JsonObjectReader(json).get("key", v.key).get("name", v.name).get("bundlePath", v.bundlePath).ok();
}

JsonValue toJson(const ProcessSample& v) {
    return JsonObjectBuilder()
        .set("key", v.key)
        .set("ppid", v.ppid)
        .set("name", v.name)
        .set("path", v.path)
        .set("argv0", v.argv0)
        .set("footprint", v.footprint)
        .set("cpuPercent", v.cpuPercent)
        .set("diskReadPerSecond", v.diskReadPerSecond)
        .set("diskWritePerSecond", v.diskWritePerSecond)
        .set("app", v.app)
        .build();
}

bool fromJson(const JsonValue& json, ProcessSample& v) {
    return JsonObjectReader(json)
        .get("key", v.key)
        .get("ppid", v.ppid)
        .get("name", v.name)
        .get("path", v.path)
        .get("argv0", v.argv0)
        .get("footprint", v.footprint)
        .get("cpuPercent", v.cpuPercent)
        .get("diskReadPerSecond", v.diskReadPerSecond)
        .get("diskWritePerSecond", v.diskWritePerSecond)
        .get("app", v.app)
        .ok();
}

JsonValue toJson(const AppGroup& v) {
    return JsonObjectBuilder()
        .set("id", v.id)
        .set("name", v.name)
        .set("bundlePath", v.bundlePath)
        .set("pids", v.pids)
        .set("footprint", v.footprint)
        .set("cpuPercent", v.cpuPercent)
        .set("diskReadPerSecond", v.diskReadPerSecond)
        .set("diskWritePerSecond", v.diskWritePerSecond)
        .build();
}

bool fromJson(const JsonValue& json, AppGroup& v) {
    return JsonObjectReader(json)
        .get("id", v.id)
        .get("name", v.name)
        .get("bundlePath", v.bundlePath)
        .get("pids", v.pids)
        .get("footprint", v.footprint)
        .get("cpuPercent", v.cpuPercent)
        .get("diskReadPerSecond", v.diskReadPerSecond)
        .get("diskWritePerSecond", v.diskWritePerSecond)
        .ok();
}

JsonValue toJson(const HeavyProcess& v) {
    return JsonObjectBuilder()
        .set("pid", v.pid)
        .set("name", v.name)
        .set("footprint", v.footprint)
        .set("parentPID", v.parentPID)
        .set("parentName", v.parentName)
        .build();
}

bool fromJson(const JsonValue& json, HeavyProcess& v) {
    return JsonObjectReader(json)
        .get("pid", v.pid)
        .get("name", v.name)
        .get("footprint", v.footprint)
        .get("parentPID", v.parentPID)
        .get("parentName", v.parentName)
        .ok();
}

JsonValue toJson(const MonitorSnapshot& v) {
    return JsonObjectBuilder()
        .set("date", v.date)
        .set("apps", v.apps)
        .set("system", v.system)
        .set("hiddenProcessCount", v.hiddenProcessCount)
        .set("readableProcessCount", v.readableProcessCount)
        .set("heavyProcesses", v.heavyProcesses)
        .build();
}

bool fromJson(const JsonValue& json, MonitorSnapshot& v) {
    return JsonObjectReader(json)
        .get("date", v.date)
        .get("apps", v.apps)
        .get("system", v.system)
        .get("hiddenProcessCount", v.hiddenProcessCount)
        .get("readableProcessCount", v.readableProcessCount)
        .get("heavyProcesses", v.heavyProcesses)
        .ok();
}

}  // namespace brimlet
