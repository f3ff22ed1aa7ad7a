#include <gtest/gtest.h>

#include "base/JsonCoding.hpp"
#include "core/monitoring/Alerts.hpp"

namespace brimlet {
namespace {

const Date t0 = *kestrow::parseIsoDate("2026-11-23T10:00:00Z");
Date at(int seconds) { return t0 + std::chrono::seconds(seconds); }

MonitorSnapshot snapshot(MemoryPressure pressure, std::uint64_t diskFree = 500'000'000'000ULL,
                         std::uint64_t diskTotal = 1'000'000'000'000ULL) {
    MonitorSnapshot s;
    s.system.pressure = pressure;
    s.system.diskFree = diskFree;
    s.system.diskTotal = diskTotal;
    return s;
}

AppGroup app(std::string name, std::uint64_t footprint) {
    AppGroup g;
    g.id = "cmd:" + name;
    g.name = std::move(name);
    g.footprint = footprint;
    return g;
}

std::string kinds(const std::vector<Alert>& alerts) {
    std::string out;
    for (const Alert& a : alerts) out += std::string(a.kind.rawValue()) + ";";
    return out;
}

TEST(AlertEvaluator, PressureTimelineWaitsRepeatsAndResets) {
    struct Step {
        int second;
        MemoryPressure pressure;
        bool pressureEnabled;
        const char* expected;
    };
    const auto crit = MemoryPressure::critical, norm = MemoryPressure::normal, warn = MemoryPressure::warning;
    const Step steps[] = {
        {0, crit, true, ""},
        {29, crit, true, ""},
        {30, crit, true, "memoryPressure;"},
        {60, crit, true, ""},  // cooling down
        {1829, crit, true, ""},
        {1830, crit, true, "memoryPressure;"},  // 30 minutes after the first
        {1840, norm, true, ""},                 // one normal sample ends the run
        {1850, crit, true, ""},                 // a new run starts waiting afresh
        {3630, crit, true, "memoryPressure;"},  // 30 s passed long ago; cooldown ended at 3630
        {3640, warn, true, ""},
        {4000, crit, false, ""},  // disabled: the run is still tracked
        {6000, crit, false, ""},
        {6001, crit, true, "memoryPressure;"},  // enabled during the old run: at once
    };
    AlertEvaluator evaluator;
    AlertSettings settings;
    for (const Step& step : steps) {
        settings.memoryPressureEnabled = step.pressureEnabled;
        EXPECT_EQ(kinds(evaluator.evaluate(snapshot(step.pressure), settings, at(step.second))), step.expected)
            << "at " << step.second << " s";
    }
}

TEST(AlertEvaluator, TextsDiskBoundaryAndHeavyApplication) {
    AlertEvaluator evaluator;
    AlertSettings settings;
    MonitorSnapshot s = snapshot(MemoryPressure::critical, settings.lowDiskThreshold - 1);
    s.apps = {app("Xcode", 12'884'901'888ULL), app("Safari", 9'000'000'000ULL), app("small", 10)};
    evaluator.evaluate(s, settings, at(0));  // starts the critical run; disk and app fire now
    const auto alerts = evaluator.evaluate(s, settings, at(30));
    ASSERT_EQ(kinds(alerts), "memoryPressure;");
    EXPECT_EQ(alerts[0].title, "Memory pressure is critical");
    EXPECT_EQ(alerts[0].body, "Your Mac is short on memory. Top app: Xcode, 12.00 GB.");

    AlertEvaluator fresh;
    const auto first = fresh.evaluate(s, settings, at(0));
    ASSERT_EQ(kinds(first), "lowDisk;heavyApp;");
    EXPECT_EQ(first[0].title, "Disk space is low");
    EXPECT_EQ(first[0].body, "10.0 GB free. Open Cleanup to reclaim space safely.");
    EXPECT_EQ(first[1].title, "Xcode is using a lot of memory");  // one alert, the larger group
    EXPECT_EQ(first[1].body, "Xcode is using 12.00 GB.");

    struct Case {
        const char* what;
        MonitorSnapshot snap;
        const char* expected;
    };
    MonitorSnapshot exactDisk = snapshot(MemoryPressure::normal, settings.lowDiskThreshold);
    MonitorSnapshot noTotal = snapshot(MemoryPressure::normal, 0, 0);
    MonitorSnapshot exactHeavy = snapshot(MemoryPressure::normal);
    exactHeavy.apps = {app("edge", settings.heavyAppThreshold)};
    MonitorSnapshot emptyApps = snapshot(MemoryPressure::critical);
    const Case cases[] = {
        {"free equal to the threshold", exactDisk, ""},
        {"unknown volume", noTotal, ""},
        {"exactly 8 GiB", exactHeavy, ""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(kinds(AlertEvaluator().evaluate(c.snap, settings, at(0))), c.expected) << c.what;

    AlertEvaluator noApps;
    noApps.evaluate(emptyApps, settings, at(0));
    EXPECT_EQ(noApps.evaluate(emptyApps, settings, at(31)).at(0).body,
              "Your Mac is short on memory. Top app: unknown.");
}

// Off the Mac an alert names the computer neutrally and points at what that platform offers.
TEST(AlertEvaluator, TheWordsComeFromThePlatform) {
    const AlertWording platform = AlertWording::forThisPlatform();
    if (platform == AlertWording{}) GTEST_SKIP() << "the Mac's own words are the defaults, checked above";
    AlertEvaluator evaluator;
    evaluator.wording = platform;
    AlertSettings settings;
    MonitorSnapshot s = snapshot(MemoryPressure::critical, settings.lowDiskThreshold - 1);
    s.apps = {app("Firefox", 9'000'000'000ULL)};
    evaluator.evaluate(s, settings, at(0));
    std::vector<Alert> alerts = evaluator.evaluate(s, settings, at(30));
    AlertEvaluator fresh;
    fresh.wording = platform;
    for (Alert& alert : fresh.evaluate(s, settings, at(0))) alerts.push_back(alert);
    ASSERT_EQ(kinds(alerts), "memoryPressure;lowDisk;heavyApp;");
    EXPECT_EQ(alerts[0].body, platform.shortOnMemory + " Top app: Firefox, 8.38 GB.");
    EXPECT_EQ(alerts[1].body, "10.0 GB free. " + platform.reclaimSpace);
    for (const Alert& alert : alerts) {
        EXPECT_EQ((alert.title + alert.body).find("Mac"), std::string::npos) << alert.body;
        EXPECT_EQ(alert.body.find("Open Cleanup"), std::string::npos) << alert.body;
    }
}

TEST(AlertEvaluator, CooldownStartsOnlyWhenAnAlertIsReturned) {
    AlertEvaluator evaluator;
    AlertSettings settings;
    settings.lowDiskEnabled = false;
    const MonitorSnapshot low = snapshot(MemoryPressure::normal, 1);
    EXPECT_EQ(kinds(evaluator.evaluate(low, settings, at(0))), "");
    settings.lowDiskEnabled = true;
    EXPECT_EQ(kinds(evaluator.evaluate(low, settings, at(5))), "lowDisk;");
    EXPECT_EQ(kinds(evaluator.evaluate(low, settings, at(1804))), "");
    EXPECT_EQ(kinds(evaluator.evaluate(low, settings, at(1805))), "lowDisk;");
}

TEST(AlertSettings, JsonNeedsEveryKey) {
    AlertSettings custom;
    custom.heavyAppEnabled = false;
    custom.lowDiskThreshold = 5;
    AlertSettings back;
    ASSERT_TRUE(fromJson(toJson(custom), back));
    EXPECT_EQ(back, custom);
    JsonValue missing = toJson(custom);
    missing.asObject()->erase("heavyAppThreshold");
    EXPECT_FALSE(fromJson(missing, back));
    JsonValue wrongType = toJson(custom);
    (*wrongType.asObject())["lowDiskEnabled"] = JsonValue(1);
    EXPECT_FALSE(fromJson(wrongType, back));
    EXPECT_EQ(AlertKind::fromRawValue("lowDisk"), AlertKind(AlertKind::lowDisk));
    EXPECT_FALSE(AlertKind::fromRawValue("LowDisk"));
}

}  // namespace
}  // namespace brimlet
