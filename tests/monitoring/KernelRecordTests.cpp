#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "FakeReaders.hpp"
#include "core/monitoring/ArgumentRecordBuffer.hpp"
#include "core/monitoring/ProcessSampler.hpp"
#include "core/monitoring/TickFrequency.hpp"

namespace brimlet {
namespace {
using namespace std::chrono_literals;

TEST(TickFrequency, GivesTheSameClockAsTheTimebaseOfEachMachine) {
    struct Case {
        std::uint64_t hertz;
        TickClock expected;
    };
    const Case cases[] = {
        {24'000'000, {125, 3}},   // Apple silicon
        {1'000'000'000, {1, 1}},  // Intel: ticks are nanoseconds
        {19'200'000, {625, 12}},  // an odd rate still reduces exactly
        {3, {1'000'000'000, 3}},
    };
    for (const Case& c : cases) {
        const auto clock = tickClockForFrequency(c.hertz);
        ASSERT_TRUE(clock) << c.hertz;
        EXPECT_EQ(*clock, c.expected) << c.hertz;
        EXPECT_EQ(clock->nanoseconds(c.hertz), 1'000'000'000u) << "one second of ticks, " << c.hertz;
    }
    EXPECT_FALSE(tickClockForFrequency(0));

    // 125/3 as mach_timebase_info gives it natively and 24 MHz as hw.tbfrequency gives it under
    // Rosetta convert alike, remainder truncated.
    const TickClock fromFrequency = *tickClockForFrequency(24'000'000);
    const TickClock fromTimebase{125, 3};
    for (const std::uint64_t ticks : {1ull, 2ull, 3ull, 1000ull, 24'000'001ull, 1ull << 40}) {
        EXPECT_EQ(fromFrequency.nanoseconds(ticks), fromTimebase.nanoseconds(ticks)) << ticks;
    }
    EXPECT_EQ(fromFrequency.nanoseconds(1), 41u);
    EXPECT_EQ(fromFrequency.nanoseconds(1000), 41'666u);
}

TEST(TickFrequency, TranslatedProcessSeesFullCpuFromNativeTicks) {
    // The kernel reports native 24 MHz ticks whatever the process's own time base says; with the
    // clock from the frequency one busy core reads 100 %, not 2.4 %.
    testing::FakeProcessReading reader;
    reader.add(7, 1, "busy");
    ProcessSampler sampler(reader, *tickClockForFrequency(24'000'000));
    sampler.sample();
    reader.now += 2s;
    reader.table[7].usage->cpuTicks += 48'000'000;  // two seconds of one core
    const auto result = sampler.sample();
    ASSERT_EQ(result.processes.size(), 1u);
    EXPECT_DOUBLE_EQ(*result.processes[0].cpuPercent, 100.0);
}

// Lays out an argument record as the kernel does: argc, the executable path, zero padding, the
// arguments each ending in a zero byte.
std::string record(std::int32_t argc, const std::string& path, const std::vector<std::string>& arguments) {
    std::string bytes(sizeof argc, '\0');
    std::memcpy(bytes.data(), &argc, sizeof argc);
    bytes += path;
    bytes.append(3, '\0');
    for (const std::string& a : arguments) bytes += a + '\0';
    return bytes;
}

TEST(ArgumentRecordBuffer, ParsesOnlyWhatTheLatestReadWrote) {
    ArgumentRecordBuffer buffer;
    const char* firstData = nullptr;
    auto writer = [&](const std::string& bytes) {
        return [&, bytes](char* data, std::size_t room) -> std::optional<std::size_t> {
            if (!firstData) firstData = data;
            EXPECT_EQ(data, firstData) << "the same memory every read";
            if (bytes.size() > room) return std::nullopt;
            std::copy(bytes.begin(), bytes.end(), data);
            return bytes.size();
        };
    };
    struct Read {
        const char* what;
        std::string bytes;
        std::optional<std::vector<std::string>> expected;
    };
    const Read reads[] = {
        {"a long record fills the buffer", record(4, "/usr/local/bin/tool", {"tool", "--alpha", "--beta", "--gamma"}),
         std::vector<std::string>{"tool", "--alpha", "--beta", "--gamma"}},
        // argc promises four, but the old "--beta" and "--gamma" behind the new end are not read.
        {"a shorter record over the old bytes", record(4, "/bin/x", {"x"}), std::vector<std::string>{"x"}},
        {"a record cut inside its argument",
         record(2, "/bin/sh", {"sh", "-c"}).substr(0, record(2, "/bin/sh", {"sh"}).size() - 1),
         std::vector<std::string>{"sh"}},
        {"argc 0 over old arguments", record(0, "/bin/true", {}), std::vector<std::string>{}},
        {"too short to hold a record", std::string("\x01\x00\x00\x00", 4), std::nullopt},
        {"a path with no end leaves nothing", record(1, "/bin/a", {}).substr(0, 8), std::vector<std::string>{}},
    };
    for (const Read& r : reads) EXPECT_EQ(buffer.read(4096, writer(r.bytes)), r.expected) << r.what;

    EXPECT_FALSE(buffer.read(4096, [](char*, std::size_t) -> std::optional<std::size_t> { return std::nullopt; }))
        << "a failed read";
    EXPECT_FALSE(buffer.read(4096, [](char*, std::size_t room) -> std::optional<std::size_t> { return room + 1; }))
        << "a length beyond the room given";
    EXPECT_EQ(buffer.capacity(), 4096u);

    // A larger argument area makes the buffer grow once; a smaller one reuses it.
    firstData = nullptr;
    EXPECT_EQ(buffer.read(8192, writer(record(1, "/bin/a", {"a"}))), std::vector<std::string>{"a"});
    EXPECT_EQ(buffer.read(100, writer(record(1, "/bin/b", {"b"}))), std::vector<std::string>{"b"});
    EXPECT_EQ(buffer.capacity(), 8192u);
}

}  // namespace
}  // namespace brimlet
