#include "ProcText.hpp"

#include <string.h>

#include <charconv>
#include <iterator>
#include <limits>

#include "base/Checked.hpp"

namespace brimlet::proctext {

namespace {

// Splits text into lines and hands each to the visitor until it returns false.
template <typename F>
void forEachLine(std::string_view text, F&& visit) {
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        if (!visit(line)) return;
        if (end == std::string_view::npos) return;
        text.remove_prefix(end + 1);
    }
}

std::string_view skipBlanks(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    return text;
}

// The next blank-separated field, consumed from text.
std::string_view nextField(std::string_view& text) {
    text = skipBlanks(text);
    std::size_t end = 0;
    while (end < text.size() && text[end] != ' ' && text[end] != '\t') ++end;
    const std::string_view field = text.substr(0, end);
    text.remove_prefix(end);
    return field;
}

std::optional<std::uint64_t> fieldNumber(std::string_view field) {
    std::uint64_t value = 0;
    const auto r = std::from_chars(field.data(), field.data() + field.size(), value);
    if (r.ec != std::errc() || r.ptr != field.data() + field.size()) return std::nullopt;
    return value;
}

// A "Key:   123 kB" line's value in bytes.
std::optional<std::uint64_t> kilobytes(std::string_view rest) {
    auto value = leadingNumber(rest);
    if (!value) return std::nullopt;
    return kestrow::checkedMultiply(*value, 1024, "meminfo overflow");
}

}  // namespace

std::optional<std::uint64_t> leadingNumber(std::string_view text) {
    text = skipBlanks(text);
    std::uint64_t value = 0;
    const auto r = std::from_chars(text.data(), text.data() + text.size(), value);
    if (r.ec != std::errc()) return std::nullopt;
    return value;
}

std::optional<double> leadingDecimal(std::string_view text) {
    // Digits gather into one integer and a count of fraction digits; one division by an exact power
    // of ten then rounds once, to the nearest double, as a correctly rounding parser would.
    constexpr std::uint64_t exactLimit = 1ULL << 53;  // every integer below it is a double
    constexpr double powersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                      1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    std::uint64_t digits = 0;
    std::size_t fraction = 0;
    std::size_t pos = 0;
    bool any = false, inFraction = false;
    for (; pos < text.size(); ++pos) {
        const char c = text[pos];
        if (c == '.' && !inFraction && any) {
            inFraction = true;
            continue;
        }
        if (c < '0' || c > '9') break;
        any = true;
        // Trailing zeros of a fraction add no value; skipping them keeps "1.500000" exact.
        if (inFraction && c == '0') {
            std::size_t next = pos;
            while (next < text.size() && text[next] == '0') ++next;
            if (next == text.size() || text[next] < '0' || text[next] > '9') break;
        }
        digits = digits * 10 + static_cast<std::uint64_t>(c - '0');
        if (digits >= exactLimit) return std::nullopt;
        if (inFraction) ++fraction;
    }
    if (!any) return std::nullopt;
    if (fraction >= std::size(powersOfTen)) return std::nullopt;
    return static_cast<double>(digits) / powersOfTen[fraction];
}

std::optional<Meminfo> parseMeminfo(std::string_view text) {
    Meminfo info;
    bool haveTotal = false, haveAvailable = false;
    forEachLine(text, [&](std::string_view line) {
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) return true;
        const std::string_view key = line.substr(0, colon);
        const auto bytes = kilobytes(line.substr(colon + 1));
        if (!bytes) return true;
        if (key == "MemTotal") info.memory.memTotal = *bytes, haveTotal = true;
        else if (key == "MemAvailable") info.memory.memAvailable = *bytes, haveAvailable = true;
        else if (key == "Unevictable") info.memory.unevictable = *bytes;
        else if (key == "SUnreclaim") info.memory.sUnreclaim = *bytes;
        else if (key == "KernelStack") info.memory.kernelStack = *bytes;
        else if (key == "PageTables") info.memory.pageTables = *bytes;
        else if (key == "Zswap") info.memory.zswap = *bytes;
        else if (key == "SwapTotal") info.swapTotal = *bytes;
        else if (key == "SwapFree") info.swapFree = *bytes;
        return true;
    });
    if (!haveTotal || !haveAvailable) return std::nullopt;
    return info;
}

std::optional<CPUTicks> parseCPULine(std::string_view stat) {
    std::optional<CPUTicks> result;
    forEachLine(stat, [&](std::string_view line) {
        if (line.substr(0, 4) != "cpu ") return true;
        line.remove_prefix(4);
        std::uint64_t values[8] = {};
        int count = 0;
        for (; count < 8; ++count) {
            const std::string_view field = nextField(line);
            if (field.empty()) break;
            auto v = fieldNumber(field);
            if (!v) return false;
            values[count] = *v;
        }
        // Kernels since 2.6.11 give at least eight fields; anything shorter is not a stat file.
        if (count >= 4) {
            result = CPUTicks{values[0], values[1], values[2], values[3], values[4], values[5], values[6], values[7]};
        }
        return false;
    });
    return result;
}

std::optional<std::uint64_t> parseBootTime(std::string_view stat) {
    std::optional<std::uint64_t> result;
    forEachLine(stat, [&](std::string_view line) {
        if (line.substr(0, 6) != "btime ") return true;
        result = leadingNumber(line.substr(6));
        return false;
    });
    return result;
}

std::optional<PidStat> parsePidStat(std::string_view text) {
    const std::size_t open = text.find('(');
    // The last ")" ends the name. memrchr looks at many bytes at a time, where a plain backward
    // search would go through the forty-odd numbers after the name byte by byte.
    const void* closing = text.empty() ? nullptr : ::memrchr(text.data(), ')', text.size());
    if (open == std::string_view::npos || !closing) return std::nullopt;
    const auto close = static_cast<std::size_t>(static_cast<const char*>(closing) - text.data());
    if (close < open) return std::nullopt;
    PidStat stat;
    stat.comm = std::string(text.substr(open + 1, close - open - 1));
    // Fields after the name, counted from 3 as in proc(5): state, ppid, …, minflt 10, majflt 12,
    // utime 14, stime 15, num_threads 20, starttime 22, vsize 23, rss 24. Every sweep parses one
    // such line per process, so this is one pass over the bytes: the fields read are taken digit
    // by digit, the others only skipped.
    constexpr int last = 24;
    constexpr std::uint32_t wanted =
        1u << 4 | 1u << 10 | 1u << 12 | 1u << 14 | 1u << 15 | 1u << 20 | 1u << 22 | 1u << 23 | 1u << 24;
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    std::uint64_t field[last + 1] = {};
    const char* at = text.data() + close + 1;
    const char* const end = text.data() + text.size();
    for (int index = 3; index <= last; ++index) {
        while (at != end && blank(*at)) ++at;
        if (at == end) return std::nullopt;
        if (!(wanted >> index & 1u)) {
            while (at != end && !blank(*at)) ++at;  // the state letter and fields this reader does not use
            continue;
        }
        const char* const start = at;
        std::uint64_t value = 0;
        for (; at != end && *at >= '0' && *at <= '9'; ++at) {
            const auto digit = static_cast<std::uint64_t>(*at - '0');
            if (value > (most - digit) / 10) return std::nullopt;
            value = value * 10 + digit;
        }
        if (at == start || (at != end && !blank(*at))) return std::nullopt;
        field[index] = value;
    }
    stat.ppid = static_cast<std::int64_t>(field[4]);
    stat.minorFaults = field[10];
    stat.majorFaults = field[12];
    stat.utime = field[14];
    stat.stime = field[15];
    stat.threads = field[20];
    stat.startTicks = field[22];
    stat.virtualSize = field[23];
    stat.residentPages = field[24];
    return stat;
}

PidStatus parsePidStatus(std::string_view text) {
    PidStatus status;
    forEachLine(text, [&](std::string_view line) {
        if (line.substr(0, 4) == "Uid:") {
            if (auto v = leadingNumber(line.substr(4)); v && *v <= 0xFFFFFFFFu)
                status.uid = static_cast<std::uint32_t>(*v);
        } else if (line.substr(0, 8) == "RssAnon:") {
            status.rssAnon = kilobytes(line.substr(8)).value_or(0);
        } else if (line.substr(0, 7) == "VmSwap:") {
            status.vmSwap = kilobytes(line.substr(7)).value_or(0);
        }
        return true;
    });
    return status;
}

std::optional<std::uint64_t> parseStatmAnonPages(std::string_view text) {
    const std::size_t first = text.find(' ');
    if (first == std::string_view::npos) return std::nullopt;
    text.remove_prefix(first + 1);
    const auto resident = leadingNumber(text);
    const std::size_t second = text.find(' ');
    if (!resident || second == std::string_view::npos) return std::nullopt;
    const auto shared = leadingNumber(text.substr(second + 1));
    if (!shared || *shared > *resident) return std::nullopt;
    return *resident - *shared;
}

bool swapsListNone(std::string_view text) {
    const std::size_t header = text.find('\n');
    if (header == std::string_view::npos) return false;
    return text.substr(header + 1).find_first_not_of(" \n") == std::string_view::npos;
}

std::optional<TaskCounter> parseLoadavgTasks(std::string_view text) {
    const std::size_t slash = text.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    text.remove_prefix(slash + 1);
    const auto tasks = leadingNumber(text);
    const std::size_t blank = text.find(' ');
    if (!tasks || blank == std::string_view::npos) return std::nullopt;
    const auto last = leadingNumber(text.substr(blank + 1));
    if (!last) return std::nullopt;
    return TaskCounter{*tasks, *last};
}

std::optional<PidIO> parsePidIO(std::string_view text) {
    PidIO io;
    bool haveRead = false, haveWrite = false;
    forEachLine(text, [&](std::string_view line) {
        if (line.substr(0, 11) == "read_bytes:") {
            if (auto v = leadingNumber(line.substr(11))) io.readBytes = *v, haveRead = true;
        } else if (line.substr(0, 12) == "write_bytes:") {
            if (auto v = leadingNumber(line.substr(12))) io.writeBytes = *v, haveWrite = true;
        }
        return true;
    });
    if (!haveRead || !haveWrite) return std::nullopt;
    return io;
}

std::optional<BlockCounters> parseDiskstats(std::string_view text,
                                            const std::function<bool(std::string_view)>& isWholeDisk) {
    BlockCounters sum;
    bool any = false;
    forEachLine(text, [&](std::string_view line) {
        nextField(line);  // major
        nextField(line);  // minor
        const std::string_view name = nextField(line);
        if (name.empty() || !isWholeDisk(name)) return true;
        std::optional<std::uint64_t> v[7];
        for (auto& f : v) f = fieldNumber(nextField(line));
        // reads, reads merged, sectors read, ms reading, writes, writes merged, sectors written
        if (!v[2] || !v[6]) return true;
        const char* what = "disk counter overflow";
        sum.bytesRead = kestrow::checkedAdd(sum.bytesRead, kestrow::checkedMultiply(*v[2], 512, what), what);
        sum.bytesWritten = kestrow::checkedAdd(sum.bytesWritten, kestrow::checkedMultiply(*v[6], 512, what), what);
        any = true;
        return true;
    });
    if (!any) return std::nullopt;
    return sum;
}

std::optional<StallAverages> parsePressure(std::string_view text) {
    std::optional<double> some, full;
    forEachLine(text, [&](std::string_view line) {
        const bool isSome = line.substr(0, 5) == "some ";
        const bool isFull = line.substr(0, 5) == "full ";
        if (!isSome && !isFull) return true;
        const std::size_t at = line.find("avg10=");
        if (at == std::string_view::npos) return true;
        const auto value = leadingDecimal(line.substr(at + 6));
        if (!value) return true;
        (isSome ? some : full) = *value;
        return true;
    });
    if (!some) return std::nullopt;
    return StallAverages{*some, full.value_or(0)};
}

std::optional<std::uint64_t> parseZramMemUsed(std::string_view text) {
    nextField(text);
    nextField(text);
    return fieldNumber(nextField(text));
}

std::uint64_t startMicros(std::uint64_t bootTime, std::uint64_t startTicks, std::uint64_t ticksPerSecond) {
    if (ticksPerSecond == 0) kestrow::fatalError("zero clock ticks per second");
    const char* what = "start time overflow";
    const std::uint64_t boot = kestrow::checkedMultiply(bootTime, 1'000'000, what);
    const std::uint64_t whole = kestrow::checkedMultiply(startTicks / ticksPerSecond, 1'000'000, what);
    const std::uint64_t part = (startTicks % ticksPerSecond) * 1'000'000 / ticksPerSecond;
    return kestrow::checkedAdd(boot, kestrow::checkedAdd(whole, part, what), what);
}

}  // namespace brimlet::proctext
