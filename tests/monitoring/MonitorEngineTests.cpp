#include <gtest/gtest.h>

#include "FakeReaders.hpp"
#include "base/JsonCoding.hpp"
#include "core/monitoring/MonitorEngine.hpp"

namespace brimlet {
namespace {

using testing::FakeProcessReading;
using testing::FakeSystemReading;

constexpr std::uint64_t GiB8 = MonitorSnapshot::heavyProcessThreshold;

struct EngineFixture : ::testing::Test {
    FakeProcessReading processes;
    FakeSystemReading system;
};

TEST_F(EngineFixture, HeavyProcessesThresholdOrderAndParents) {
    processes.add(1, 10, "launchd", 0);
    processes.add(2, GiB8, "exactly", 1);             // not heavy
    processes.add(3, GiB8 + 1, "first-equal", 1);     // heavy, parent in the sample
    processes.add(4, GiB8 + 5, "largest", 900);       // parent not sampled, readable by BSD info
    processes.add(5, GiB8 + 1, "second-equal", 901);  // parent gone
    processes.add(6, 5, "hidden-parent", 1).usage.reset();
    processes.table[900].info = ProcessIdentity{1, 0, 1, "outside"};
    MonitorEngine engine(processes, system);
    const MonitorSnapshot snap = engine.snapshot().get();

    ASSERT_EQ(snap.heavyProcesses.size(), 3u);
    EXPECT_EQ(snap.heavyProcesses[0].name, "largest");
    EXPECT_EQ(snap.heavyProcesses[0].parentName, "outside");
    EXPECT_EQ(snap.heavyProcesses[1].name, "first-equal");
    EXPECT_EQ(snap.heavyProcesses[1].parentName, "launchd");
    EXPECT_EQ(snap.heavyProcesses[2].name, "second-equal");
    EXPECT_FALSE(snap.heavyProcesses[2].parentName);
    EXPECT_EQ(snap.readableProcessCount, 5);
    EXPECT_EQ(snap.hiddenProcessCount, 1);
    EXPECT_EQ(snap.apps.front().footprint, GiB8 + 5);

    // The serialised heavy process without a parent name has no such key at all.
    const JsonValue json = toJson(snap.heavyProcesses[2]);
    EXPECT_EQ(json.find("parentName"), nullptr);
    EXPECT_NE(json.find("parentPID"), nullptr);
}

TEST_F(EngineFixture, NoReadableProcessesStillCountsHidden) {
    processes.add(7, 1, "x").info.reset();
    MonitorEngine engine(processes, system);
    const MonitorSnapshot snap = engine.snapshot().get();
    EXPECT_TRUE(snap.apps.empty());
    EXPECT_TRUE(snap.heavyProcesses.empty());
    EXPECT_EQ(snap.readableProcessCount, 0);
    EXPECT_EQ(snap.hiddenProcessCount, 1);
}

TEST_F(EngineFixture, CallsRunOneAtATimeInOrder) {
    processes.add(1, 1, "a");
    system.ticks = CPUTicks{0, 0, 0, 0};
    MonitorEngine engine(processes, system);
    std::vector<std::future<MonitorSnapshot>> futures;
    for (int i = 0; i < 20; ++i) futures.push_back(engine.snapshot());
    auto glance = engine.glance();
    for (auto& f : futures) EXPECT_EQ(f.get().readableProcessCount, 1);
    EXPECT_FALSE(glance.get().cpuLoad);  // its own baseline, untouched by the snapshots
}

AppGroup group(std::string id, std::uint64_t footprint, std::optional<double> cpu, std::optional<double> read,
               std::optional<double> write) {
    AppGroup g;
    g.id = g.name = std::move(id);
    g.footprint = footprint;
    g.cpuPercent = cpu;
    g.diskReadPerSecond = read;
    g.diskWritePerSecond = write;
    return g;
}

TEST(MonitorSnapshot, TopAppsAndGlance) {
    MonitorSnapshot snap;
    snap.apps = {group("a", 300, std::nullopt, 5, std::nullopt), group("b", 200, 10, std::nullopt, std::nullopt),
                 group("c", 100, 0, 1, 4), group("d", 50, 10, std::nullopt, std::nullopt)};
    auto ids = [](const std::vector<AppGroup>& groups) {
        std::string s;
        for (const auto& g : groups) s += g.id;
        return s;
    };
    EXPECT_EQ(ids(snap.topApps(AppMetric::cpu, 10)), "bdac");  // stable: a (absent = 0) before c (0)
    EXPECT_EQ(ids(snap.topApps(AppMetric::disk, 2)), "ac");
    EXPECT_EQ(ids(snap.topApps(AppMetric::memory, 0)), "");
    EXPECT_FALSE(AppMetric::fromRawValue("Memory"));
    EXPECT_EQ(AppMetric::fromRawValue("disk"), AppMetric(AppMetric::disk));

    snap.system.memoryUsed = 10;
    snap.system.memoryTotal = 0;
    EXPECT_EQ(snap.glance().memoryFraction(), 0);
    snap.system.memoryTotal = 5;
    EXPECT_EQ(snap.glance().memoryFraction(), 1.0);
    snap.system.memoryTotal = 40;
    EXPECT_EQ(snap.glance().memoryFraction(), 0.25);
}

TEST(MonitorSnapshot, JsonRoundTripAndKeys) {
    MonitorSnapshot snap;
    snap.date = *kestrow::parseIsoDate("2026-11-23T09:15:02.125Z");
    AppGroup g = group("/Applications/A.app", UINT64_MAX, 12.5, std::nullopt, 0.1);
    g.bundlePath = g.id;
    g.pids = {1, -2, 2147483647};
    snap.apps = {g};
    snap.system.pressure = MemoryPressure::critical;
    snap.system.thermal = ThermalLevel::serious;
    snap.system.cpuLoad = 1.0 / 3;
    snap.system.memoryTotal = 68'719'476'736;
    snap.hiddenProcessCount = 4;
    snap.readableProcessCount = 1;
    snap.heavyProcesses = {{5, "big", GiB8 + 1, 1, "launchd"}, {6, "orphan", GiB8 + 2, 77, std::nullopt}};

    const JsonValue json = toJson(snap);
    std::vector<std::string> keys;
    for (const auto& [key, value] : *json.asObject()) keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"apps", "date", "heavyProcesses", "hiddenProcessCount",
                                              "readableProcessCount", "system"}));
    const std::string text = *kestrow::writeJson(json, {.pretty = true});
    EXPECT_NE(text.find("\"date\" : \"2026-11-23T09:15:02Z\""), std::string::npos);  // whole seconds
    EXPECT_NE(text.find("\"pressure\" : \"critical\""), std::string::npos);

    auto parsed = kestrow::parseJson(text);
    ASSERT_TRUE(parsed.ok());
    MonitorSnapshot back;
    ASSERT_TRUE(fromJson(*parsed, back));
    EXPECT_EQ(back.date, std::chrono::floor<std::chrono::seconds>(snap.date));
    back.date = snap.date;
    EXPECT_EQ(back, snap);

    // A wrong type anywhere refuses the whole record.
    auto bad = kestrow::parseJson(R"({"pid":1,"name":"x","footprint":-1,"parentPID":0})");
    HeavyProcess heavy;
    EXPECT_FALSE(fromJson(*bad, heavy));
    MemoryPressure pressure;
    EXPECT_FALSE(fromJson(JsonValue("Critical"), pressure));
}

}  // namespace
}  // namespace brimlet
