// Processes on Linux, from /proc. Per process and sample: stat, status and io; the executable link
// and the command line only when a process is first seen (the sampler caches them).
#include <dirent.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <limits>

#include "../ProcText.hpp"
#include "../ProcessReader.hpp"
#include "ProcFiles.hpp"
#include "base/Checked.hpp"
#include "base/Json.hpp"

namespace brimlet {

namespace {

std::uint64_t ticksPerSecond() {
    const long hz = ::sysconf(_SC_CLK_TCK);
    return hz > 0 ? static_cast<std::uint64_t>(hz) : 100;
}

class LinuxProcessReading final : public ProcessReading {
public:
    LinuxProcessReading() : hz_(ticksPerSecond()) {
        std::string stat;
        if (linuxfs::readFile("/proc/stat", stat)) bootTime_ = proctext::parseBootTime(stat).value_or(0);
    }

    std::vector<std::int32_t> allPIDs() override {
        std::vector<std::int32_t> pids;
        DIR* dir = ::opendir("/proc");
        if (!dir) return pids;
        while (const dirent* entry = ::readdir(dir)) {
            const char* name = entry->d_name;
            std::int32_t pid = 0;
            const char* end = name + std::char_traits<char>::length(name);
            const auto r = std::from_chars(name, end, pid);
            if (r.ec == std::errc() && r.ptr == end && pid >= 1) pids.push_back(pid);
        }
        ::closedir(dir);
        return pids;
    }

    std::optional<ProcessUsage> usage(std::int32_t pid) override { return read(pid).usage; }
    std::optional<ProcessBSDInfo> bsdInfo(std::int32_t pid) override { return read(pid).info; }

    Record read(std::int32_t pid) override {
        // Buffers are reused by each thread so that a sweep allocates nothing per process.
        thread_local std::string buffer;
        thread_local std::string statText;
        Record record;
        char path[64];
        std::snprintf(path, sizeof path, "/proc/%d/stat", pid);
        if (!linuxfs::readFile(path, statText)) return record;
        auto stat = proctext::parsePidStat(statText);
        if (!stat) return record;
        std::snprintf(path, sizeof path, "/proc/%d/status", pid);
        if (!linuxfs::readFile(path, buffer)) return record;
        const proctext::PidStatus status = proctext::parsePidStatus(buffer);
        if (!status.uid) return record;

        ProcessUsage usage;
        usage.footprint = kestrow::checkedAdd(status.rssAnon, status.vmSwap, "footprint overflow");
        usage.cpuTicks = stat->utime + stat->stime;
        std::snprintf(path, sizeof path, "/proc/%d/io", pid);
        // Another user's io file cannot be opened without ptrace rights: its rates stay unknown.
        std::optional<proctext::PidIO> io;
        if (linuxfs::readFile(path, buffer)) io = proctext::parsePidIO(buffer);
        usage.diskCountersReadable = io.has_value();
        if (io) {
            usage.diskRead = io->readBytes;
            usage.diskWritten = io->writeBytes;
        }
        record.usage = usage;

        if (stat->ppid > std::numeric_limits<std::int32_t>::max())
            kestrow::fatalError("parent process id beyond 32 bits");
        ProcessBSDInfo info;
        info.ppid = static_cast<std::int32_t>(stat->ppid);
        info.uid = *status.uid;
        info.startTime = proctext::startMicros(bootTime_, stat->startTicks, hz_);
        info.name = kestrow::repairUtf8(stat->comm);
        record.info = std::move(info);
        return record;
    }

    std::optional<std::string> executablePath(std::int32_t pid) override {
        auto target = linuxfs::readLink("/proc/" + std::to_string(pid) + "/exe");
        if (!target) return std::nullopt;
        return kestrow::repairUtf8(*target);
    }

    std::optional<std::vector<std::string>> arguments(std::int32_t pid) override {
        auto text = linuxfs::readFile("/proc/" + std::to_string(pid) + "/cmdline");
        if (!text) return std::nullopt;
        std::vector<std::string> args;
        std::string_view rest(*text);
        while (!rest.empty()) {
            const std::size_t end = rest.find('\0');
            args.push_back(kestrow::repairUtf8(rest.substr(0, end)));
            if (end == std::string_view::npos) break;
            rest.remove_prefix(end + 1);
        }
        return args;
    }

    std::optional<std::string> currentDirectory(std::int32_t pid) override {
        auto target = linuxfs::readLink("/proc/" + std::to_string(pid) + "/cwd");
        if (!target) return std::nullopt;
        return kestrow::repairUtf8(*target);
    }

    std::uint64_t uptimeNanoseconds() override { return linuxfs::monotonicNanoseconds(); }
    MachClock clock() override { return MachClock::current(); }

private:
    std::uint64_t hz_;
    std::uint64_t bootTime_ = 0;
};

}  // namespace

MachClock MachClock::current() {
    // Linux reports CPU time in clock ticks of 1/_SC_CLK_TCK seconds.
    static const MachClock clock{1'000'000'000ULL, ticksPerSecond()};
    return clock;
}

ProcessReading& liveProcessReading() {
    static LinuxProcessReading reader;
    return reader;
}

}  // namespace brimlet
