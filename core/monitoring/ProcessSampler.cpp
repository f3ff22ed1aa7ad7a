#include "ProcessSampler.hpp"

namespace brimlet {

ProcessSampler::ProcessSampler(ProcessReading& reader, MachClock clock) : reader_(reader), clock_(clock) {}

ProcessSampler::ProcessSampler(ProcessReading& reader) : ProcessSampler(reader, reader.clock()) {}

const ProcessSampler::Identity& ProcessSampler::resolveIdentity(const ProcessKey& key, const ProcessBSDInfo& info) {
    auto it = identities_.find(key);
    if (it != identities_.end()) return it->second;
    // Paths and arguments cost several kernel calls; they are read once per process lifetime.
    Identity identity;
    identity.name = info.name;
    identity.path = reader_.executablePath(key.pid);
    if (!AppGrouper::outermostBundle(identity.path)) {
        if (auto args = reader_.arguments(key.pid); args && !args->empty()) identity.argv0 = args->front();
    }
    identity.app = AppGrouper::identity(identity.path, identity.argv0, info.name);
    return identities_.emplace(key, std::move(identity)).first->second;
}

ProcessSampler::Result ProcessSampler::sample() {
    const std::uint64_t now = reader_.uptimeNanoseconds();
    Result result;
    std::unordered_map<ProcessKey, Counters, ProcessKeyHash> current;

    const std::vector<std::int32_t> ids = reader_.allPIDs();
    if (!ids.empty()) {
        current.reserve(ids.size());
        result.processes.reserve(ids.size());
        const bool canRate = previousTime_ && now != *previousTime_;
        // The uptime clock is monotonic, so the difference is never negative.
        const double elapsed = previousTime_ ? static_cast<double>(now - *previousTime_) : 0;

        for (const std::int32_t pid : ids) {
            ProcessReading::Record record = reader_.read(pid);
            if (!record.usage || !record.info) {
                ++result.hidden;
                continue;
            }
            const ProcessUsage& usage = *record.usage;
            const ProcessBSDInfo& info = *record.info;
            const ProcessKey key{pid, info.startTime};
            current[key] = Counters{usage.cpuTicks, usage.diskRead, usage.diskWritten, usage.diskCountersReadable};

            const Identity& identity = resolveIdentity(key, info);
            ProcessSample sample;
            sample.key = key;
            sample.ppid = info.ppid;
            sample.name = identity.name;
            sample.path = identity.path;
            sample.argv0 = identity.argv0;
            sample.app = identity.app;
            sample.footprint = usage.footprint;

            if (canRate) {
                if (auto before = previous_.find(key); before != previous_.end()) {
                    const Counters& old = before->second;
                    // The kernel's counters only grow for one process; one that went backwards is a
                    // glitch, and its rate is left unknown rather than wrapped into a huge figure.
                    if (usage.cpuTicks >= old.cpuTicks)
                        sample.cpuPercent =
                            static_cast<double>(clock_.nanoseconds(usage.cpuTicks - old.cpuTicks)) / elapsed * 100;
                    if (usage.diskCountersReadable && old.diskReadable && usage.diskRead >= old.diskRead &&
                        usage.diskWritten >= old.diskWritten) {
                        sample.diskReadPerSecond =
                            static_cast<double>(usage.diskRead - old.diskRead) / elapsed * 1'000'000'000;
                        sample.diskWritePerSecond =
                            static_cast<double>(usage.diskWritten - old.diskWritten) / elapsed * 1'000'000'000;
                    }
                }
            }
            result.processes.push_back(std::move(sample));
        }
    }

    previous_ = std::move(current);
    previousTime_ = now;
    // Forget identities of processes that are gone, so a reused id is resolved afresh.
    for (auto it = identities_.begin(); it != identities_.end();) {
        if (previous_.count(it->first)) ++it;
        else it = identities_.erase(it);
    }
    return result;
}

}  // namespace brimlet
