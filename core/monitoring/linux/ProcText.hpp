// Parsers for the text files Linux exposes under /proc and /sys. They take the bytes of one file and
// return raw figures; nothing here touches the file system, so fixtures drive them in tests.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "../SystemSampler.hpp"

namespace brimlet::proctext {

// An unsigned decimal at the start of text, after any blanks; none when there is no digit.
std::optional<std::uint64_t> leadingNumber(std::string_view text);

// An unsigned decimal with an optional fraction ("12", "12.5", "0.07") at the start of text, read
// the same way whatever the C locale says; none when it does not start with a digit or holds more
// digits than a double can take exactly. The result is the double nearest the written value.
std::optional<double> leadingDecimal(std::string_view text);

struct Meminfo {
    MeminfoFigures memory;  // bytes
    std::uint64_t swapTotal = 0;
    std::uint64_t swapFree = 0;
};
// None unless both MemTotal and MemAvailable are present.
std::optional<Meminfo> parseMeminfo(std::string_view text);

// The aggregate "cpu " line of /proc/stat.
std::optional<CPUTicks> parseCPULine(std::string_view stat);
// The "btime" line of /proc/stat: boot time in seconds since the epoch.
std::optional<std::uint64_t> parseBootTime(std::string_view stat);

struct PidStat {
    std::string comm;
    std::int64_t ppid = 0;
    std::uint64_t minorFaults = 0;
    std::uint64_t majorFaults = 0;
    std::uint64_t utime = 0;
    std::uint64_t stime = 0;
    std::uint64_t threads = 0;
    std::uint64_t startTicks = 0;   // clock ticks after boot
    std::uint64_t virtualSize = 0;  // bytes
    std::uint64_t residentPages = 0;

    // Nothing in the line moved that running or a change of its memory would move: the process
    // kept sleeping, so its memory split and I/O counters are very likely where they were. (Less
    // than one clock tick of work without a page fault slips through; callers bound how long.)
    bool sameActivity(const PidStat& other) const {
        return minorFaults == other.minorFaults && majorFaults == other.majorFaults && utime == other.utime &&
               stime == other.stime && threads == other.threads && virtualSize == other.virtualSize &&
               residentPages == other.residentPages;
    }
};
// The command name sits in parentheses and may itself hold blanks and parentheses, so the fields
// are read after the last ")".
std::optional<PidStat> parsePidStat(std::string_view text);

struct PidStatus {
    std::optional<std::uint32_t> uid;  // the real user id
    std::uint64_t rssAnon = 0;         // bytes; 0 when absent (kernel threads)
    std::uint64_t vmSwap = 0;          // bytes
};
PidStatus parsePidStatus(std::string_view text);

// /proc/PID/statm: resident pages less those backed by files or shared memory, which is the
// kernel's own count of anonymous pages (the status file's RssAnon, in pages). None when the line
// does not hold both fields.
std::optional<std::uint64_t> parseStatmAnonPages(std::string_view text);

// /proc/swaps lists a header line and then one line per swap area: true when it lists none.
bool swapsListNone(std::string_view text);

// /proc/loadavg: the fourth field's total of tasks and the last process id handed out.
struct TaskCounter {
    std::uint64_t tasks = 0;
    std::uint64_t lastPID = 0;
    bool operator==(const TaskCounter&) const = default;
};
std::optional<TaskCounter> parseLoadavgTasks(std::string_view text);

struct PidIO {
    std::uint64_t readBytes = 0;
    std::uint64_t writeBytes = 0;
    bool operator==(const PidIO&) const = default;
};
std::optional<PidIO> parsePidIO(std::string_view text);

// Sums sectors × 512 over the devices the predicate accepts (whole physical disks); none when it
// accepts no line. Sectors in diskstats are always 512 bytes, whatever the device's sector size.
std::optional<BlockCounters> parseDiskstats(std::string_view text,
                                            const std::function<bool(std::string_view)>& isWholeDisk);

// /proc/pressure/memory: the avg10 of the "some" and "full" lines.
std::optional<StallAverages> parsePressure(std::string_view text);

// /sys/block/zramN/mm_stat: the third field, memory the device uses to hold compressed pages.
std::optional<std::uint64_t> parseZramMemUsed(std::string_view text);

// Start time in microseconds since the epoch from the boot time and the start in clock ticks.
std::uint64_t startMicros(std::uint64_t bootTime, std::uint64_t startTicks, std::uint64_t ticksPerSecond);

}  // namespace brimlet::proctext
