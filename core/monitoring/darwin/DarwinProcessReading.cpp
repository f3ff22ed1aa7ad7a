// Processes on macOS, from libproc and sysctl. Compiled only on Apple platforms.
#include <libproc.h>
#include <mach/mach_time.h>
#include <sys/proc_info.h>
#include <sys/resource.h>
#include <sys/sysctl.h>
#include <time.h>

#include <cstring>
#include <limits>

#include "../ProcessReader.hpp"
#include "base/Checked.hpp"
#include "base/Json.hpp"

namespace brimlet {

namespace {

std::string boundedText(const char* bytes, std::size_t capacity) {
    return kestrow::repairUtf8(std::string_view(bytes, ::strnlen(bytes, capacity)));
}

class DarwinProcessReading final : public ProcessReading {
public:
    std::vector<std::int32_t> allPIDs() override {
        const int count = ::proc_listallpids(nullptr, 0);
        if (count < 1) return {};
        // Slack for processes started between the two calls.
        std::vector<pid_t> buffer(static_cast<std::size_t>(count) + 64, 0);
        const int returned =
            ::proc_listallpids(buffer.data(), static_cast<int>(buffer.size() * sizeof(pid_t)));
        if (returned < 1) return {};
        std::vector<std::int32_t> pids;
        pids.reserve(static_cast<std::size_t>(returned));
        for (int i = 0; i < returned && static_cast<std::size_t>(i) < buffer.size(); ++i)
            if (buffer[static_cast<std::size_t>(i)] >= 1) pids.push_back(buffer[static_cast<std::size_t>(i)]);
        return pids;
    }

    std::optional<ProcessUsage> usage(std::int32_t pid) override {
        rusage_info_v4 info{};
        if (::proc_pid_rusage(pid, RUSAGE_INFO_V4, reinterpret_cast<rusage_info_t*>(&info)) != 0)
            return std::nullopt;
        ProcessUsage usage;
        usage.footprint = info.ri_phys_footprint;
        usage.cpuTicks = info.ri_user_time + info.ri_system_time;
        usage.diskRead = info.ri_diskio_bytesread;
        usage.diskWritten = info.ri_diskio_byteswritten;
        return usage;
    }

    std::optional<ProcessBSDInfo> bsdInfo(std::int32_t pid) override {
        proc_bsdinfo info{};
        const int size = ::proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, sizeof info);
        if (size != static_cast<int>(sizeof info)) return std::nullopt;
        if (info.pbi_ppid > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max()))
            kestrow::fatalError("parent process id beyond 32 bits");
        ProcessBSDInfo result;
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
        int argmax = 0;
        size_t size = sizeof argmax;
        int argmaxName[] = {CTL_KERN, KERN_ARGMAX};
        if (::sysctl(argmaxName, 2, &argmax, &size, nullptr, 0) != 0 || argmax < 1) return std::nullopt;
        std::string buffer(static_cast<std::size_t>(argmax), '\0');
        size = buffer.size();
        int name[] = {CTL_KERN, KERN_PROCARGS2, pid};
        if (::sysctl(name, 3, buffer.data(), &size, nullptr, 0) != 0 || size < 5) return std::nullopt;
        return ProcessReader::parseProcArgs(std::string_view(buffer.data(), size));
    }

    std::optional<std::string> currentDirectory(std::int32_t pid) override {
        proc_vnodepathinfo info{};
        const int size = ::proc_pidinfo(pid, PROC_PIDVNODEPATHINFO, 0, &info, sizeof info);
        if (size != static_cast<int>(sizeof info)) return std::nullopt;
        return boundedText(info.pvi_cdir.vip_path, sizeof info.pvi_cdir.vip_path);
    }

    std::uint64_t uptimeNanoseconds() override { return ::clock_gettime_nsec_np(CLOCK_UPTIME_RAW); }

    MachClock clock() override { return MachClock::current(); }
};

}  // namespace

MachClock MachClock::current() {
    static const MachClock clock = [] {
        mach_timebase_info_data_t base{};
        ::mach_timebase_info(&base);
        return MachClock{base.numer, base.denom};
    }();
    return clock;
}

ProcessReading& liveProcessReading() {
    static DarwinProcessReading reader;
    return reader;
}

}  // namespace brimlet
