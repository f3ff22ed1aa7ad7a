// Samples every process once a call: identity, footprint and rates over the interval since the
// previous call. Not safe to share; the engine serialises its calls.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "MonitorTypes.hpp"
#include "ProcessReader.hpp"

namespace brimlet {

class ProcessSampler {
public:
    struct Result {
        std::vector<ProcessSample> processes;
        std::int64_t hidden = 0;
    };

    // The reader must outlive the sampler; the clock converts its CPU ticks.
    ProcessSampler(ProcessReading& reader, TickClock clock);
    explicit ProcessSampler(ProcessReading& reader = liveProcessReading());

    // The result lives in the sampler and is reused: it stays valid until the next call. Each
    // process's strings are resolved once in its lifetime and then moved from sweep to sweep,
    // never copied.
    const Result& sample();

    // For callers that need one more process's name (a parent that is not among the samples).
    ProcessReading& reader() { return reader_; }

private:
    struct Counters {
        std::uint64_t cpuTicks = 0;
        std::uint64_t diskRead = 0;
        std::uint64_t diskWritten = 0;
        bool diskReadable = true;
    };
    // What the sampler remembers of one live process between sweeps.
    struct Entry {
        Counters counters;       // as read in the sweep `sweep`
        Counters before;         // as read in the sweep before it
        bool hasBefore = false;  // the process was read in that earlier sweep too
        std::uint64_t sweep = 0;
        std::size_t slot = 0;  // where its sample lies in the result of `sweep`
    };

    // This sweep's i-th sample: its slot in result_.processes while the sweep runs, and its entry
    // (entries are never moved by the map, so the pointer holds until the entry is erased).
    struct Placement {
        std::size_t from = 0;
        Entry* entry = nullptr;
    };

    void resolveIdentity(ProcessSample& sample, const ProcessIdentity& info);
    void arrange();

    ProcessReading& reader_;
    TickClock clock_;
    std::unordered_map<ProcessKey, Entry, ProcessKeyHash> entries_;
    std::optional<std::chrono::nanoseconds> previousTime_;
    std::uint64_t sweep_ = 0;
    Result result_;
    std::vector<Placement> order_;
    std::vector<std::size_t> where_, holder_;  // reused by arrange()
    // The last sweep's processes in its order, with their entries: a listing in the same order
    // (the kernel lists by process id) finds each entry by walking along, not through the map.
    std::vector<ProcessKey> listedKeys_;
    std::vector<Entry*> listedEntries_;
    std::vector<ProcessKey> gone_;
};

}  // namespace brimlet
