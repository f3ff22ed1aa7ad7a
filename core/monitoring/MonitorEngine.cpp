#include "MonitorEngine.hpp"

#include <algorithm>
#include <unordered_map>

namespace brimlet {

MonitorEngine::MonitorEngine() : processes_(liveProcessReading()), system_(liveSystemReading()) {}

MonitorEngine::MonitorEngine(ProcessReading& processes, SystemReading& system)
    : processes_(processes),
      system_(system) {}

std::future<MonitorSnapshot> MonitorEngine::snapshot() {
    return executor_.submit([this] { return assemble(processes_, system_); });
}

std::future<SystemGlance> MonitorEngine::glance() {
    return executor_.submit([this] { return system_.glance(); });
}

MonitorSnapshot MonitorEngine::assemble(ProcessSampler& processes, SystemSampler& system) {
    const ProcessSampler::Result& sampled = processes.sample();
    MonitorSnapshot snapshot;
    snapshot.system = system.sample();

    std::vector<const ProcessSample*> heavy;
    for (const ProcessSample& sample : sampled.processes)
        if (sample.footprint > MonitorSnapshot::heavyProcessThreshold) heavy.push_back(&sample);

    // Parent names come from the same sample; the table is built only when a heavy process needs it.
    std::unordered_map<std::int32_t, const std::string*> names;
    if (!heavy.empty()) {
        names.reserve(sampled.processes.size());
        for (const ProcessSample& sample : sampled.processes) names.try_emplace(sample.pid(), &sample.name);
    }
    std::stable_sort(heavy.begin(), heavy.end(),
                     [](const ProcessSample* a, const ProcessSample* b) { return a->footprint > b->footprint; });
    for (const ProcessSample* sample : heavy) {
        HeavyProcess entry{sample->pid(), sample->name, sample->footprint, sample->ppid, std::nullopt};
        if (auto it = names.find(sample->ppid); it != names.end()) entry.parentName = *it->second;
        else if (auto info = processes.reader().identity(sample->ppid)) entry.parentName = info->name;
        snapshot.heavyProcesses.push_back(std::move(entry));
    }

    snapshot.date = kestrow::currentDate();
    snapshot.apps = AppGrouper::group(sampled.processes);
    snapshot.hiddenProcessCount = sampled.hidden;
    snapshot.readableProcessCount = static_cast<std::int64_t>(sampled.processes.size());
    return snapshot;
}

}  // namespace brimlet
