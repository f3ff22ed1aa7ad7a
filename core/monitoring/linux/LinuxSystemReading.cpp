// Machine-wide figures on Linux: /proc/meminfo, /proc/stat, /proc/pressure, /proc/diskstats,
// /sys/class/thermal, the GPU drivers' own counters, and statvfs.
#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <mutex>

#include "../ProcText.hpp"
#include "../SystemSampler.hpp"
#include "ProcFiles.hpp"

namespace brimlet {

namespace {

std::vector<std::string> directoryEntries(const char* path, std::string_view prefix) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(path);
    if (!dir) return names;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view name(entry->d_name);
        if (name.substr(0, prefix.size()) == prefix && name != "." && name != "..") names.emplace_back(name);
    }
    ::closedir(dir);
    return names;
}

std::optional<std::int64_t> readInteger(const std::string& path) {
    auto text = linuxfs::readFile(path);
    if (!text) return std::nullopt;
    std::string_view v(*text);
    bool negative = !v.empty() && v.front() == '-';
    if (negative) v.remove_prefix(1);
    auto n = proctext::leadingNumber(v);
    if (!n) return std::nullopt;
    return negative ? -static_cast<std::int64_t>(*n) : static_cast<std::int64_t>(*n);
}

// NVIDIA's management library, loaded when present; nothing is linked against it.
class NVML {
public:
    std::vector<double> utilizations() {
        std::lock_guard lock(mutex_);
        std::vector<double> values;
        if (!load()) return values;
        unsigned count = 0;
        if (getCount_(&count) != 0) return values;
        for (unsigned index = 0; index < count; ++index) {
            void* device = nullptr;
            Utilization rates{};
            if (getHandle_(index, &device) == 0 && getUtilization_(device, &rates) == 0)
                values.push_back(static_cast<double>(rates.gpu));
        }
        return values;
    }

private:
    struct Utilization {
        unsigned gpu;
        unsigned memory;
    };
    using InitFn = int (*)();
    using CountFn = int (*)(unsigned*);
    using HandleFn = int (*)(unsigned, void**);
    using UtilizationFn = int (*)(void*, Utilization*);

    bool load() {
        if (tried_) return ready_;
        tried_ = true;
        void* library = ::dlopen("libnvidia-ml.so.1", RTLD_NOW | RTLD_LOCAL);
        if (!library) return false;
        auto init = reinterpret_cast<InitFn>(::dlsym(library, "nvmlInit_v2"));
        getCount_ = reinterpret_cast<CountFn>(::dlsym(library, "nvmlDeviceGetCount_v2"));
        getHandle_ = reinterpret_cast<HandleFn>(::dlsym(library, "nvmlDeviceGetHandleByIndex_v2"));
        getUtilization_ = reinterpret_cast<UtilizationFn>(::dlsym(library, "nvmlDeviceGetUtilizationRates"));
        ready_ = init && getCount_ && getHandle_ && getUtilization_ && init() == 0;
        return ready_;
    }

    std::mutex mutex_;
    bool tried_ = false;
    bool ready_ = false;
    CountFn getCount_ = nullptr;
    HandleFn getHandle_ = nullptr;
    UtilizationFn getUtilization_ = nullptr;
};

class LinuxSystemReading final : public SystemReading {
public:
    std::optional<MemoryCounters> memory() override {
        auto info = meminfo();
        if (!info) return std::nullopt;
        MeminfoFigures figures = info->memory;
        for (const std::string& device : directoryEntries("/sys/block", "zram")) {
            if (auto text = linuxfs::readFile("/sys/block/" + device + "/mm_stat"))
                figures.zramUsed += proctext::parseZramMemUsed(*text).value_or(0);
        }
        return MemoryCounters(figures);
    }

    std::optional<std::uint64_t> memoryTotal() override {
        auto info = meminfo();
        if (!info) return std::nullopt;
        return info->memory.memTotal;
    }

    PressureReading pressure() override {
        auto text = linuxfs::readFile("/proc/pressure/memory");
        if (!text) return std::monostate{};
        auto stall = proctext::parsePressure(*text);
        if (!stall) return std::monostate{};
        return *stall;
    }

    std::optional<SwapCounters> swap() override {
        auto info = meminfo();
        if (!info) return std::nullopt;
        return SwapCounters{info->swapTotal, info->swapFree, std::nullopt};
    }

    std::optional<CPUTicks> cpuTicks() override {
        std::string text;
        if (!linuxfs::readFile("/proc/stat", text)) return std::nullopt;
        return proctext::parseCPULine(text);
    }

    ThermalReading thermal() override {
        std::vector<ThermalZone> zones;
        for (const std::string& zoneName : directoryEntries("/sys/class/thermal", "thermal_zone")) {
            const std::string base = "/sys/class/thermal/" + zoneName + "/";
            auto temperature = readInteger(base + "temp");
            if (!temperature) continue;
            ThermalZone zone;
            zone.temperature = *temperature;
            for (int trip = 0;; ++trip) {
                const std::string prefix = base + "trip_point_" + std::to_string(trip) + "_";
                auto tripTemperature = readInteger(prefix + "temp");
                auto type = linuxfs::readFile(prefix + "type");
                if (!tripTemperature || !type) break;
                while (!type->empty() && (type->back() == '\n' || type->back() == ' ')) type->pop_back();
                zone.trips.push_back({*tripTemperature, *type});
            }
            zones.push_back(std::move(zone));
        }
        return zones;
    }

    std::vector<double> gpuUtilizations() override {
        std::vector<double> values;
        for (const std::string& card : directoryEntries("/sys/class/drm", "card")) {
            if (card.find('-') != std::string::npos) continue;  // connectors such as card0-HDMI-A-1
            if (auto busy = readInteger("/sys/class/drm/" + card + "/device/gpu_busy_percent"))
                values.push_back(static_cast<double>(*busy));
        }
        for (double v : nvml_.utilizations()) values.push_back(v);
        return values;
    }

    std::optional<BlockCounters> blockCounters() override {
        std::string text;
        if (!linuxfs::readFile("/proc/diskstats", text)) return std::nullopt;
        // Whole physical disks have a device link in /sys/block; partitions are not listed there
        // at all, and loop, zram and device-mapper nodes have no device behind them.
        return proctext::parseDiskstats(text, [](std::string_view name) {
            struct stat st{};
            const std::string link = "/sys/block/" + std::string(name) + "/device";
            return ::stat(link.c_str(), &st) == 0;
        });
    }

    std::optional<VolumeBlocks> volume(const std::string& path) override {
        struct statvfs st{};
        if (::statvfs(path.c_str(), &st) != 0) return std::nullopt;
        return VolumeBlocks{st.f_bavail, st.f_blocks, st.f_frsize};
    }

    std::uint64_t uptimeNanoseconds() override { return linuxfs::monotonicNanoseconds(); }

private:
    std::optional<proctext::Meminfo> meminfo() {
        std::string text;
        if (!linuxfs::readFile("/proc/meminfo", text)) return std::nullopt;
        return proctext::parseMeminfo(text);
    }

    NVML nvml_;
};

}  // namespace

SystemReading& liveSystemReading() {
    static LinuxSystemReading reader;
    return reader;
}

}  // namespace brimlet
