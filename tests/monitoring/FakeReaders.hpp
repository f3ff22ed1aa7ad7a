// Scripted readers: tests set the counters a platform would report and drive the shared logic.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "core/monitoring/ProcessReader.hpp"
#include "core/monitoring/SystemSampler.hpp"

namespace brimlet::testing {

struct FakeProcess {
    std::optional<ProcessUsage> usage;
    std::optional<ProcessIdentity> info;
    std::optional<std::string> path;
    std::optional<std::vector<std::string>> args;
    std::optional<std::string> cwd;
};

class FakeProcessReading : public ProcessReading {
public:
    std::vector<std::int32_t> order;  // the kernel's listing order
    std::map<std::int32_t, FakeProcess> table;
    std::chrono::nanoseconds now = std::chrono::seconds(1);  // the uptime clock
    TickClock tickClock{1, 1};
    int pathReads = 0;
    int argumentReads = 0;
    int bsdReads = 0;

    FakeProcess& add(std::int32_t pid, std::uint64_t footprint, std::string name, std::int32_t ppid = 1,
                     std::uint64_t startTime = 1000) {
        order.push_back(pid);
        FakeProcess& p = table[pid];
        p.usage = ProcessUsage{footprint, 0, 0, 0, true};
        p.info = ProcessIdentity{ppid, 501, startTime, std::move(name)};
        return p;
    }

    std::vector<std::int32_t> allPIDs() override { return order; }
    std::optional<ProcessUsage> usage(std::int32_t pid) override {
        auto it = table.find(pid);
        return it == table.end() ? std::nullopt : it->second.usage;
    }
    std::optional<ProcessIdentity> identity(std::int32_t pid) override {
        ++bsdReads;
        auto it = table.find(pid);
        return it == table.end() ? std::nullopt : it->second.info;
    }
    std::optional<std::string> executablePath(std::int32_t pid) override {
        ++pathReads;
        auto it = table.find(pid);
        return it == table.end() ? std::nullopt : it->second.path;
    }
    std::optional<std::vector<std::string>> arguments(std::int32_t pid) override {
        ++argumentReads;
        auto it = table.find(pid);
        return it == table.end() ? std::nullopt : it->second.args;
    }
    std::optional<std::string> currentDirectory(std::int32_t pid) override {
        auto it = table.find(pid);
        return it == table.end() ? std::nullopt : it->second.cwd;
    }
    std::chrono::nanoseconds uptime() override { return now; }
    TickClock clock() override { return tickClock; }
};

class FakeSystemReading : public SystemReading {
public:
    std::optional<MemoryCounters> memoryCounters;
    std::optional<std::uint64_t> total;
    PressureReading pressureReading;
    std::optional<SwapCounters> swapCounters;
    std::optional<CPUTicks> ticks;
    ThermalReading thermalReading = std::int64_t{0};
    std::vector<double> gpus;
    std::optional<BlockCounters> disks;
    std::map<std::string, VolumeBlocks> volumes;
    std::chrono::nanoseconds now = std::chrono::seconds(1);  // the uptime clock
    int blockReads = 0;

    std::optional<MemoryCounters> memory() override { return memoryCounters; }
    std::optional<std::uint64_t> memoryTotal() override { return total; }
    PressureReading pressure() override { return pressureReading; }
    std::optional<SwapCounters> swap() override { return swapCounters; }
    std::optional<CPUTicks> cpuTicks() override { return ticks; }
    ThermalReading thermal() override { return thermalReading; }
    std::vector<double> gpuUtilizations() override { return gpus; }
    std::optional<BlockCounters> blockCounters() override {
        ++blockReads;
        return disks;
    }
    std::optional<VolumeBlocks> volume(const std::string& path) override {
        auto it = volumes.find(path);
        if (it == volumes.end()) return std::nullopt;
        return it->second;
    }
    std::chrono::nanoseconds uptime() override { return now; }
};

}  // namespace brimlet::testing
