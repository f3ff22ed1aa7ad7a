// Machine-wide figures on Linux: /proc/meminfo, /proc/stat, /proc/pressure, /proc/diskstats,
// /sys/class/thermal, the GPU drivers' own counters, and statvfs.
#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <mutex>

#include "LinuxReaders.hpp"
#include "base/Files.hpp"

namespace brimlet {

namespace {

std::vector<std::string> directoryEntries(const std::string& path, std::string_view prefix) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(path.c_str());
    if (!dir) return names;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view name(entry->d_name);
        if (name.substr(0, prefix.size()) == prefix && name != "." && name != "..") names.emplace_back(name);
    }
    ::closedir(dir);
    return names;
}

std::optional<std::int64_t> parseInteger(std::string_view v) {
    bool negative = !v.empty() && v.front() == '-';
    if (negative) v.remove_prefix(1);
    auto n = proctext::leadingNumber(v);
    if (!n) return std::nullopt;
    return negative ? -static_cast<std::int64_t>(*n) : static_cast<std::int64_t>(*n);
}

std::optional<std::int64_t> readInteger(const std::string& path) {
    auto text = linuxfs::readFile(path);
    if (!text) return std::nullopt;
    return parseInteger(*text);
}

std::optional<std::int64_t> readInteger(linuxfs::KeptFile& file) {
    auto text = file.read();
    if (!text) return std::nullopt;
    return parseInteger(*text);
}

}  // namespace

// NVIDIA's management library, loaded when present; nothing is linked against it.
class LinuxSystemReading::NVML {
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

LinuxSystemReading::LinuxSystemReading(std::string procRoot, std::string sysRoot, bool nvidiaLibrary)
    : proc_(std::move(procRoot)),
      sys_(std::move(sysRoot)),
      nvml_(nvidiaLibrary ? std::make_unique<NVML>() : nullptr),
      meminfoFile_(proc_ + "/meminfo"),
      statFile_(proc_ + "/stat"),
      pressureFile_(proc_ + "/pressure/memory"),
      diskstatsFile_(proc_ + "/diskstats") {}

LinuxSystemReading::~LinuxSystemReading() = default;

bool LinuxSystemReading::due(std::optional<std::chrono::nanoseconds>& listedAt) {
    const std::chrono::nanoseconds now = linuxfs::uptime();
    if (listedAt && now - *listedAt < relistAfter) return false;
    listedAt = now;
    return true;
}

std::optional<proctext::Meminfo> LinuxSystemReading::readMeminfo() {
    std::lock_guard lock(filesMutex_);
    auto text = meminfoFile_.read();
    if (!text) return std::nullopt;
    return proctext::parseMeminfo(*text);
}

std::optional<proctext::Meminfo> LinuxSystemReading::meminfo() {
    {
        std::lock_guard lock(mutex_);
        if (sampled_) return meminfo_;
    }
    return readMeminfo();
}

void LinuxSystemReading::beginSample() {
    // Memory, its total and swap come from the same file; one reading serves all three, and they
    // then agree with one another.
    std::optional<proctext::Meminfo> info = readMeminfo();
    std::lock_guard lock(mutex_);
    meminfo_ = info;
    sampled_ = true;
}

std::optional<MemoryCounters> LinuxSystemReading::memory() {
    auto info = meminfo();
    if (!info) return std::nullopt;
    MeminfoFigures figures = info->memory;
    std::lock_guard lock(filesMutex_);
    if (due(zramListedAt_)) {
        zramFiles_.clear();
        for (const std::string& device : directoryEntries(sys_ + "/block", "zram"))
            zramFiles_.emplace_back(sys_ + "/block/" + device + "/mm_stat");
    }
    for (linuxfs::KeptFile& file : zramFiles_) {
        if (auto text = file.read()) figures.zramUsed += proctext::parseZramMemUsed(*text).value_or(0);
    }
    return MemoryCounters(figures);
}

std::optional<std::uint64_t> LinuxSystemReading::memoryTotal() {
    auto info = meminfo();
    if (!info) return std::nullopt;
    return info->memory.memTotal;
}

PressureReading LinuxSystemReading::pressure() {
    std::lock_guard lock(filesMutex_);
    auto text = pressureFile_.read();
    if (!text) return std::monostate{};
    auto stall = proctext::parsePressure(*text);
    if (!stall) return std::monostate{};
    return *stall;
}

std::optional<SwapCounters> LinuxSystemReading::swap() {
    auto info = meminfo();
    if (!info) return std::nullopt;
    return SwapCounters{info->swapTotal, info->swapFree, std::nullopt};
}

std::optional<CPUTicks> LinuxSystemReading::cpuTicks() {
    std::lock_guard lock(filesMutex_);
    auto text = statFile_.read();
    if (!text) return std::nullopt;
    return proctext::parseCPULine(*text);
}

ThermalReading LinuxSystemReading::thermal() {
    std::lock_guard lock(filesMutex_);
    if (due(zonesListedAt_)) {
        // Trip points are the firmware's settings: read with the listing, not every sample.
        zones_.clear();
        const std::string thermal = sys_ + "/class/thermal/";
        for (const std::string& zoneName : directoryEntries(thermal, "thermal_zone")) {
            const std::string base = thermal + zoneName + "/";
            Zone zone{linuxfs::KeptFile(base + "temp"), {}};
            for (int trip = 0;; ++trip) {
                const std::string prefix = base + "trip_point_" + std::to_string(trip) + "_";
                auto tripTemperature = readInteger(prefix + "temp");
                auto type = linuxfs::readFile(prefix + "type");
                if (!tripTemperature || !type) break;
                while (!type->empty() && (type->back() == '\n' || type->back() == ' ')) type->pop_back();
                zone.trips.push_back({*tripTemperature, *type});
            }
            zones_.push_back(std::move(zone));
        }
    }
    std::vector<ThermalZone> zones;
    for (Zone& zone : zones_) {
        auto temperature = readInteger(zone.temperature);
        if (!temperature) continue;
        zones.push_back(ThermalZone{*temperature, zone.trips});
    }
    return zones;
}

std::vector<double> LinuxSystemReading::gpuUtilizations() {
    std::vector<double> values;
    {
        std::lock_guard lock(filesMutex_);
        if (due(gpusListedAt_)) {
            gpuBusyFiles_.clear();
            const std::string drm = sys_ + "/class/drm/";
            for (const std::string& card : directoryEntries(drm, "card")) {
                if (card.find('-') != std::string::npos) continue;  // connectors such as card0-HDMI-A-1
                gpuBusyFiles_.emplace_back(drm + card + "/device/gpu_busy_percent");
            }
        }
        for (linuxfs::KeptFile& file : gpuBusyFiles_)
            if (auto busy = readInteger(file)) values.push_back(static_cast<double>(*busy));
    }
    if (nvml_)
        for (double v : nvml_->utilizations()) values.push_back(v);
    return values;
}

std::optional<BlockCounters> LinuxSystemReading::blockCounters() {
    std::lock_guard lock(filesMutex_);
    if (due(disksListedAt_)) {
        // Whole physical disks have a device link in /sys/block; partitions are not listed there
        // at all, and loop, zram and device-mapper nodes have no device behind them.
        wholeDisks_.clear();
        for (const std::string& name : directoryEntries(sys_ + "/block", "")) {
            struct stat st {};
            if (::stat((sys_ + "/block/" + name + "/device").c_str(), &st) == 0) wholeDisks_.push_back(name);
        }
    }
    auto text = diskstatsFile_.read();
    if (!text) return std::nullopt;
    return proctext::parseDiskstats(*text, [this](std::string_view name) {
        return std::find(wholeDisks_.begin(), wholeDisks_.end(), name) != wholeDisks_.end();
    });
}

std::optional<VolumeBlocks> LinuxSystemReading::volume(const std::string& path) { return DiskSpace::readBlocks(path); }

std::chrono::nanoseconds LinuxSystemReading::uptime() { return linuxfs::uptime(); }

SystemReading& liveSystemReading() {
    static LinuxSystemReading reader;
    return reader;
}

}  // namespace brimlet
