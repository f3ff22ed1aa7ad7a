#include <gtest/gtest.h>

#include "FakeHotKeys.hpp"
#include "suite/ui/FloatingLayout.hpp"
#include "suite/ui/SuiteFormat.hpp"
#include "tests/support/ManualMainLoop.hpp"

namespace kestrow::suite {
namespace {

const NumberLocale english{".", ",", 3};
const NumberLocale german{",", ".", 3};
const NumberLocale french{",", "\u202F", 3};  // a narrow no-break space between groups
const std::string nbsp = "\u00A0";

GlanceMetric number(double value, std::string unit) { return GlanceMetric{"m", "Metric", value, std::move(unit), {}}; }

TEST(SuiteFormat, NumbersUnitsAndWordsFollowTheLocale) {
    struct Case {
        GlanceMetric metric;
        NumberLocale locale;
        std::string expected;
    };
    const Case cases[] = {
        {number(12.5, "%"), english, "12.5" + nbsp + "%"},
        {number(12.5, "%"), german, "12,5" + nbsp + "%"},
        {number(12.5, ""), english, "12.5"},
        {number(12.5, ""), german, "12,5"},
        {number(0, "GB"), english, "0.0" + nbsp + "GB"},
        {number(999.96, ""), english, "1,000.0"},
        {number(1234567.25, "MB/s"), english, "1,234,567.3" + nbsp + "MB/s"},
        {number(1234567.25, "MB/s"), german, "1.234.567,3" + nbsp + "MB/s"},
        {number(1234.5, ""), french, "1\u202F234,5"},
        {number(1234.5, ""), NumberLocale{".", ",", 0}, "1234.5"},
        {number(-3.25, "°C"), english, "-3.3" + nbsp + "°C"},
        {number(-0.04, ""), english, "0.0"},  // no "-0.0"
        {number(1e16, ""), english, "10,000,000,000,000,000.0"},
        {GlanceMetric{"s", "State", StateWord(StateWord::paused), "", {}}, english, "paused"},
        {GlanceMetric{"s", "State", StateWord(StateWord::none), "x", {}}, german, "none"},
    };
    for (const Case& c : cases) EXPECT_EQ(SuiteFormat::text(c.metric, c.locale), c.expected) << c.expected;
    EXPECT_EQ(SuiteFormat::number(std::numeric_limits<double>::quiet_NaN(), english), "\u2014");
}

TEST(SuiteFormat, LevelWordsAndTheAccessibilityLabel) {
    EXPECT_EQ(SuiteFormat::levelWord(GlanceLevel::ok), "ok");
    EXPECT_EQ(SuiteFormat::levelWord(GlanceLevel::notice), "notice");
    EXPECT_EQ(SuiteFormat::levelWord(GlanceLevel::alert), "alert");
    const SuiteValues values{
        {MetricRef{SuiteApp::brimlet, "mem"}, number(61.25, "%")},
        {MetricRef{SuiteApp::fennick, "net"}, GlanceMetric{"net", "Net", StateWord(StateWord::blocked), "", {}}}};
    EXPECT_EQ(SuiteFormat::accessibilityLabel(values, GlanceLevel::alert, german),
              "Kestrow suite 61,3" + nbsp + "% blocked alert");
    EXPECT_EQ(SuiteFormat::accessibilityLabel({}, GlanceLevel::ok, english), "Kestrow suite ok");
}

TEST(SuiteFormat, TheItemsTitleAndSymbolFollowTheValuesAndTheWorstLevel) {
    struct Case {
        const char* what;
        SuiteValues values;
        GlanceLevel worst;
        std::string title;
        std::string_view symbol;
    };
    const GlanceMetric blocked{"net", "Net", StateWord(StateWord::blocked), "", {}};
    const Case cases[] = {
        {"nothing to show", {}, GlanceLevel::ok, "", "square.grid.2x2"},
        {"one value",
         {{MetricRef{SuiteApp::brimlet, "mem"}, number(61.25, "%")}},
         GlanceLevel::notice,
         "61.3" + nbsp + "%",
         "exclamationmark.circle"},
        {"two values",
         {{MetricRef{SuiteApp::brimlet, "mem"}, number(61.25, "%")}, {MetricRef{SuiteApp::fennick, "net"}, blocked}},
         GlanceLevel::alert,
         "61.3" + nbsp + "% \u00B7 blocked",
         "exclamationmark.triangle.fill"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(SuiteFormat::itemTitle(c.values, english), c.title) << c.what;
        EXPECT_EQ(SuiteFormat::itemSymbol(c.worst), c.symbol) << c.what;
    }
}

TEST(SuiteFormat, RowLinesCarryNameValuesGlyphAndWhatVoiceOverReads) {
    const GlanceMetric memory{"mem", "Memory", 61.25, "%", GlanceLevel::notice};
    const GlanceMetric network{"net", "", StateWord(StateWord::blocked), "", GlanceLevel::ok};
    struct Case {
        const char* what;
        SuiteRow row;
        NumberLocale locale;
        SuiteRowLine expected;
    };
    const Case cases[] = {
        {"not running",
         SuiteRow{SuiteApp(SuiteApp::corvane)},
         english,
         {SuiteApp::corvane, false, GlanceLevel::ok, "Corvane", "not running", "minus.circle", "Corvane, not running"}},
        {"running without metrics",
         SuiteRow{GlanceRecord(SuiteApp::garrow, false, GlanceState::running, 0, 10, GlanceLevel::ok, {})},
         english,
         {SuiteApp::garrow, true, GlanceLevel::ok, "Garrow", "", "checkmark.circle", "Garrow, ok"}},
        {"two metrics, one without a label, in German",
         SuiteRow{GlanceRecord(SuiteApp::brimlet, true, GlanceState::running, 0, 10, GlanceLevel::notice,
                               {memory, network})},
         german,
         {SuiteApp::brimlet, true, GlanceLevel::notice, "Brimlet", "61,3" + nbsp + "% \u00B7 blocked",
          "exclamationmark.circle", "Brimlet, Memory 61,3" + nbsp + "%, blocked, notice"}},
        {"alert",
         SuiteRow{GlanceRecord(SuiteApp::jessap, false, GlanceState::running, 0, 10, GlanceLevel::alert, {network})},
         english,
         {SuiteApp::jessap, true, GlanceLevel::alert, "Jessap", "blocked", "exclamationmark.triangle.fill",
          "Jessap, blocked, alert"}},
    };
    for (const Case& c : cases) EXPECT_EQ(SuiteFormat::rowLine(c.row, c.locale), c.expected) << c.what;
}

TEST(SuiteFormat, TheShowBarControlNamesTheShortcutOnlyWhenItIsOurs) {
    EXPECT_EQ(SuiteFormat::showBarLabel(false), "Show floating bar");
    EXPECT_EQ(SuiteFormat::showBarLabel(true), "Show floating bar, shortcut \u2303\u2325M");
}

TEST(SuiteStatusItemPosition, ReadsOnlyNumbersUnderTheStatusBarsKey) {
    InMemoryUserDefaults defaults;
    EXPECT_EQ(SuiteStatusItemPosition::autosaveName, "KestrowSuite");
    EXPECT_FALSE(SuiteStatusItemPosition::read(defaults));
    ASSERT_TRUE(SuiteStatusItemPosition::write(1187.5, defaults).ok());
    EXPECT_EQ(SuiteStatusItemPosition::read(defaults), 1187.5);
    EXPECT_EQ(defaults.number("NSStatusItem Preferred Position KestrowSuite"), 1187.5);
    for (const JsonValue& other : {JsonValue("1187.5"), JsonValue(true), JsonValue(nullptr)}) {
        ASSERT_TRUE(defaults.set("NSStatusItem Preferred Position KestrowSuite", other).ok());
        EXPECT_FALSE(SuiteStatusItemPosition::read(defaults));
    }
    ASSERT_TRUE(defaults.set("NSStatusItem Preferred Position KestrowSuite", JsonValue(300)).ok());
    EXPECT_EQ(SuiteStatusItemPosition::read(defaults), 300.0);
}

// Two screens side by side: a laptop panel at the origin and a larger display to its right, each
// with a menu bar (25 points) taken off its top.
const Rect laptop{{0, 0}, {1440, 875}};
const Rect display{{1440, 0}, {2560, 1415}};
const Size bar{320, 44};

TEST(FloatingLayout, InitialAndRestoredFrames) {
    EXPECT_EQ(FloatingLayout::initialFrame(bar, laptop), (Rect{{1440 - 16 - 320, 875 - 16 - 44}, bar}));
    EXPECT_EQ(FloatingLayout::initialFrame(bar, display), (Rect{{4000 - 16 - 320, 1415 - 16 - 44}, bar}));

    struct Case {
        const char* what;
        std::optional<Point> topLeft;
        std::vector<Rect> screens;
        std::optional<Rect> expected;
    };
    const Case cases[] = {
        {"no stored corner", std::nullopt, {laptop, display}, std::nullopt},
        {"on the laptop", Point{100, 500}, {laptop, display}, Rect{{100, 456}, bar}},
        {"on the display", Point{2000, 1000}, {laptop, display}, Rect{{2000, 956}, bar}},
        {"the display was disconnected", Point{2000, 1000}, {laptop}, std::nullopt},
        {"within the 40-point margin of the edge", Point{20, 500}, {laptop}, std::nullopt},
        {"exactly 40 points in", Point{40, 40}, {laptop}, Rect{{40, 0}, bar}},  // clamped up onto the screen
        {"near the right edge: clamped in", Point{1390, 500}, {laptop}, Rect{{1440 - 320, 456}, bar}},
        {"no screens at all", Point{100, 500}, {}, std::nullopt},
        {"the first screen holding it wins", Point{100, 500}, {laptop, laptop}, Rect{{100, 456}, bar}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(FloatingLayout::restoredFrame(c.topLeft, bar, c.screens), c.expected) << c.what;

    // A disconnected screen's corner falls back to the main screen's top right, 16 points in.
    const auto restored = FloatingLayout::restoredFrame(Point{3000, 1200}, bar, {laptop});
    const Rect frame = restored.value_or(FloatingLayout::initialFrame(bar, laptop));
    EXPECT_EQ(frame.maxX(), laptop.maxX() - 16);
    EXPECT_EQ(frame.maxY(), laptop.maxY() - 16);
}

TEST(FloatingLayout, ResizingKeepsTheEdgeTheEyeExpects) {
    const Size expanded{480, 300};
    struct Case {
        const char* what;
        Rect frame;
        Size to;
        Rect expected;
    };
    const Case cases[] = {
        {"free on screen: left and top stay", {{200, 500}, bar}, expanded, {{200, 244}, expanded}},
        {"against the right edge: grows to the left",
         {{1440 - 320, 500}, bar},
         expanded,
         {{1440 - 480, 244}, expanded}},
        {"60 points from the right edge still counts",
         {{1440 - 60 - 320, 500}, bar},
         expanded,
         {{1440 - 60 - 480, 244}, expanded}},
        {"61 points from the right edge does not",
         {{1440 - 61 - 320, 500}, bar},
         expanded,
         {{1440 - 480, 244}, expanded}},  // left edge kept, then clamped in
        {"near the bottom: grows upwards", {{200, 30}, bar}, expanded, {{200, 30}, expanded}},
        {"bottom right corner: grows left and up", {{1440 - 320, 0}, bar}, expanded, {{1440 - 480, 0}, expanded}},
        {"collapsing near the right edge keeps the right edge",
         {{1440 - 480, 244}, expanded},
         bar,
         {{1440 - 320, 500}, bar}},
        {"collapsing near the bottom keeps the bottom", {{200, 10}, expanded}, bar, {{200, 10}, bar}},
        {"growing past the top is clamped down", {{200, 875 - 44}, bar}, expanded, {{200, 875 - 300}, expanded}},
    };
    for (const Case& c : cases) EXPECT_EQ(FloatingLayout::resized(c.frame, c.to, laptop), c.expected) << c.what;
}

TEST(FloatingLayout, ClampingKeepsRightAndTopEdgesOfOversizedFrames) {
    struct Case {
        const char* what;
        Rect frame;
        Rect expected;
    };
    const Case cases[] = {
        {"inside: unchanged", {{100, 100}, bar}, {{100, 100}, bar}},
        {"off the left and bottom", {{-50, -20}, bar}, {{0, 0}, bar}},
        {"off the right and top", {{1400, 900}, bar}, {{1440 - 320, 875 - 44}, bar}},
        {"wider and taller than the screen", {{-100, -100}, {2000, 1000}}, {{1440 - 2000, 875 - 1000}, {2000, 1000}}},
        {"on another screen entirely", {{3000, 100}, bar}, {{1440 - 320, 100}, bar}},
    };
    for (const Case& c : cases) EXPECT_EQ(FloatingLayout::clamped(c.frame, laptop), c.expected) << c.what;
    const Rect oversized = FloatingLayout::clamped({{0, 0}, {2000, 1000}}, laptop);
    EXPECT_EQ(oversized.maxX(), laptop.maxX());
    EXPECT_EQ(oversized.maxY(), laptop.maxY());
}

TEST(GlobalHotKey, OneHandlerSharedIdsAndADuplicateThatFails) {
    testing::FakeHotKeys system;
    ManualMainLoop loop;
    HotKeyCenter center(system, loop);
    EXPECT_EQ(GlobalHotKey::displayName, "⌃⌥M");
    const std::uint32_t controlOption = GlobalHotKey::controlOption;
    EXPECT_EQ(controlOption, 6144u);

    int first = 0, second = 0, other = 0;
    auto a = std::make_unique<GlobalHotKey>(center, GlobalHotKey::keyCodeM, controlOption, [&] { ++first; });
    EXPECT_TRUE(a->isRegistered());
    EXPECT_EQ(system.installs, 1);
    GlobalHotKey duplicate(center, GlobalHotKey::keyCodeM, controlOption, [&] { ++second; });
    EXPECT_FALSE(duplicate.isRegistered());
    GlobalHotKey different(center, 1, controlOption, [&] { ++other; });
    EXPECT_TRUE(different.isRegistered());
    EXPECT_EQ(system.installs, 1);  // one handler for the whole application
    EXPECT_NE(a->id(), duplicate.id());
    EXPECT_NE(a->id(), different.id());

    // The handler takes only our signature and known ids, and runs the action later on the loop.
    EXPECT_TRUE(system.press(HotKeyCenter::signature, a->id()));
    EXPECT_EQ(first, 0);
    loop.runPending();
    EXPECT_EQ(first, 1);
    EXPECT_FALSE(system.press(HotKeyCenter::signature, duplicate.id()));
    EXPECT_FALSE(system.press(0x41424344, a->id()));
    EXPECT_FALSE(system.press(HotKeyCenter::signature, 999));
    loop.runPending();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 0);

    // Pressed, then invalidated before the loop came round: nothing runs.
    EXPECT_TRUE(system.press(HotKeyCenter::signature, a->id()));
    const std::uint32_t oldId = a->id();
    a.reset();
    loop.runPending();
    EXPECT_EQ(first, 1);
    EXPECT_FALSE(system.press(HotKeyCenter::signature, oldId));

    // With the first gone the keys are free again; the handler stays while shortcuts remain.
    GlobalHotKey again(center, GlobalHotKey::keyCodeM, controlOption, [&] { ++second; });
    EXPECT_TRUE(again.isRegistered());
    EXPECT_EQ(system.removals, 0);
    duplicate.invalidate();
    different.invalidate();
    again.invalidate();
    again.invalidate();
    EXPECT_EQ(system.removals, 1);
    EXPECT_TRUE(system.held.empty());
}

}  // namespace
}  // namespace kestrow::suite
