#include "SystemSampler.hpp"

#include <algorithm>

#include "base/Checked.hpp"
#include "base/Files.hpp"
#include "base/Time.hpp"

namespace brimlet {

using kestrow::checkedAdd;
using kestrow::checkedMultiply;

namespace SystemFormulas {

MemoryFigures memory(const MemoryCounters& counters) {
    if (const auto* vm = std::get_if<VMPageCounts>(&counters)) {
        // Purgeable pages can be dropped at any moment, so they are not counted as used; more
        // purgeable than internal pages would be a race in the kernel's counts, never a negative.
        const std::uint64_t appPages = vm->internal - std::min(vm->internal, vm->purgeable);
        const char* what = "memory figure overflow";
        const std::uint64_t pages = checkedAdd(checkedAdd(appPages, vm->wired, what), vm->compressor, what);
        return {checkedMultiply(vm->pageSize, pages, what), checkedMultiply(vm->pageSize, vm->compressor, what),
                checkedMultiply(vm->pageSize, vm->wired, what)};
    }
    const auto& mi = std::get<MeminfoFigures>(counters);
    // "Used" is what `free` reports: everything the kernel could not hand out without reclaiming.
    // Linux has no single wired figure; memory that can never be paged out (unevictable pages,
    // unreclaimable slab, kernel stacks and page tables) is the nearest equivalent.
    const char* what = "memory figure overflow";
    MemoryFigures figures;
    figures.used = mi.memTotal - std::min(mi.memTotal, mi.memAvailable);
    figures.compressed = checkedAdd(mi.zswap, mi.zramUsed, what);
    figures.wired = checkedAdd(checkedAdd(mi.unevictable, mi.sUnreclaim, what),
                               checkedAdd(mi.kernelStack, mi.pageTables, what), what);
    return figures;
}

MemoryPressure pressure(const PressureReading& reading) {
    if (const auto* level = std::get_if<std::int32_t>(&reading)) return MemoryPressure::fromKernelLevel(*level);
    if (const auto* stall = std::get_if<StallAverages>(&reading)) {
        if (stall->full >= stallCriticalFull) return MemoryPressure::critical;
        if (stall->some >= stallWarningSome || stall->full >= stallWarningFull) return MemoryPressure::warning;
    }
    return MemoryPressure::normal;
}

std::uint64_t swapUsed(const SwapCounters& swap) {
    if (swap.used) return *swap.used;
    return swap.total - std::min(swap.total, swap.available);
}

ThermalLevel thermal(const ThermalReading& reading) {
    if (const auto* state = std::get_if<std::int64_t>(&reading)) return ThermalLevel::fromState(*state);
    // A zone past an active trip only spins a fan up; past a passive trip the kernel throttles;
    // hot and critical trips precede an emergency shutdown.
    ThermalLevel worst = ThermalLevel::nominal;
    for (const ThermalZone& zone : std::get<std::vector<ThermalZone>>(reading)) {
        for (const ThermalTrip& trip : zone.trips) {
            if (trip.temperature <= 0 || zone.temperature < trip.temperature) continue;
            ThermalLevel level = ThermalLevel::nominal;
            if (trip.type == "active") level = ThermalLevel::fair;
            else if (trip.type == "passive") level = ThermalLevel::serious;
            else if (trip.type == "hot" || trip.type == "critical") level = ThermalLevel::critical;
            if (level.value > worst.value) worst = level;
        }
    }
    return worst;
}

std::optional<double> gpu(const std::vector<double>& utilizations) {
    if (utilizations.empty()) return std::nullopt;
    return *std::max_element(utilizations.begin(), utilizations.end());
}

std::pair<std::uint64_t, std::uint64_t> busyAndTotal(const CPUTicks& t) {
    const std::uint64_t busy = t.user + t.nice + t.system + t.irq + t.softirq + t.steal;
    return {busy, busy + t.idle + t.iowait};
}

}  // namespace SystemFormulas

SystemSampler::SystemSampler(SystemReading& reader) : reader_(reader) {}

std::optional<double> SystemSampler::cpuLoad(std::optional<TickPair>& previous) {
    const auto ticks = reader_.cpuTicks();
    if (!ticks) return std::nullopt;
    const TickPair now = SystemFormulas::busyAndTotal(*ticks);
    const std::optional<TickPair> before = previous;
    previous = now;
    if (!before || now.second <= before->second) return std::nullopt;
    const double busy = static_cast<double>(now.first - before->first);
    return busy / static_cast<double>(now.second - before->second) * 100;
}

void SystemSampler::diskRates(SystemStats& stats) {
    const auto counters = reader_.blockCounters();
    if (!counters) return;
    const std::chrono::nanoseconds now = reader_.uptime();
    if (previousDisk_ && now > previousDisk_->time && counters->bytesRead >= previousDisk_->read &&
        counters->bytesWritten >= previousDisk_->written) {
        const double seconds = kestrow::Seconds(now - previousDisk_->time).count();
        stats.diskReadPerSecond = static_cast<double>(counters->bytesRead - previousDisk_->read) / seconds;
        stats.diskWritePerSecond = static_cast<double>(counters->bytesWritten - previousDisk_->written) / seconds;
    }
    previousDisk_ = DiskMark{counters->bytesRead, counters->bytesWritten, now};
}

std::pair<std::uint64_t, std::uint64_t> SystemSampler::dataVolume() {
    for (const std::string& path : DiskSpace::dataVolumeCandidates()) {
        if (auto blocks = reader_.volume(path)) return *DiskSpace::fromBlocks(*blocks);
    }
    return {0, 0};
}

SystemStats SystemSampler::sample() {
    SystemStats stats;
    reader_.beginSample();
    if (auto counters = reader_.memory()) {
        const MemoryFigures figures = SystemFormulas::memory(*counters);
        stats.memoryUsed = figures.used;
        stats.memoryCompressed = figures.compressed;
        stats.memoryWired = figures.wired;
    }
    std::tie(stats.diskFree, stats.diskTotal) = dataVolume();
    diskRates(stats);
    stats.memoryTotal = reader_.memoryTotal().value_or(0);
    stats.pressure = SystemFormulas::pressure(reader_.pressure());
    if (auto swap = reader_.swap()) stats.swapUsed = SystemFormulas::swapUsed(*swap);
    stats.cpuLoad = cpuLoad(previousCPUTicks_);
    stats.thermal = SystemFormulas::thermal(reader_.thermal());
    stats.gpuUtilization = SystemFormulas::gpu(reader_.gpuUtilizations());
    return stats;
}

SystemGlance SystemSampler::glance() {
    SystemGlance glance;
    reader_.beginSample();
    if (auto counters = reader_.memory()) glance.memoryUsed = SystemFormulas::memory(*counters).used;
    glance.memoryTotal = reader_.memoryTotal().value_or(0);
    glance.pressure = SystemFormulas::pressure(reader_.pressure());
    glance.cpuLoad = cpuLoad(previousGlanceCPUTicks_);
    glance.diskFree = dataVolume().first;
    return glance;
}

}  // namespace brimlet
