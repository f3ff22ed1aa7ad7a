#include <gtest/gtest.h>

#include <chrono>

#include <cstring>

#include "FakeReaders.hpp"
#include "core/monitoring/ProcessSampler.hpp"

namespace brimlet {
namespace {

using testing::FakeProcessReading;
using namespace std::chrono_literals;

TEST(TickClock, ConvertsWithoutIntermediateOverflow) {
    struct Case {
        TickClock clock;
        std::uint64_t ticks, nanoseconds;
    };
    const Case cases[] = {
        {{125, 3}, 1, 41},
        {{125, 3}, 1000, 41666},
        {{125, 3}, 0, 0},
        {{1, 1}, UINT64_MAX, UINT64_MAX},
        // ticks × numer would overflow, the split form does not.
        {{1'000'000'000, 100}, 100'000'000'000ULL, 1'000'000'000'000'000'000ULL},
        {{3, 7}, UINT64_MAX - 5, (UINT64_MAX - 5) / 7 * 3 + ((UINT64_MAX - 5) % 7) * 3 / 7},
    };
    for (const Case& c : cases) EXPECT_EQ(c.clock.nanoseconds(c.ticks), c.nanoseconds) << c.ticks;
}

TEST(MachClockDeathTest, OverflowOrZeroDenominatorIsFatal) {
    EXPECT_DEATH(TickClock({2, 1}).nanoseconds(UINT64_MAX), "overflow");
    EXPECT_DEATH(TickClock({1, 0}).nanoseconds(5), "zero denominator");
}

std::string procArgs(std::int32_t argc, std::string_view rest) {
    std::string bytes(4, '\0');
    std::memcpy(bytes.data(), &argc, 4);
    bytes.append(rest);
    return bytes;
}

TEST(ParseProcArgs, ShortAndUnterminatedRecords) {
    using V = std::vector<std::string>;
    struct Case {
        const char* what;
        std::string bytes;
        std::optional<V> expected;
    };
    using namespace std::string_literals;
    const Case cases[] = {
        {"three bytes", "abc", std::nullopt},
        {"argc zero", procArgs(0, "/bin/x\0\0x\0"s), V{}},
        {"negative argc", procArgs(-3, "/bin/x\0\0x\0"s), V{}},
        {"path without zero", procArgs(1, "/bin/x"), V{}},
        {"only padding after path", procArgs(1, "/bin/x\0\0\0\0"s), V{}},
        {"normal", procArgs(2, "/bin/ls\0\0\0ls\0-la\0HOME=/root\0"s), V{"ls", "-la"}},
        {"last argument unterminated", procArgs(3, "/bin/ls\0ls\0-l"s), V{"ls", "-l"}},
        {"empty argument", procArgs(2, "/p\0a\0\0b\0"s), V{"a", ""}},
        {"invalid UTF-8 repaired", procArgs(1, "/p\0a\xff\0"s), V{"a\xEF\xBF\xBD"}},
    };
    for (const Case& c : cases) EXPECT_EQ(ProcessReader::parseProcArgs(c.bytes), c.expected) << c.what;
}

struct SamplerFixture : ::testing::Test {
    FakeProcessReading reader;
};

TEST_F(SamplerFixture, RatesNeedTwoSamplesOfTheSameProcess) {
    reader.tickClock = {125, 3};
    reader.add(10, 4096, "worker");
    reader.table[10].usage->cpuTicks = 3000;
    reader.table[10].usage->diskRead = 100;
    ProcessSampler sampler(reader);

    auto first = sampler.sample();
    ASSERT_EQ(first.processes.size(), 1u);
    EXPECT_FALSE(first.processes[0].cpuPercent);
    EXPECT_FALSE(first.processes[0].diskReadPerSecond);

    reader.now += 500ms;
    reader.table[10].usage->cpuTicks += 12'000'000;  // 12,000,000 × 125/3 ns = 0.5 s of CPU
    reader.table[10].usage->diskRead += 1000;
    reader.table[10].usage->diskWritten += 50;
    auto second = sampler.sample();
    ASSERT_EQ(second.processes.size(), 1u);
    EXPECT_DOUBLE_EQ(*second.processes[0].cpuPercent, 100.0);
    EXPECT_DOUBLE_EQ(*second.processes[0].diskReadPerSecond, 2000.0);
    EXPECT_DOUBLE_EQ(*second.processes[0].diskWritePerSecond, 100.0);

    // A sample at the very same instant cannot divide by the interval.
    auto third = sampler.sample();
    EXPECT_FALSE(third.processes[0].cpuPercent);
}

TEST_F(SamplerFixture, ReusedPidStartsOverWithFreshIdentity) {
    reader.add(20, 1, "old", 1, 1000).path = "/usr/bin/old";
    ProcessSampler sampler(reader);
    sampler.sample();
    reader.now += 1s;
    sampler.sample();
    EXPECT_EQ(reader.pathReads, 1);  // identity cached across samples

    // The id now belongs to a different process: another start time, another program.
    reader.table[20].info->startTime = 2000;
    reader.table[20].info->name = "new";
    reader.table[20].path = "/Applications/New.app/Contents/MacOS/New";
    reader.now += 1s;
    auto result = sampler.sample();
    ASSERT_EQ(result.processes.size(), 1u);
    const ProcessSample& s = result.processes[0];
    EXPECT_EQ(s.key.startTime, 2000u);
    EXPECT_FALSE(s.cpuPercent);
    EXPECT_EQ(s.name, "new");
    EXPECT_EQ(s.app->key, "/Applications/New.app");
    EXPECT_EQ(reader.pathReads, 2);
}

TEST_F(SamplerFixture, BackwardCountersAndHiddenIoGiveNoRates) {
    reader.add(1, 1, "a").usage->cpuTicks = 500;
    reader.table[1].usage->diskRead = 900;
    reader.add(2, 1, "b").usage->diskCountersReadable = false;
    ProcessSampler sampler(reader);
    sampler.sample();
    reader.now += 1s;
    reader.table[1].usage->cpuTicks = 400;  // went backwards
    reader.table[1].usage->diskRead = 1000;
    reader.table[2].usage->cpuTicks = 10;
    auto result = sampler.sample();
    ASSERT_EQ(result.processes.size(), 2u);
    EXPECT_FALSE(result.processes[0].cpuPercent);
    EXPECT_DOUBLE_EQ(*result.processes[0].diskReadPerSecond, 100.0);
    EXPECT_TRUE(result.processes[1].cpuPercent);
    EXPECT_FALSE(result.processes[1].diskReadPerSecond);
    EXPECT_FALSE(result.processes[1].diskWritePerSecond);
}

TEST_F(SamplerFixture, UnreadableProcessesAreCountedAsHidden) {
    reader.add(1, 1, "fine");
    reader.add(2, 1, "no-bsd").info.reset();
    reader.add(3, 1, "no-usage").usage.reset();
    reader.order.push_back(4);  // listed, then exited before it was read
    ProcessSampler sampler(reader);
    auto result = sampler.sample();
    EXPECT_EQ(result.hidden, 3);
    ASSERT_EQ(result.processes.size(), 1u);
    EXPECT_EQ(result.processes[0].name, "fine");
}

TEST_F(SamplerFixture, ArgumentsOnlyForProcessesOutsideBundles) {
    auto& app = reader.add(1, 1, "App");
    app.path = "/Applications/App.app/Contents/MacOS/App";
    app.args = std::vector<std::string>{"/Applications/App.app/Contents/MacOS/App"};
    auto& tool = reader.add(2, 1, "node");
    tool.path = "/usr/bin/node";
    tool.args = std::vector<std::string>{"/opt/bin/npm-cli", "install"};
    reader.add(3, 1, "kthread").args = std::vector<std::string>{};
    ProcessSampler sampler(reader);
    auto result = sampler.sample();
    ASSERT_EQ(result.processes.size(), 3u);
    EXPECT_FALSE(result.processes[0].argv0);
    EXPECT_EQ(result.processes[1].argv0, "/opt/bin/npm-cli");
    EXPECT_EQ(result.processes[1].app->key, "cmd:npm-cli");
    EXPECT_FALSE(result.processes[2].argv0);
    EXPECT_EQ(result.processes[2].app->key, "cmd:kthread");
    EXPECT_EQ(reader.argumentReads, 2);

    // Vanished processes drop out; new ones are resolved once.
    reader.order = {2};
    sampler.sample();
    reader.order = {2, 1};
    sampler.sample();
    EXPECT_EQ(reader.pathReads, 4);
}

TEST_F(SamplerFixture, EntriesFollowTheirProcessesThroughChangingListings) {
    // Samples are carried from sweep to sweep; whatever the listing's order, each must keep its own
    // process's identity and rate from its own previous counters.
    for (std::int32_t pid : {1, 2, 3, 4}) {
        reader.add(pid, 100 * static_cast<std::uint64_t>(pid), "p" + std::to_string(pid)).path =
            "/bin/p" + std::to_string(pid);
        reader.order.pop_back();
    }
    struct Sweep {
        std::vector<std::int32_t> order;
        std::vector<bool> rated;  // per listed process: a rate is expected
    };
    const Sweep sweeps[] = {
        {{1, 2, 3}, {false, false, false}},
        {{3, 1}, {true, true}},
        {{2, 3, 4, 1}, {false, true, false, true}},  // 2 returns after a gap: a new life
        {{4, 4, 1}, {true, true, true}},             // listed twice: both against the last sweep
        {{1, 4}, {true, true}},
        {{4, 4}, {true, true}},
        {{1}, {false}},                              // the one listed twice is gone
        {{1, 4}, {true, false}},                     // and comes back as a new life
        {{4, 3, 1, 2}, {true, false, true, false}},  // reversed, with newcomers between
        {{2, 1, 4, 3}, {true, true, true, true}},    // every sample moves
        {{3}, {true}},
        {{1, 2, 3, 4}, {false, false, true, false}},
        {{1, 2, 3, 4}, {true, true, true, true}},  // in the same order again
        {{1, 3, 4}, {true, true, true}},           // one gone from the middle
        {{1, 2, 3, 4}, {true, false, true, true}},
    };
    ProcessSampler sampler(reader);
    for (std::size_t round = 0; round < std::size(sweeps); ++round) {
        const Sweep& sweep = sweeps[round];
        reader.order = sweep.order;
        reader.now += 1s;
        for (auto& [pid, process] : reader.table)
            process.usage->cpuTicks += 10'000'000 * static_cast<std::uint64_t>(pid);
        const ProcessSampler::Result& result = sampler.sample();
        ASSERT_EQ(result.processes.size(), sweep.order.size()) << round;
        for (std::size_t i = 0; i < sweep.order.size(); ++i) {
            const ProcessSample& sample = result.processes[i];
            const std::int32_t pid = sweep.order[i];
            SCOPED_TRACE(::testing::Message() << "sweep " << round << ", pid " << pid);
            EXPECT_EQ(sample.pid(), pid);
            EXPECT_EQ(sample.name, "p" + std::to_string(pid));
            EXPECT_EQ(sample.path, "/bin/p" + std::to_string(pid));
            EXPECT_EQ(sample.footprint, 100u * static_cast<std::uint64_t>(pid));
            ASSERT_EQ(sample.cpuPercent.has_value(), sweep.rated[i]);
            if (sample.cpuPercent) {
                EXPECT_DOUBLE_EQ(*sample.cpuPercent, pid);  // 10 ms a second per unit
            }
        }
    }
}

}  // namespace
}  // namespace brimlet
