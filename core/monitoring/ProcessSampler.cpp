#include "ProcessSampler.hpp"

#include "AppGrouper.hpp"

namespace brimlet {

ProcessSampler::ProcessSampler(ProcessReading& reader, TickClock clock) : reader_(reader), clock_(clock) {}

ProcessSampler::ProcessSampler(ProcessReading& reader) : ProcessSampler(reader, reader.clock()) {}

void ProcessSampler::resolveIdentity(ProcessSample& sample, const ProcessIdentity& info) {
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
    const std::chrono::nanoseconds now = reader_.uptime();
    ++sweep_;
    // Last sweep's samples stay where they lie and are updated in place; this sweep's order is
    // gathered in order_ and applied at the end, so no second vector of samples is ever held.
    std::vector<ProcessSample>& samples = result_.processes;
    order_.clear();
    result_.hidden = 0;

    const std::vector<std::int32_t> ids = reader_.allPIDs();
    const bool canRate = previousTime_ && now != *previousTime_;
    // The uptime clock is monotonic, so the difference is never negative. In nanoseconds, as the
    // CPU time it divides.
    const double elapsed = previousTime_ ? static_cast<double>((now - *previousTime_).count()) : 0;
    order_.reserve(ids.size());
    if (entries_.bucket_count() < ids.size()) entries_.reserve(ids.size());

    std::size_t cursor = 0;  // where the last sweep's listing is expected to go on
    for (const std::int32_t pid : ids) {
        ProcessReading::Record record = reader_.read(pid);
        if (!record.usage || !record.info) {
            ++result_.hidden;
            continue;
        }
        const ProcessUsage& usage = *record.usage;
        const ProcessIdentity& info = *record.info;
        const ProcessKey key{pid, info.startTime};
        const Counters counters{usage.cpuTicks, usage.diskRead, usage.diskWritten, usage.diskCountersReadable};

        Entry* found = nullptr;
        bool fresh = false;
        if (cursor < listedKeys_.size() && listedKeys_[cursor] == key) {
            found = listedEntries_[cursor++];
        } else {
            auto [it, added] = entries_.try_emplace(key);
            found = &it->second;
            fresh = added;
            // Met out of turn: the walk goes on after where the process stood last time.
            if (!fresh && found->sweep + 1 == sweep_) cursor = found->slot + 1;
        }
        Entry& entry = *found;
        if (fresh || entry.sweep == sweep_) {
            // Room grows by small steps: a doubling would hold as much again as the samples.
            if (samples.size() == samples.capacity()) samples.reserve(samples.size() + samples.size() / 8 + 16);
            if (fresh) {
                samples.emplace_back().key = key;
                resolveIdentity(samples.back(), info);
            } else {
                // Listed twice in one sweep: the second reading replaces the first, as a table would.
                samples.push_back(samples[entry.slot]);
            }
            entry.slot = samples.size() - 1;
        } else {
            entry.before = entry.counters;
            entry.hasBefore = entry.sweep + 1 == sweep_;
        }
        order_.push_back(Placement{entry.slot, &entry});
        entry.counters = counters;
        entry.sweep = sweep_;

        ProcessSample& sample = samples[entry.slot];
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
                sample.cpuPercent =
                    static_cast<double>(clock_.nanoseconds(usage.cpuTicks - old.cpuTicks)) / elapsed * 100;
            if (usage.diskCountersReadable && old.diskReadable && usage.diskRead >= old.diskRead &&
                usage.diskWritten >= old.diskWritten) {
                sample.diskReadPerSecond = static_cast<double>(usage.diskRead - old.diskRead) / elapsed * 1'000'000'000;
                sample.diskWritePerSecond =
                    static_cast<double>(usage.diskWritten - old.diskWritten) / elapsed * 1'000'000'000;
            }
        }
    }
    reader_.endSweep();
    arrange();

    previousTime_ = now;
    // Forget processes that are gone, so a reused id is resolved afresh. Every entry was met in the
    // last sweep or made in this one, so the gone ones are among the last sweep's.
    // (A process listed twice stands there twice: all are looked at before any is erased.)
    gone_.clear();
    for (std::size_t i = 0; i < listedKeys_.size(); ++i)
        if (listedEntries_[i]->sweep != sweep_) gone_.push_back(listedKeys_[i]);
    for (const ProcessKey& key : gone_) entries_.erase(key);
    listedKeys_.resize(samples.size());
    listedEntries_.resize(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        listedKeys_[i] = samples[i].key;
        listedEntries_[i] = order_[i].entry;
    }
    return result_;
}

void ProcessSampler::arrange() {
    // Puts sample order_[i] at position i by swaps, tracking where each sample now lies and which
    // sample lies at each position. Samples no listing named end up past the end and are dropped.
    std::vector<ProcessSample>& samples = result_.processes;
    const std::size_t count = samples.size();
    where_.resize(count);
    holder_.resize(count);
    for (std::size_t i = 0; i < count; ++i) where_[i] = holder_[i] = i;
    for (std::size_t i = 0; i < order_.size(); ++i) {
        const std::size_t from = order_[i].from, at = where_[from];
        if (at == i) continue;
        std::swap(samples[i], samples[at]);
        const std::size_t displaced = holder_[i];
        holder_[at] = displaced;
        where_[displaced] = at;
        holder_[i] = from;
        where_[from] = i;
    }
    samples.resize(order_.size());
    // The later of two listings of one process is the one its entry follows.
    for (std::size_t i = 0; i < order_.size(); ++i) order_[i].entry->slot = i;
    // A sweep with far fewer processes than the last gives its room back.
    if (samples.capacity() > 2 * samples.size() + 64) samples.shrink_to_fit();
}

}  // namespace brimlet
