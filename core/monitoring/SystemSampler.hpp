// Machine-wide figures: memory, pressure, swap, CPU load, thermal state, GPU, disk rates and space.
#pragma once

#include "core/common/DiskSpace.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "MonitorTypes.hpp"

namespace brimlet {

// ---- Raw readings, as the platform gives them ----

// Mach virtual-memory page counts.
struct VMPageCounts {
    std::uint64_t pageSize = 0;
    std::uint64_t internal = 0;
    std::uint64_t purgeable = 0;
    std::uint64_t wired = 0;
    std::uint64_t compressor = 0;
};

// Linux /proc/meminfo figures in bytes, plus what zram devices hold compressed.
struct MeminfoFigures {
    std::uint64_t memTotal = 0;
    std::uint64_t memAvailable = 0;
    std::uint64_t unevictable = 0;
    std::uint64_t sUnreclaim = 0;
    std::uint64_t kernelStack = 0;
    std::uint64_t pageTables = 0;
    std::uint64_t zswap = 0;
    std::uint64_t zramUsed = 0;
};

using MemoryCounters = std::variant<VMPageCounts, MeminfoFigures>;

// Pressure stall averages over ten seconds, in percent of wall time.
struct StallAverages {
    double some = 0;
    double full = 0;
};

// Kernel pressure level, stall averages, or nothing readable.
using PressureReading = std::variant<std::monostate, std::int32_t, StallAverages>;

struct SwapCounters {
    std::uint64_t total = 0;
    std::uint64_t available = 0;
    std::optional<std::uint64_t> used;  // when the platform reports it directly
};

// Cumulative CPU time by state across all cores, in ticks; states a platform lacks stay 0.
struct CPUTicks {
    std::uint64_t user = 0, nice = 0, system = 0, idle = 0, iowait = 0, irq = 0, softirq = 0, steal = 0;
};

// One thermal zone: its temperature and trip points, in millidegrees.
struct ThermalTrip {
    std::int64_t temperature = 0;
    std::string type;  // "active", "passive", "hot", "critical"
};
struct ThermalZone {
    std::int64_t temperature = 0;
    std::vector<ThermalTrip> trips;
};

// The system's own thermal state number, or the zones to judge.
using ThermalReading = std::variant<std::int64_t, std::vector<ThermalZone>>;

struct BlockCounters {
    std::uint64_t bytesRead = 0;
    std::uint64_t bytesWritten = 0;
};

class SystemReading {
public:
    virtual ~SystemReading() = default;
    // Starts one reading of the machine. A backend whose figures share one source (Linux's
    // /proc/meminfo gives memory, total and swap) reads that source here, once, and answers the
    // calls that follow from it until the next beginSample().
    virtual void beginSample() {}
    virtual std::optional<MemoryCounters> memory() = 0;
    virtual std::optional<std::uint64_t> memoryTotal() = 0;
    virtual PressureReading pressure() = 0;
    virtual std::optional<SwapCounters> swap() = 0;
    virtual std::optional<CPUTicks> cpuTicks() = 0;
    virtual ThermalReading thermal() = 0;
    virtual std::vector<double> gpuUtilizations() = 0;
    // Summed over every disk that answered; none when no disk did.
    virtual std::optional<BlockCounters> blockCounters() = 0;
    virtual std::optional<VolumeBlocks> volume(const std::string& path) = 0;
    // Time since boot, without time asleep: the base of the disks' rates.
    virtual std::chrono::nanoseconds uptime() = 0;
};

SystemReading& liveSystemReading();

// ---- Shared rules ----

struct MemoryFigures {
    std::uint64_t used = 0;
    std::uint64_t compressed = 0;
    std::uint64_t wired = 0;
};

namespace SystemFormulas {
MemoryFigures memory(const MemoryCounters& counters);
MemoryPressure pressure(const PressureReading& reading);
std::uint64_t swapUsed(const SwapCounters& swap);
ThermalLevel thermal(const ThermalReading& reading);
std::optional<double> gpu(const std::vector<double>& utilizations);
// busy = user + nice + system + irq + softirq + steal; total = busy + idle + iowait.
std::pair<std::uint64_t, std::uint64_t> busyAndTotal(const CPUTicks& ticks);
}  // namespace SystemFormulas

// Stall thresholds: "full" stalls mean every task waited on memory, "some" that at least one did.
// Android's lmkd treats sustained "some" stalls as medium pressure and "full" stalls as critical.
inline constexpr double stallWarningSome = 10.0;
inline constexpr double stallWarningFull = 2.0;
inline constexpr double stallCriticalFull = 10.0;

class SystemSampler {
public:
    explicit SystemSampler(SystemReading& reader = liveSystemReading());

    SystemStats sample();
    SystemGlance glance();

private:
    using TickPair = std::pair<std::uint64_t, std::uint64_t>;
    std::optional<double> cpuLoad(std::optional<TickPair>& previous);
    void diskRates(SystemStats& stats);
    std::pair<std::uint64_t, std::uint64_t> dataVolume();

    struct DiskMark {
        std::uint64_t read = 0;
        std::uint64_t written = 0;
        std::chrono::nanoseconds time{0};
    };

    SystemReading& reader_;
    std::optional<TickPair> previousCPUTicks_;
    std::optional<TickPair> previousGlanceCPUTicks_;
    std::optional<DiskMark> previousDisk_;
};

}  // namespace brimlet
