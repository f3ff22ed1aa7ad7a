// Processes on macOS, from libproc and sysctl. Compiled only on Apple platforms.
#include <libproc.h>
#include <mach/kern_return.h>
#include <mach/mach_time.h>
#include <sys/proc_info.h>
#include <sys/resource.h>
#include <sys/sysctl.h>
#include <time.h>

#include <chrono>
#include <cstring>
#include <limits>
#include <optional>

#include "../ArgumentRecordBuffer.hpp"
#include "../ProcessReader.hpp"
#include "../TickFrequency.hpp"
#include "base/Checked.hpp"
#include "base/Json.hpp"

namespace brimlet {

namespace {

std::string boundedText(const char* bytes, std::size_t capacity) {
    return kestrow::repairUtf8(std::string_view(bytes, ::strnlen(bytes, capacity)));
}

// The size of the largest argument area; fixed while the system runs, so read once.
std::optional<std::size_t> argumentAreaSize() {
    static const std::optional<std::size_t> size = []() -> std::optional<std::size_t> {
        int argmax = 0;
        size_t length = sizeof argmax;
        int name[] = {CTL_KERN, KERN_ARGMAX};
        if (::sysctl(name, 2, &argmax, &length, nullptr, 0) != 0 || argmax < 1) return std::nullopt;
        return static_cast<std::size_t>(argmax);
    }();
    return size;
}

// hw.tbfrequency is 64 bits wide on current systems; older ones answered with 32.
std::optional<std::uint64_t> timebaseFrequency() {
    unsigned char bytes[sizeof(std::uint64_t)] = {};
    size_t length = sizeof bytes;
    if (::sysctlbyname("hw.tbfrequency", bytes, &length, nullptr, 0) != 0) return std::nullopt;
    if (length == sizeof(std::uint64_t)) {
        std::uint64_t value = 0;
        std::memcpy(&value, bytes, sizeof value);
        return value;
    }
    if (length == sizeof(std::uint32_t)) {
        std::uint32_t value = 0;
        std::memcpy(&value, bytes, sizeof value);
        return value;
    }
    return std::nullopt;
}

class DarwinProcessReading final : public ProcessReading {
public:
    std::vector<std::int32_t> allPIDs() override {
        const int count = ::proc_listallpids(nullptr, 0);
        if (count < 1) return {};
        // Slack for processes started between the two calls.
        std::vector<pid_t> buffer(static_cast<std::size_t>(count) + 64, 0);
        const int returned = ::proc_listallpids(buffer.data(), static_cast<int>(buffer.size() * sizeof(pid_t)));
        if (returned < 1) return {};
        std::vector<std::int32_t> pids;
        pids.reserve(static_cast<std::size_t>(returned));
        for (int i = 0; i < returned && static_cast<std::size_t>(i) < buffer.size(); ++i)
            if (buffer[static_cast<std::size_t>(i)] >= 1) pids.push_back(buffer[static_cast<std::size_t>(i)]);
        return pids;
    }

    std::optional<ProcessUsage> usage(std::int32_t pid) override {
        rusage_info_v4 info{};
        if (::proc_pid_rusage(pid, RUSAGE_INFO_V4, reinterpret_cast<rusage_info_t*>(&info)) != 0) return std::nullopt;
        ProcessUsage usage;
        usage.footprint = info.ri_phys_footprint;
        usage.cpuTicks = info.ri_user_time + info.ri_system_time;
        usage.diskRead = info.ri_diskio_bytesread;
        usage.diskWritten = info.ri_diskio_byteswritten;
        return usage;
    }

    std::optional<ProcessIdentity> identity(std::int32_t pid) override {
        proc_bsdinfo info{};
        const int size = ::proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, sizeof info);
        if (size != static_cast<int>(sizeof info)) return std::nullopt;
        if (info.pbi_ppid > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max()))
            kestrow::fatalError("parent process id beyond 32 bits");
        ProcessIdentity result;
        result.ppid = static_cast<std::int32_t>(info.pbi_ppid);
        result.uid = info.pbi_uid;
        result.startTime = info.pbi_start_tvsec * 1'000'000ULL + info.pbi_start_tvusec;
        result.name = boundedText(info.pbi_name, sizeof info.pbi_name);
        if (result.name.empty()) result.name = boundedText(info.pbi_comm, sizeof info.pbi_comm);
        return result;
    }

    std::optional<std::string> executablePath(std::int32_t pid) override {
        char buffer[4096];
        const int length = ::proc_pidpath(pid, buffer, sizeof buffer);
        if (length < 1) return std::nullopt;
        return boundedText(buffer, static_cast<std::size_t>(length));
    }

    std::optional<std::vector<std::string>> arguments(std::int32_t pid) override {
        const std::optional<std::size_t> capacity = argumentAreaSize();
        if (!capacity) return std::nullopt;
        // One buffer per thread: reads on different threads never share it, and none allocates.
        thread_local ArgumentRecordBuffer buffer;
        return buffer.read(*capacity, [pid](char* bytes, std::size_t room) -> std::optional<std::size_t> {
            size_t size = room;
            int name[] = {CTL_KERN, KERN_PROCARGS2, pid};
            if (::sysctl(name, 3, bytes, &size, nullptr, 0) != 0) return std::nullopt;
            return static_cast<std::size_t>(size);
        });
    }

    std::optional<std::string> currentDirectory(std::int32_t pid) override {
        proc_vnodepathinfo info{};
        const int size = ::proc_pidinfo(pid, PROC_PIDVNODEPATHINFO, 0, &info, sizeof info);
        if (size != static_cast<int>(sizeof info)) return std::nullopt;
        return boundedText(info.pvi_cdir.vip_path, sizeof info.pvi_cdir.vip_path);
    }

    std::chrono::nanoseconds uptime() override {
        return std::chrono::nanoseconds(
            static_cast<std::chrono::nanoseconds::rep>(::clock_gettime_nsec_np(CLOCK_UPTIME_RAW)));
    }

    TickClock clock() override { return TickClock::current(); }
};

}  // namespace

TickClock TickClock::current() {
    static const TickClock clock = [] {
        if (const auto frequency = timebaseFrequency())
            if (const auto fromFrequency = tickClockForFrequency(*frequency)) return *fromFrequency;
        // Without the frequency, the time base as this process sees it: right for a native build,
        // which is the only kind this project produces (the architecture is pinned to arm64).
        mach_timebase_info_data_t base{};
        if (::mach_timebase_info(&base) != KERN_SUCCESS || base.denom == 0) return TickClock{1, 1};
        return TickClock{base.numer, base.denom};
    }();
    return clock;
}

ProcessReading& liveProcessReading() {
    static DarwinProcessReading reader;
    return reader;
}

}  // namespace brimlet
