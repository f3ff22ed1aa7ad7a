// Machine-wide figures on macOS: Mach host statistics, sysctl, the I/O Kit registry and statfs.
// Compiled only on Apple platforms.
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <mach/mach.h>
#include <sys/mount.h>
#include <sys/sysctl.h>
#include <time.h>

#include "../SystemSampler.hpp"

namespace brimlet {

// The system's thermal state, read through Foundation (DarwinThermal.mm).
std::int64_t darwinThermalState();

namespace {

template <typename T>
std::optional<T> sysctlValue(const char* name) {
    T value{};
    size_t size = sizeof value;
    if (::sysctlbyname(name, &value, &size, nullptr, 0) != 0 || size != sizeof value) return std::nullopt;
    return value;
}

std::optional<double> numberOf(CFTypeRef value) {
    if (!value || CFGetTypeID(value) != CFNumberGetTypeID()) return std::nullopt;
    double result = 0;
    if (!CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberDoubleType, &result)) return std::nullopt;
    return result;
}

std::uint64_t unsignedOf(CFTypeRef value) {
    if (!value || CFGetTypeID(value) != CFNumberGetTypeID()) return 0;
    std::int64_t result = 0;
    if (!CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &result)) return 0;
    return static_cast<std::uint64_t>(result);
}

// Calls visit with the named dictionary property of every service of a class; releases everything.
template <typename F>
bool forEachServiceDictionary(const char* serviceClass, CFStringRef property, F&& visit) {
    io_iterator_t iterator = IO_OBJECT_NULL;
    // IOServiceGetMatchingServices consumes the matching dictionary.
    if (IOServiceGetMatchingServices(MACH_PORT_NULL, IOServiceMatching(serviceClass), &iterator) != KERN_SUCCESS)
        return false;
    for (io_object_t service; (service = IOIteratorNext(iterator)) != IO_OBJECT_NULL;) {
        CFTypeRef value = IORegistryEntryCreateCFProperty(service, property, kCFAllocatorDefault, 0);
        if (value) {
            if (CFGetTypeID(value) == CFDictionaryGetTypeID()) visit(static_cast<CFDictionaryRef>(value));
            CFRelease(value);
        }
        IOObjectRelease(service);
    }
    IOObjectRelease(iterator);
    return true;
}

class DarwinSystemReading final : public SystemReading {
public:
    DarwinSystemReading() : host_(mach_host_self()) {}

    std::optional<MemoryCounters> memory() override {
        vm_statistics64_data_t vm{};
        mach_msg_type_number_t count = HOST_VM_INFO64_COUNT;
        if (host_statistics64(host_, HOST_VM_INFO64, reinterpret_cast<host_info64_t>(&vm), &count) != KERN_SUCCESS)
            return std::nullopt;
        vm_size_t pageSize = 0;
        if (host_page_size(host_, &pageSize) != KERN_SUCCESS) return std::nullopt;
        return MemoryCounters(VMPageCounts{pageSize, vm.internal_page_count, vm.purgeable_count, vm.wire_count,
                                           vm.compressor_page_count});
    }

    std::optional<std::uint64_t> memoryTotal() override { return sysctlValue<std::uint64_t>("hw.memsize"); }

    PressureReading pressure() override {
        if (auto level = sysctlValue<std::int32_t>("kern.memorystatus_vm_pressure_level")) return *level;
        return std::monostate{};
    }

    std::optional<SwapCounters> swap() override {
        auto usage = sysctlValue<xsw_usage>("vm.swapusage");
        if (!usage) return std::nullopt;
        return SwapCounters{usage->xsu_total, usage->xsu_avail, usage->xsu_used};
    }

    std::optional<CPUTicks> cpuTicks() override {
        host_cpu_load_info_data_t load{};
        mach_msg_type_number_t count = HOST_CPU_LOAD_INFO_COUNT;
        if (host_statistics(host_, HOST_CPU_LOAD_INFO, reinterpret_cast<host_info_t>(&load), &count) != KERN_SUCCESS)
            return std::nullopt;
        CPUTicks ticks;
        ticks.user = load.cpu_ticks[CPU_STATE_USER];
        ticks.system = load.cpu_ticks[CPU_STATE_SYSTEM];
        ticks.idle = load.cpu_ticks[CPU_STATE_IDLE];
        ticks.nice = load.cpu_ticks[CPU_STATE_NICE];
        return ticks;
    }

    ThermalReading thermal() override { return darwinThermalState(); }

    std::vector<double> gpuUtilizations() override {
        std::vector<double> values;
        forEachServiceDictionary("IOAccelerator", CFSTR("PerformanceStatistics"), [&](CFDictionaryRef stats) {
            if (auto v = numberOf(CFDictionaryGetValue(stats, CFSTR("Device Utilization %")))) values.push_back(*v);
        });
        return values;
    }

    std::optional<BlockCounters> blockCounters() override {
        BlockCounters sum;
        bool answered = false;
        const bool matched =
            forEachServiceDictionary("IOBlockStorageDriver", CFSTR("Statistics"), [&](CFDictionaryRef stats) {
                answered = true;
                sum.bytesRead += unsignedOf(CFDictionaryGetValue(stats, CFSTR("Bytes (Read)")));
                sum.bytesWritten += unsignedOf(CFDictionaryGetValue(stats, CFSTR("Bytes (Write)")));
            });
        if (!matched || !answered) return std::nullopt;
        return sum;
    }

    std::optional<VolumeBlocks> volume(const std::string& path) override { return DiskSpace::readBlocks(path); }

    std::chrono::nanoseconds uptime() override {
        return std::chrono::nanoseconds(
            static_cast<std::chrono::nanoseconds::rep>(::clock_gettime_nsec_np(CLOCK_UPTIME_RAW)));
    }

private:
    host_t host_;
};

}  // namespace

SystemReading& liveSystemReading() {
    static DarwinSystemReading reader;
    return reader;
}

}  // namespace brimlet
