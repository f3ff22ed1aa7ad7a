// Reading processes: the raw per-process figures, behind a narrow interface so that the sampler can
// be driven by the live kernel or by a test's script of counters.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimlet {

// Converts the kernel's CPU-time ticks to nanoseconds: numer / denom nanoseconds a tick.
struct TickClock {
    std::uint64_t numer = 1;
    std::uint64_t denom = 1;

    // The running machine's clock, read from the kernel once and kept.
    static TickClock current();
    // (ticks / denom) × numer + ((ticks mod denom) × numer) / denom: no overflow in between;
    // an overflow of the result, or a zero denom, is fatal.
    std::uint64_t nanoseconds(std::uint64_t ticks) const;
    bool operator==(const TickClock&) const = default;
};

struct ProcessUsage {
    std::uint64_t footprint = 0;
    std::uint64_t cpuTicks = 0;
    std::uint64_t diskRead = 0;
    std::uint64_t diskWritten = 0;
    // Linux hides another user's I/O counters; their rates are then unknown rather than zero.
    bool diskCountersReadable = true;
    bool operator==(const ProcessUsage&) const = default;
};

struct ProcessIdentity {
    std::int32_t ppid = 0;
    std::uint32_t uid = 0;
    std::uint64_t startTime = 0;  // microseconds since the epoch
    std::string name;
    bool operator==(const ProcessIdentity&) const = default;
};

// What the platform can tell about processes. Implementations return raw figures only.
class ProcessReading {
public:
    virtual ~ProcessReading() = default;

    virtual std::vector<std::int32_t> allPIDs() = 0;
    virtual std::optional<ProcessUsage> usage(std::int32_t pid) = 0;
    virtual std::optional<ProcessIdentity> identity(std::int32_t pid) = 0;
    virtual std::optional<std::string> executablePath(std::int32_t pid) = 0;
    virtual std::optional<std::vector<std::string>> arguments(std::int32_t pid) = 0;
    virtual std::optional<std::string> currentDirectory(std::int32_t pid) = 0;
    // Time since boot, without time asleep (when no process runs): the base of every rate.
    virtual std::chrono::nanoseconds uptime() = 0;
    virtual TickClock clock() = 0;

    // Usage and BSD information of one process together; a backend whose two answers share one
    // kernel read overrides this to read it once. BSD information is only asked when usage exists.
    struct Record {
        std::optional<ProcessUsage> usage;
        std::optional<ProcessIdentity> info;
    };
    // The sampler's sweep reads every process through read() and then calls endSweep(). A backend
    // may keep what it needs to read a process again cheaply (open files) from one sweep to the
    // next; endSweep() lets it release what belongs to processes the sweep no longer saw.
    virtual Record read(std::int32_t pid) {
        Record record;
        record.usage = usage(pid);
        if (record.usage) record.info = identity(pid);
        return record;
    }
    virtual void endSweep() {}
};

// The live reader of this platform; one shared instance, safe to call from any thread.
ProcessReading& liveProcessReading();

// The kernel's argument record, read the same way on every platform that has one.
namespace ProcessReader {
// Parses the kernel's argument record: a 32-bit argc, the executable path and its zero padding,
// then the arguments, each ending at a zero byte or at the end of the data.
std::optional<std::vector<std::string>> parseProcArgs(std::string_view bytes);
}  // namespace ProcessReader

}  // namespace brimlet
