#include <gtest/gtest.h>

#include <chrono>

#include "FakeReaders.hpp"
#include "core/monitoring/SystemSampler.hpp"

namespace brimlet {
namespace {

using testing::FakeSystemReading;
using namespace std::chrono_literals;

TEST(SystemFormulas, PressureFromKernelLevelsAndStalls) {
    struct Case {
        PressureReading reading;
        MemoryPressure expected;
    };
    const Case cases[] = {
        {std::monostate{}, MemoryPressure::normal},          {std::int32_t{-1}, MemoryPressure::normal},
        {std::int32_t{1}, MemoryPressure::normal},           {std::int32_t{2}, MemoryPressure::warning},
        {std::int32_t{3}, MemoryPressure::warning},          {std::int32_t{4}, MemoryPressure::critical},
        {std::int32_t{99}, MemoryPressure::critical},        {StallAverages{0, 0}, MemoryPressure::normal},
        {StallAverages{9.99, 1.99}, MemoryPressure::normal}, {StallAverages{10, 0}, MemoryPressure::warning},
        {StallAverages{3, 2}, MemoryPressure::warning},      {StallAverages{40, 9.99}, MemoryPressure::warning},
        {StallAverages{40, 10}, MemoryPressure::critical},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(SystemFormulas::pressure(cases[i].reading), cases[i].expected) << "case " << i;
    EXPECT_LT(MemoryPressure(MemoryPressure::normal), MemoryPressure(MemoryPressure::warning));
    EXPECT_LT(MemoryPressure(MemoryPressure::warning), MemoryPressure(MemoryPressure::critical));
}

TEST(SystemFormulas, ThermalFromStatesAndZones) {
    using Zones = std::vector<ThermalZone>;
    struct Case {
        ThermalReading reading;
        ThermalLevel expected;
    };
    const Case cases[] = {
        {std::int64_t{0}, ThermalLevel::nominal},
        {std::int64_t{1}, ThermalLevel::fair},
        {std::int64_t{2}, ThermalLevel::serious},
        {std::int64_t{3}, ThermalLevel::critical},
        {std::int64_t{17}, ThermalLevel::critical},
        {Zones{}, ThermalLevel::nominal},
        {Zones{{45000, {}}}, ThermalLevel::nominal},
        {Zones{{60000, {{55000, "active"}, {90000, "passive"}}}}, ThermalLevel::fair},
        {Zones{{40000, {{55000, "active"}}}, {95000, {{90000, "passive"}, {105000, "critical"}}}},
         ThermalLevel::serious},
        {Zones{{110000, {{105000, "critical"}}}}, ThermalLevel::critical},
        {Zones{{50000, {{0, "critical"}}}}, ThermalLevel::nominal},  // an unset trip point
        // Exactly at a trip point counts as past it; a millidegree below does not.
        {Zones{{55000, {{55000, "active"}}}}, ThermalLevel::fair},
        {Zones{{89999, {{55000, "active"}, {90000, "passive"}}}}, ThermalLevel::fair},
        {Zones{{90000, {{55000, "active"}, {90000, "passive"}}}}, ThermalLevel::serious},
        {Zones{{105000, {{105000, "hot"}}}}, ThermalLevel::critical},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(SystemFormulas::thermal(cases[i].reading), cases[i].expected) << "case " << i;
}

TEST(SystemFormulas, MemoryFromPagesAndMeminfo) {
    const auto vm = SystemFormulas::memory(VMPageCounts{16384, 100, 30, 20, 5});
    EXPECT_EQ(vm.used, 16384u * (70 + 20 + 5));
    EXPECT_EQ(vm.compressed, 16384u * 5);
    EXPECT_EQ(vm.wired, 16384u * 20);
    // More purgeable than internal pages counts as no application pages, never negative.
    EXPECT_EQ(SystemFormulas::memory(VMPageCounts{4096, 10, 50, 1, 0}).used, 4096u);

    MeminfoFigures mi;
    mi.memTotal = 1000;
    mi.memAvailable = 300;
    mi.unevictable = 1;
    mi.sUnreclaim = 2;
    mi.kernelStack = 3;
    mi.pageTables = 4;
    mi.zswap = 5;
    mi.zramUsed = 6;
    const auto fromMeminfo = SystemFormulas::memory(mi);
    EXPECT_EQ(fromMeminfo.used, 700u);
    EXPECT_EQ(fromMeminfo.wired, 10u);
    EXPECT_EQ(fromMeminfo.compressed, 11u);
    mi.memAvailable = 2000;  // cannot happen, but must not wrap
    EXPECT_EQ(SystemFormulas::memory(mi).used, 0u);

    EXPECT_EQ(SystemFormulas::swapUsed({100, 40, std::nullopt}), 60u);
    EXPECT_EQ(SystemFormulas::swapUsed({100, 40, 7}), 7u);
    EXPECT_EQ(SystemFormulas::swapUsed({100, 400, std::nullopt}), 0u);
}

TEST(SystemFormulasDeathTest, MemoryOverflowIsFatal) {
    EXPECT_DEATH(SystemFormulas::memory(VMPageCounts{1ULL << 40, 1ULL << 30, 0, 0, 0}), "overflow");
}

struct SystemFixture : ::testing::Test {
    FakeSystemReading reader;
    SystemSampler sampler{reader};
};

TEST_F(SystemFixture, CPULoadNeedsTwoReadingsAndGrowingTotal) {
    reader.ticks = CPUTicks{100, 0, 100, 800};
    EXPECT_FALSE(sampler.sample().cpuLoad);
    reader.ticks = CPUTicks{150, 10, 140, 900};  // busy +100, total +200
    EXPECT_DOUBLE_EQ(*sampler.sample().cpuLoad, 50.0);
    EXPECT_FALSE(sampler.sample().cpuLoad);  // total did not grow
    reader.ticks.reset();
    EXPECT_FALSE(sampler.sample().cpuLoad);
    reader.ticks = CPUTicks{150, 10, 140, 1000, 0, 0, 0, 100};  // steal counts as busy
    EXPECT_DOUBLE_EQ(*sampler.sample().cpuLoad, 50.0);
}

TEST_F(SystemFixture, GlanceKeepsItsOwnCPUBaseline) {
    reader.ticks = CPUTicks{0, 0, 0, 100};
    sampler.sample();
    reader.ticks = CPUTicks{100, 0, 0, 100};
    EXPECT_FALSE(sampler.glance().cpuLoad);  // the glance's first reading
    reader.ticks = CPUTicks{100, 0, 0, 200};
    EXPECT_DOUBLE_EQ(*sampler.glance().cpuLoad, 0.0);
    EXPECT_DOUBLE_EQ(*sampler.sample().cpuLoad, 50.0);  // over the whole interval since the last sample
    EXPECT_EQ(reader.blockReads, 2);                    // two samples; glances never walk the disks
}

TEST_F(SystemFixture, DiskRatesAcrossSamplesAndBackwardCounters) {
    reader.disks = BlockCounters{1000, 2000};
    auto first = sampler.sample();
    EXPECT_FALSE(first.diskReadPerSecond);
    reader.now += 2s;
    reader.disks = BlockCounters{5000, 2000};
    auto second = sampler.sample();
    EXPECT_DOUBLE_EQ(*second.diskReadPerSecond, 2000.0);
    EXPECT_DOUBLE_EQ(*second.diskWritePerSecond, 0.0);
    reader.now += 1s;
    reader.disks = BlockCounters{10, 3000};  // a disk went away
    auto third = sampler.sample();
    EXPECT_FALSE(third.diskReadPerSecond);
    EXPECT_FALSE(third.diskWritePerSecond);
    reader.now += 1s;
    reader.disks = BlockCounters{110, 3000};  // measured from the new counters
    EXPECT_DOUBLE_EQ(*sampler.sample().diskReadPerSecond, 100.0);
    reader.disks.reset();
    EXPECT_FALSE(sampler.sample().diskReadPerSecond);
    reader.now += 1s;
    reader.disks = BlockCounters{210, 3000};  // a failed reading kept the last counters
    EXPECT_DOUBLE_EQ(*sampler.sample().diskReadPerSecond, 100.0);
}

TEST_F(SystemFixture, VolumeGpuAndFailures) {
    reader.volumes["/"] = VolumeBlocks{10, 100, 4096};
    auto stats = sampler.sample();
    EXPECT_EQ(stats.diskFree, 40960u);
    EXPECT_EQ(stats.diskTotal, 409600u);
    reader.volumes[DiskSpace::dataVolumeCandidates().front()] = VolumeBlocks{1, 2, 512};  // the data volume wins
    EXPECT_EQ(sampler.sample().diskTotal, 1024u);

    EXPECT_FALSE(stats.gpuUtilization);
    reader.gpus = {30, 55, 12};
    EXPECT_EQ(sampler.sample().gpuUtilization, 55);

    // Nothing readable: zeros, normal, nominal, absent.
    FakeSystemReading empty;
    SystemSampler blind(empty);
    const SystemStats none = blind.sample();
    EXPECT_EQ(none, SystemStats{});
}

}  // namespace
}  // namespace brimlet
