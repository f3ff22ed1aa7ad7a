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
    ProcessSampler(ProcessReading& reader, MachClock clock);
    explicit ProcessSampler(ProcessReading& reader = liveProcessReading());

    Result sample();

    // For callers that need one more process's name (a parent that is not among the samples).
    ProcessReading& reader() { return reader_; }

private:
    struct Counters {
        std::uint64_t cpuTicks = 0;
        std::uint64_t diskRead = 0;
        std::uint64_t diskWritten = 0;
        bool diskReadable = true;
    };
    struct Identity {
        std::string name;
        std::optional<std::string> path;
        std::optional<std::string> argv0;
        std::optional<AppGrouper::Identity> app;
    };

    const Identity& resolveIdentity(const ProcessKey& key, const ProcessBSDInfo& info);

    ProcessReading& reader_;
    MachClock clock_;
    std::unordered_map<ProcessKey, Counters, ProcessKeyHash> previous_;
    std::optional<std::uint64_t> previousTime_;
    std::unordered_map<ProcessKey, Identity, ProcessKeyHash> identities_;
};

}  // namespace brimlet
