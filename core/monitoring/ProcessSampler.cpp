#include "ProcessSampler.hpp"

#include "AppGrouper.hpp"

namespace brimlet {

ProcessSampler::ProcessSampler(ProcessReading& reader, MachClock clock) : reader_(reader), clock_(clock) {}

ProcessSampler::ProcessSampler(ProcessReading& reader) : ProcessSampler(reader, reader.clock()) {}

void ProcessSampler::resolveIdentity(ProcessSample& sample, const ProcessBSDInfo& info) {
    // Paths and arguments cost several kernel calls; they are read once per process lifetime.
    const std::int32_t pid = sample.key.pid;
    sample.name = info.name;
    sample.path = reader_.executablePath(pid);
    if (!AppGrouper::outermostBundle(sample.path)) {
        if (auto args = reader_.arguments(pid); args && !args->empty()) sample.argv0 = std::move(args->front());
    }
    sample.app = AppGrouper::identity(sample.path, sample.argv0, info.name);
}

const ProcessSampler::Result& ProcessSampler::sample() {
    const std::uint64_t now = reader_.uptimeNanoseconds();
    ++sweep_;
    // Last sweep's samples become the source that this sweep's samples are moved out of.
    std::swap(previousSamples_, result_.processes);
    result_.processes.clear();
    result_.hidden = 0;

    const std::vector<std::int32_t> ids = reader_.allPIDs();
    const bool canRate = previousTime_ && now != *previousTime_;
    // The uptime clock is monotonic, so the difference is never negative.
    const double elapsed = previousTime_ ? static_cast<double>(now - *previousTime_) : 0;
    result_.processes.reserve(ids.size());
    if (entries_.bucket_count() < ids.size()) entries_.reserve(ids.size());

    for (const std::int32_t pid : ids) {
        ProcessReading::Record record = reader_.read(pid);
        if (!record.usage || !record.info) {
            ++result_.hidden;
            continue;
        }
        const ProcessUsage& usage = *record.usage;
        const ProcessBSDInfo& info = *record.info;
        const ProcessKey key{pid, info.startTime};
        const Counters counters{usage.cpuTicks, usage.diskRead, usage.diskWritten, usage.diskCountersReadable};

        auto [it, fresh] = entries_.try_emplace(key);
        Entry& entry = it->second;
        if (fresh) {
            ProcessSample& sample = result_.processes.emplace_back();
            sample.key = key;
            resolveIdentity(sample, info);
        } else if (entry.sweep == sweep_) {
            // Listed twice in one sweep: the second reading replaces the first, as a table would.
            result_.processes.push_back(result_.processes[entry.slot]);
        } else {
            entry.before = entry.counters;
            entry.hasBefore = entry.sweep + 1 == sweep_;
            result_.processes.push_back(std::move(previousSamples_[entry.slot]));
        }
        entry.counters = counters;
        entry.sweep = sweep_;
        entry.slot = result_.processes.size() - 1;

        ProcessSample& sample = result_.processes.back();
        sample.ppid = info.ppid;
        sample.footprint = usage.footprint;
        sample.cpuPercent.reset();
        sample.diskReadPerSecond.reset();
        sample.diskWritePerSecond.reset();
        if (canRate && entry.hasBefore) {
            const Counters& old = entry.before;
            // The kernel's counters only grow for one process; one that went backwards is a
            // glitch, and its rate is left unknown rather than wrapped into a huge figure.
            if (usage.cpuTicks >= old.cpuTicks)
                sample.cpuPercent = static_cast<double>(clock_.nanoseconds(usage.cpuTicks - old.cpuTicks)) / elapsed * 100;
            if (usage.diskCountersReadable && old.diskReadable && usage.diskRead >= old.diskRead &&
                usage.diskWritten >= old.diskWritten) {
                sample.diskReadPerSecond = static_cast<double>(usage.diskRead - old.diskRead) / elapsed * 1'000'000'000;
                sample.diskWritePerSecond =
                    static_cast<double>(usage.diskWritten - old.diskWritten) / elapsed * 1'000'000'000;
            }
        }
    }
    reader_.endSweep();

    previousTime_ = now;
    // Forget processes that are gone, so a reused id is resolved afresh.
    for (auto it = entries_.begin(); it != entries_.end();) {
        if (it->second.sweep == sweep_) ++it;
        else it = entries_.erase(it);
    }
    previousSamples_.clear();
    return result_;
}

}  // namespace brimlet
