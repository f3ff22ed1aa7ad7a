#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "app/screens/FloatingMonitorStyle.hpp"
#include "app/screens/MonitorReadout.hpp"
#include "app/screens/ScreenWording.hpp"

namespace brimlet {
namespace {

namespace R = MonitorReadout;
using kestrow::InMemoryUserDefaults;
using kestrow::JsonObject;
using kestrow::JsonValue;
using kestrow::suite::Point;

constexpr std::uint64_t GiB = 1'073'741'824ULL;

TEST(MonitorReadout, PercentagesRoundHalvesAwayAndClampOnlyWhatCannotBe) {
    struct Case {
        std::optional<double> value;
        const char* machine;
        const char* process;
    };
    const Case cases[] = {
        {std::nullopt, "—", "—"}, {std::numeric_limits<double>::quiet_NaN(), "—", "—"},
        {12.4, "12%", "12%"},     {12.5, "13%", "13%"},
        {0.4, "0%", "0%"},        {-3, "0%", "0%"},
        {100.4, "100%", "100%"},  {250, "100%", "250%"},  // a process may use more than one core
    };
    for (const Case& c : cases) {
        EXPECT_EQ(R::percent(c.value), c.machine) << c.machine;
        EXPECT_EQ(R::processPercent(c.value), c.process) << c.process;
    }
}

TEST(MonitorReadout, MenuBarTitleBarAndVoiceOverFollowTheDisplayAndTheGlance) {
    SystemGlance half{8 * GiB, 16 * GiB, MemoryPressure::normal, 12.5, 123'456'789'012ULL};
    SystemGlance overfull{17 * GiB, 16 * GiB, MemoryPressure::warning, std::nullopt, 0};
    SystemGlance unreadable{0, 0, MemoryPressure::critical, std::nullopt, 0};
    struct Case {
        const char* what;
        MenuBarDisplay display;
        std::optional<SystemGlance> glance;
        const char* title;
        bool bar;
        const char* label;
    };
    const Case cases[] = {
        {"bar and percent", MenuBarDisplay::barAndPercent, half, "50%", true,
         "Kestrow Brimlet, memory 50% used, pressure normal, CPU 13%, 123.5 GB free"},
        {"bar alone", MenuBarDisplay::bar, half, "", true,
         "Kestrow Brimlet, memory 50% used, pressure normal, CPU 13%, 123.5 GB free"},
        {"icon alone", MenuBarDisplay::iconOnly, half, "", false,
         "Kestrow Brimlet, memory 50% used, pressure normal, CPU 13%, 123.5 GB free"},
        {"before the first glance", MenuBarDisplay::barAndPercent, std::nullopt, "", true, "Kestrow Brimlet"},
        {"used above total", MenuBarDisplay::barAndPercent, overfull, "100%", true,
         "Kestrow Brimlet, memory 100% used, pressure warning"},
        {"nothing readable but the pressure", MenuBarDisplay::barAndPercent, unreadable, "", true,
         "Kestrow Brimlet, pressure critical"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(R::menuBarTitle(c.display, c.glance), c.title) << c.what;
        EXPECT_EQ(R::menuBarShowsBar(c.display), c.bar) << c.what;
        EXPECT_EQ(R::menuBarAccessibilityLabel(c.glance), c.label) << c.what;
    }
}

TEST(MonitorReadout, WordsOfEveryState) {
    struct Case {
        ThermalLevel thermal;
        const char* word;
        const char* throttling;
    };
    const Case thermal[] = {
        {ThermalLevel::nominal, "Nominal", "No"},
        {ThermalLevel::fair, "Fair", "Not yet"},
        {ThermalLevel::serious, "Serious", "Yes"},
        {ThermalLevel::critical, "Critical", "Heavily"},
    };
    for (const Case& c : thermal) {
        EXPECT_EQ(R::thermalWord(c.thermal), c.word);
        EXPECT_EQ(R::throttlingLine(c.thermal), ScreenWording::forThisPlatform().thermalCaption + " " + c.throttling)
            << c.word;
    }
    EXPECT_EQ(R::pressureWord(MemoryPressure::normal), "Normal");
    EXPECT_EQ(R::pressureWord(MemoryPressure::warning), "Warning");
    EXPECT_EQ(R::pressureWord(MemoryPressure::critical), "Critical");
    EXPECT_EQ(R::gradedLabel("Memory", Rating::fair), "Memory, Fair");
}

TEST(MonitorReadout, SizesAndApplicationRows) {
    // Memory in binary divisors, disk in decimal units, as everywhere in the product.
    EXPECT_EQ(R::memoryUsage(8 * GiB, 16 * GiB), "8.00 GB of 16.00 GB");
    EXPECT_EQ(R::diskSpace(123'456'789'012ULL, 494'384'795'648ULL), "123.5 GB free of 494.4 GB");
    EXPECT_EQ(R::diskSpace(999, 0), "999 B free");
    EXPECT_EQ(R::diskRates(2'048.7, 1'500'000), "Read 2 KB/s · Write 2 MB/s");
    EXPECT_EQ(R::diskRates(std::nullopt, 0), "Read — · Write 0 B/s");

    AppGroup safari;
    safari.name = "Safari";
    safari.footprint = GiB + GiB / 4;
    EXPECT_EQ(R::appRowLabel(safari), "Safari, 1.25 GB");
    safari.cpuPercent = 140.2;
    EXPECT_EQ(R::appRowLabel(safari), "Safari, 1.25 GB, CPU 140%");
    EXPECT_EQ(R::quitTitle("Safari"), "Quit Safari?");
    EXPECT_EQ(R::quitControlLabel("Safari"), "Quit Safari");
}

TEST(FloatingMonitorStyle, FadingLooksStepBackAndOnlySolidIsOpaque) {
    struct Case {
        FloatingLook look;
        double alpha;
        bool material;
    };
    const Case cases[] = {
        {FloatingLook::glass, 1.0, true},
        {FloatingLook::solid, 1.0, false},
        {FloatingLook::subtle, 0.7, true},
        {FloatingLook::faint, 0.35, true},
    };
    for (const Case& c : cases) {
        EXPECT_DOUBLE_EQ(FloatingMonitorStyle::idleAlpha(c.look), c.alpha) << c.look.rawValue();
        EXPECT_EQ(FloatingMonitorStyle::usesMaterial(c.look), c.material) << c.look.rawValue();
    }
}

JsonValue corner(JsonValue x, JsonValue y) {
    JsonObject object;
    object["x"] = std::move(x);
    object["y"] = std::move(y);
    return JsonValue(std::move(object));
}

TEST(FloatingMonitorPlace, ReadsOnlyAWholeCornerAndWritesOnlyWhenTheRunPersists) {
    struct Case {
        const char* what;
        std::optional<JsonValue> stored;
        std::optional<Point> read;
    };
    JsonObject onlyX;
    onlyX["x"] = JsonValue(10.0);
    const Case cases[] = {
        {"nothing stored", std::nullopt, std::nullopt},
        {"a corner", corner(JsonValue(120.5), JsonValue(900.0)), Point{120.5, 900}},
        {"whole numbers", corner(JsonValue(std::int64_t{-40}), JsonValue(std::int64_t{700})), Point{-40, 700}},
        {"a string", JsonValue(std::string("{120, 900}")), std::nullopt},
        {"a missing y", JsonValue(onlyX), std::nullopt},
        {"a text for a number", corner(JsonValue(std::string("1")), JsonValue(2.0)), std::nullopt},
    };
    for (const Case& c : cases) {
        InMemoryUserDefaults defaults;
        if (c.stored) {
            ASSERT_TRUE(defaults.set(std::string(FloatingMonitorPlace::key), *c.stored).ok());
        }
        EXPECT_EQ(FloatingMonitorPlace(defaults, true).topLeft(), c.read) << c.what;
    }

    for (const bool persists : {true, false}) {
        InMemoryUserDefaults defaults;
        FloatingMonitorPlace place(defaults, persists);
        place.moved(Point{300, 640});
        EXPECT_EQ(place.topLeft(), (Point{300, 640}));
        // A later run reads what this one stored, or nothing after a run that keeps settings untouched.
        EXPECT_EQ(FloatingMonitorPlace(defaults, true).topLeft(),
                  persists ? std::optional(Point{300, 640}) : std::nullopt);
    }
}

}  // namespace
}  // namespace brimlet
