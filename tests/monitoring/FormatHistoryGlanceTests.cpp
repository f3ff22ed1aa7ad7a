#include <gtest/gtest.h>

#include <cmath>

#include "core/common/ByteFormat.hpp"
#include "core/monitoring/MetricsHistory.hpp"
#include "core/monitoring/SuiteGlance.hpp"

namespace brimlet {
namespace {

TEST(ByteFormat, RangeBoundariesAndRoundingHalves) {
    struct Case {
        std::uint64_t bytes;
        const char* decimal;
        const char* binary;
    };
    const Case cases[] = {
        {0, "0 B", "0 KB"},
        {999, "999 B", "1 KB"},
        {1'000, "1 KB", "1 KB"},
        {1'500, "2 KB", "1 KB"},  // 1.5 → 2 (ties to even, as printf does)
        {2'500, "2 KB", "2 KB"},  // 2.5 → 2
        {999'499, "999 KB", "976 KB"},
        {999'500, "1000 KB", "976 KB"},  // still below a megabyte, so printf's rounding shows
        {1'000'000, "1 MB", "977 KB"},
        {1'048'575, "1 MB", "1024 KB"},
        {1'048'576, "1 MB", "1 MB"},
        {999'999'999, "1000 MB", "954 MB"},
        {1'000'000'000, "1.0 GB", "954 MB"},
        {1'073'741'823, "1.1 GB", "1024 MB"},
        {1'073'741'824, "1.1 GB", "1.00 GB"},
        {1'500'000'000, "1.5 GB", "1.40 GB"},
        {1'250'000'000, "1.2 GB", "1.16 GB"},  // 1.25 → 1.2 (exact tie, to even)
        {999'999'999'999, "1000.0 GB", "931.32 GB"},
        {1'000'000'000'000, "1.00 TB", "931.32 GB"},
        {18'446'744'073'709'551'615ULL, "18446744.07 TB", "17179869184.00 GB"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(ByteFormat::string(c.bytes), c.decimal) << c.bytes;
        EXPECT_EQ(ByteFormat::memory(c.bytes), c.binary) << c.bytes;
    }
}

TEST(ByteFormat, RatesSignsAndParts) {
    EXPECT_EQ(ByteFormat::rate(std::nullopt), "\u2014");
    EXPECT_EQ(ByteFormat::rate(2048.7), "2 KB/s");
    EXPECT_EQ(ByteFormat::rate(-0.5), "0 B/s");  // truncated toward zero
    EXPECT_EQ(ByteFormat::rate(999.99), "999 B/s");
    EXPECT_EQ(ByteFormat::signedString(-1'500'000'000), "\u22121.5 GB");
    EXPECT_EQ(ByteFormat::signedString(INT64_MIN), "\u22129223372.04 TB");
    EXPECT_EQ(ByteFormat::signedString(42), "42 B");
    EXPECT_EQ(ByteFormat::parts(1'500'000'000, false), (ByteFormat::Parts{"1.5", "GB"}));
    EXPECT_EQ(ByteFormat::parts(1'073'741'824, true), (ByteFormat::Parts{"1.00", "GB"}));
    EXPECT_EQ(ByteFormat::parts(12, false), (ByteFormat::Parts{"12", "B"}));
}

TEST(ByteFormatDeathTest, RatesOutOfRangeAreFatal) {
    EXPECT_DEATH(ByteFormat::rate(-1.0), "rate out of range");
    EXPECT_DEATH(ByteFormat::rate(std::nan("")), "rate out of range");
    EXPECT_DEATH(ByteFormat::rate(18446744073709551616.0), "rate out of range");
}

TEST(HealthRating, GradesAtEveryBoundary) {
    using R = Rating;
    const std::uint64_t GiB = HealthRating::GiB;
    struct CpuCase {
        double load;
        R expected;
    };
    for (auto [load, expected] :
         {CpuCase{0, R::great}, CpuCase{39.999, R::great}, CpuCase{40.0, R::good}, CpuCase{69.99, R::good},
          CpuCase{70.0, R::fair}, CpuCase{89.99, R::fair}, CpuCase{90.0, R::poor}, CpuCase{400, R::poor}})
        EXPECT_EQ(HealthRating::cpuGrade(load), expected) << load;
    struct DiskCase {
        std::uint64_t free;
        R expected;
    };
    for (auto [free, expected] :
         {DiskCase{50 * GiB, R::great}, DiskCase{50 * GiB - 1, R::good}, DiskCase{20 * GiB, R::good},
          DiskCase{20 * GiB - 1, R::fair}, DiskCase{10'737'418'240ULL, R::fair}, DiskCase{10'737'418'239ULL, R::poor},
          DiskCase{0, R::poor}})
        EXPECT_EQ(HealthRating::diskGrade(free), expected) << free;
    EXPECT_EQ(HealthRating::memoryGrade(MemoryPressure::normal, GiB - 1), R::great);
    EXPECT_EQ(HealthRating::memoryGrade(MemoryPressure::normal, GiB), R::good);
    EXPECT_EQ(HealthRating::memoryGrade(MemoryPressure::warning, 0), R::fair);
    EXPECT_EQ(HealthRating::memoryGrade(MemoryPressure::critical, 0), R::poor);

    SystemStats stats;
    stats.thermal = ThermalLevel::serious;
    stats.diskFree = 60 * GiB;
    const HealthRating rating(stats);
    EXPECT_FALSE(rating.cpu);
    EXPECT_EQ(rating.thermal, R::fair);
    EXPECT_EQ(rating.disk, R::great);
    EXPECT_EQ(Rating::fromRawValue("Poor"), R(R::poor));
    EXPECT_FALSE(Rating::fromRawValue("poor"));
}

TEST(MetricsHistory, CapacityTrimmingAndTopApps) {
    MetricsHistory history;
    EXPECT_EQ(history.capacity, 150u);
    const Date start{};
    for (int i = 0; i < 151; ++i) {
        HistoryPoint p;
        p.date = start + std::chrono::seconds(2 * i);
        history.append(p);
    }
    ASSERT_EQ(history.points.size(), 150u);
    EXPECT_EQ(history.points.front().date, start + std::chrono::seconds(2));

    MetricsHistory one(0);
    HistoryPoint later;
    later.date = start + std::chrono::seconds(1);
    one.append(HistoryPoint{});
    one.append(later);
    ASSERT_EQ(one.points.size(), 1u);
    EXPECT_EQ(one.points[0].date, start + std::chrono::seconds(1));
    EXPECT_EQ(MetricsHistory(-5).capacity, 1u);

    MonitorSnapshot snap;
    snap.system.memoryUsed = 7;
    snap.system.cpuLoad = 12;
    for (const char* id : {"a", "b", "c"}) {
        AppGroup g;
        g.id = id;
        g.footprint = 100;
        snap.apps.push_back(g);
    }
    MetricsHistory apps;
    apps.append(snap, 5);
    apps.append(snap, 2);
    snap.apps.clear();
    apps.append(snap, 5);
    EXPECT_EQ(apps.points[0].appFootprints.size(), 3u);
    EXPECT_EQ(apps.points[1].appFootprints, (std::map<std::string, std::uint64_t>{{"a", 100}, {"b", 100}}));
    EXPECT_TRUE(apps.points[2].appFootprints.empty());
    EXPECT_EQ(apps.points[2].memoryUsed, 7u);
    EXPECT_EQ(apps.points[2].cpuLoad, 12);
    EXPECT_DEATH(apps.append(snap, -1), "negative");
}

TEST(SuiteGlance, MetricsPresentOnlyWhenRead) {
    struct Case {
        const char* what;
        SystemGlance glance;
        SuiteGlance::Level level;
        std::vector<SuiteGlance::Metric> metrics;
    };
    using L = SuiteGlance::Level;
    const Case cases[] = {
        {"nothing read", {0, 0, MemoryPressure::normal, std::nullopt, 0}, L::ok, {}},
        {"critical, no total", {5, 0, MemoryPressure::critical, std::nullopt, 0}, L::alert, {}},
        {"used above total",
         {20, 10, MemoryPressure::critical, std::nullopt, 0},
         L::alert,
         {{"mem", "Memory", 100.0, "%", L::alert}}},
        {"halves away from zero",
         {1, 8, MemoryPressure::warning, 12.5, 123'456'789'012ULL},
         L::notice,
         {{"mem", "Memory", 13.0, "%", L::notice},
          {"cpu", "CPU", 13.0, "%", L::ok},
          {"disk", "Free disk", 123.5, "GB", L::ok}}},
        {"CPU clamped high", {0, 0, MemoryPressure::normal, 100.4, 0}, L::ok, {{"cpu", "CPU", 100.0, "%", L::ok}}},
        {"CPU clamped low", {0, 0, MemoryPressure::normal, -3, 0}, L::ok, {{"cpu", "CPU", 0.0, "%", L::ok}}},
        {"small disk",
         {0, 0, MemoryPressure::normal, std::nullopt, 49'999'999},
         L::ok,
         {{"disk", "Free disk", 0.0, "GB", L::ok}}},
    };
    for (const Case& c : cases) {
        const SuiteGlance glance(c.glance);
        EXPECT_EQ(glance.level, c.level) << c.what;
        EXPECT_EQ(glance.metrics, c.metrics) << c.what;
    }
    EXPECT_FALSE(SuiteGlance::Level::fromRawValue("warning"));
}

}  // namespace
}  // namespace brimlet
