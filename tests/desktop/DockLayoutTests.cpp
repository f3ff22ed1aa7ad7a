#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "core/desktop/DockLayout.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

constexpr double screenHeight = 1117;

AppGroup app(const std::string& path, std::uint64_t footprint, std::optional<double> cpu = std::nullopt) {
    AppGroup g;
    g.id = path;
    g.name = path.substr(path.rfind('/') + 1);
    g.bundlePath = path;
    g.footprint = footprint;
    g.cpuPercent = cpu;
    return g;
}

DockItem icon(std::optional<std::string> path, double x) {
    return DockItem{path ? path->substr(path->rfind('/') + 1) : "Downloads", std::move(path),
                    Rect{{x, 1050}, {60, 64}}};
}

TEST(DockLayout, NormalizedPathsAndFrames) {
    const std::pair<const char*, const char*> paths[] = {
        {"/Applications/Safari.app/", "/Applications/Safari.app"},
        {"/Applications/Safari.app///", "/Applications/Safari.app"},
        {"/Applications/./Safari.app", "/Applications/Safari.app"},
        {"/Applications/Utilities/../Safari.app", "/Applications/Safari.app"},
        {"/Applications//Safari.app", "/Applications/Safari.app"},
        {"/", "/"},
        {"///", "/"},
        {"/Applications/Safari.app", "/Applications/Safari.app"},
    };
    for (const auto& [path, expected] : paths) EXPECT_EQ(DockLayout::normalized(path), expected) << path;

    EXPECT_EQ(DockLayout::cocoaFrame(Rect{{10, 20}, {30, 40}}, 900), (Rect{{10, 840}, {30, 40}}));
    EXPECT_EQ(DockLayout::cocoaFrame(Rect{{0, 1050}, {60, 67}}, 1117), (Rect{{0, 0}, {60, 67}}));
    // A frame given with a negative size is the same rectangle, spanned from its other corner.
    EXPECT_EQ(DockLayout::cocoaFrame(Rect{{40, 60}, {-30, -40}}, 900), (Rect{{10, 840}, {30, 40}}));
    // A secondary screen above the primary one has negative Accessibility y.
    EXPECT_EQ(DockLayout::cocoaFrame(Rect{{5, -500}, {60, 64}}, 900), (Rect{{5, 1336}, {60, 64}}));
}

TEST(DockLayout, SpokenLabelNamesTheAppTheMetricAndTheFigure) {
    EXPECT_EQ(DockLayout::spokenLabel("Safari", "Memory", "1.2 GB"), "Safari: Memory 1.2 GB");
    EXPECT_EQ(DockLayout::spokenLabel("Xcode", "CPU", "85%"), "Xcode: CPU 85%");
}

TEST(DockLayout, CompactMemoryTexts) {
    const std::pair<std::uint64_t, const char*> cases[] = {
        {1'073'741'824, "1.0 GB"}, {524'288'000, "500 MB"},          {1'073'741'823, "1024 MB"}, {0, "0 MB"},
        {1'610'612'736, "1.5 GB"}, {UINT64_MAX, "17179869184.0 GB"}, {524'287'999, "500 MB"},    {786'432, "1 MB"},
    };
    for (const auto& [bytes, text] : cases) EXPECT_EQ(DockLayout::compactMemory(bytes), text) << bytes;
}

TEST(DockLayout, MemoryBadgesAtTheirThresholds) {
    const DockBadgeSettings defaults;
    ASSERT_EQ(defaults.memoryThreshold, 524'288'000u);
    const std::vector<AppGroup> apps{
        app("/Applications/Heavy.app", 2'097'152'000),      // exactly four times: heavy
        app("/Applications/Almost.app", 2'097'151'999),     // one byte short of heavy
        app("/Applications/AtThreshold.app", 524'288'000),  // exactly the threshold: a badge
        app("/Applications/Below.app", 524'287'999),        // one byte less: none
    };
    const std::vector<DockItem> items{
        icon("/Applications/Below.app", 0),
        icon("/Applications/AtThreshold.app/", 60),
        icon(std::nullopt, 120),
        icon("/Applications/NotRunning.app", 180),
        icon("/Applications/./Almost.app", 240),
        icon("/Applications/Heavy.app", 300),
    };
    const auto badges = DockLayout::badges(items, apps, DockBadgeMetric::memory, defaults, screenHeight);
    const std::vector<DockBadge> expected{
        {"/Applications/AtThreshold.app", Rect{{60, 3}, {60, 64}}, "500 MB", false},
        {"/Applications/Almost.app", Rect{{240, 3}, {60, 64}}, "2.0 GB", false},
        {"/Applications/Heavy.app", Rect{{300, 3}, {60, 64}}, "2.0 GB", true},
    };
    EXPECT_EQ(badges, expected);  // in the order of the Dock's icons, not of the groups
}

TEST(DockLayout, CpuBadgesAtTheirThresholds) {
    const std::vector<AppGroup> apps{
        app("/Applications/Exact.app", 1, 10.0),   app("/Applications/Below.app", 1, 9.99),
        app("/Applications/None.app", 1),          app("/Applications/NaN.app", 1, std::nan("")),
        app("/Applications/Heavy.app", 1, 40.0),   app("/Applications/Near.app", 1, 39.9),
        app("/Applications/Inf.app", 1, INFINITY), app("/Applications/Many.app", 1, 812.6),
    };
    std::vector<DockItem> items;
    for (const AppGroup& g : apps) items.push_back(icon(g.bundlePath, 0));
    const auto badges = DockLayout::badges(items, apps, DockBadgeMetric::cpu, DockBadgeSettings(), screenHeight);
    std::vector<std::tuple<std::string, std::string, bool>> seen;
    for (const DockBadge& b : badges) seen.emplace_back(b.id, b.text, b.isHeavy);
    const std::vector<std::tuple<std::string, std::string, bool>> expected{
        {"/Applications/Exact.app", "10%", false},
        {"/Applications/Heavy.app", "40%", true},
        {"/Applications/Near.app", "40%", false},
        {"/Applications/Many.app", "813%", true},
    };
    EXPECT_EQ(seen, expected);
}

TEST(DockLayout, SharedBundlePathKeepsTheLargerGroupAndCommandLineGroupsNeverMatch) {
    AppGroup commandLine = app("/usr/bin/node", 9'000'000'000);
    commandLine.bundlePath.reset();
    const std::vector<AppGroup> apps{app("/Applications/Twin.app/", 900'000'000),
                                     app("/Applications/Twin.app", 600'000'000), commandLine};
    const std::vector<DockItem> items{icon("/Applications/Twin.app", 0), icon("/usr/bin/node", 60)};
    const auto badges = DockLayout::badges(items, apps, DockBadgeMetric::memory, DockBadgeSettings(), screenHeight);
    ASSERT_EQ(badges.size(), 1u);
    EXPECT_EQ(badges[0].id, "/Applications/Twin.app/");
    EXPECT_EQ(badges[0].text, "858 MB");
}

// A tile that names a link to where the application really runs from (Safari's Cryptex volume)
// gets the badge of the group found at the real path; a tile whose real path is another gets none.
TEST(DockLayout, ATileMatchesTheGroupWhoseRealPathAgrees) {
    kestrow::testing::TempFolder root;
    std::filesystem::create_directories(root / "Cryptex/Safari.app");
    std::filesystem::create_directories(root / "Applications");
    std::filesystem::create_directories(root / "Other.app");
    std::filesystem::create_directory_symlink(root / "Cryptex/Safari.app", root / "Applications/Safari.app");
    const std::vector<AppGroup> apps{app(root / "Cryptex/Safari.app", 900'000'000)};
    const std::vector<DockItem> items{icon(root / "Applications/Safari.app", 0), icon(root / "Other.app", 60),
                                      icon(root / "Missing.app", 120)};
    const auto badges = DockLayout::badges(items, apps, DockBadgeMetric::memory, DockBadgeSettings(), screenHeight);
    ASSERT_EQ(badges.size(), 1u);
    EXPECT_EQ(badges[0].id, root / "Cryptex/Safari.app");
    EXPECT_EQ(badges[0].iconFrame.origin.x, 0);
}

TEST(DockLayoutDeathTest, QuadrupledThresholdOverflowIsFatalOnlyWhenReached) {
    DockBadgeSettings settings;
    settings.memoryThreshold = 1ULL << 62;
    const std::vector<DockItem> items{icon("/Applications/Huge.app", 0)};
    // Below the absurd threshold nothing is computed, so nothing fails.
    EXPECT_TRUE(DockLayout::badges(items, {app("/Applications/Huge.app", 1ULL << 40)}, DockBadgeMetric::memory,
                                   settings, screenHeight)
                    .empty());
    EXPECT_DEATH(DockLayout::badges(items, {app("/Applications/Huge.app", 1ULL << 62)}, DockBadgeMetric::memory,
                                    settings, screenHeight),
                 "overflows when quadrupled");
    settings.memoryThreshold = (1ULL << 62) - 1;  // the largest threshold whose quadruple fits
    const auto badges = DockLayout::badges(items, {app("/Applications/Huge.app", UINT64_MAX)}, DockBadgeMetric::memory,
                                           settings, screenHeight);
    ASSERT_EQ(badges.size(), 1u);
    EXPECT_TRUE(badges[0].isHeavy);
}

TEST(DockLayout, DockVisibleWhenMostIconsAreWhollyOnAScreen) {
    const Rect main{{0, 0}, {1728, 1117}};
    const Rect side{{1728, -200}, {1920, 1080}};
    const Rect on{{100, 1050}, {60, 64}};
    const Rect onEdge{{1668, 1053}, {60, 64}};     // touching the right and bottom edges: still inside
    const Rect below{{100, 1117}, {60, 64}};       // auto-hidden below the screen
    const Rect straddling{{1700, 500}, {60, 64}};  // half on each screen: wholly on neither
    const Rect onSide{{1800, 0}, {60, 64}};
    struct Case {
        std::vector<Rect> icons;
        std::vector<Rect> screens;
        bool visible;
    };
    const Case cases[] = {
        {{}, {main}, false},
        {{on}, {}, false},
        {{on, below}, {main}, false},  // exactly half is not more than half
        {{on, onEdge, below}, {main}, true},
        {{on, straddling, below}, {main, side}, false},
        {{on, onSide, straddling}, {main, side}, true},
        {{below, below, below}, {main}, false},
        {{Rect{{std::nan(""), 0}, {60, 64}}}, {main}, false},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(DockLayout::isDockVisible(cases[i].icons, cases[i].screens), cases[i].visible) << "case " << i;
}

TEST(DockBadgeSettings, JsonNeedsBothKeysAndFallsBackToDefaults) {
    const DockBadgeSettings defaults;
    EXPECT_EQ(*defaults.encoded(), R"({"cpuThreshold":10,"memoryThreshold":524288000})");

    DockBadgeSettings custom;
    custom.memoryThreshold = UINT64_MAX;
    custom.cpuThreshold = 12.5;
    ASSERT_TRUE(custom.encoded().ok());
    EXPECT_EQ(DockBadgeSettings::decode(*custom.encoded()), custom);  // 2^64 − 1 survives exactly

    custom.cpuThreshold = std::nan("");
    EXPECT_FALSE(custom.encoded().ok());

    const char* refused[] = {
        R"({"memoryThreshold":1})",
        R"({"cpuThreshold":1})",
        R"({"memoryThreshold":-1,"cpuThreshold":1})",
        R"({"memoryThreshold":1.5,"cpuThreshold":1})",
        R"({"memoryThreshold":"1","cpuThreshold":1})",
        R"({"memoryThreshold":1,"cpuThreshold":null})",
        R"({"memoryThreshold":18446744073709551616,"cpuThreshold":1})",
        R"([524288000,10])",
        R"({"memoryThreshold":1,"cpuThreshold":1)",
        "",
    };
    for (const char* text : refused) {
        EXPECT_FALSE(DockBadgeSettings::decode(text)) << text;
        EXPECT_EQ(DockBadgeSettings::decodedOrDefault(std::string(text)), defaults) << text;
    }
    EXPECT_EQ(DockBadgeSettings::decodedOrDefault(std::nullopt), defaults);
    EXPECT_EQ(DockBadgeSettings::decode(R"({"cpuThreshold":25,"memoryThreshold":2e9,"extra":true})"),
              (DockBadgeSettings{2'000'000'000, 25.0}));
}

TEST(DockBadgeMetric, CasesInOrderWithTitles) {
    std::vector<std::string_view> seen;
    for (const DockBadgeMetric& metric : DockBadgeMetric::allCases()) seen.push_back(metric.title());
    EXPECT_EQ(seen, (std::vector<std::string_view>{"Memory", "CPU"}));
    EXPECT_EQ(DockBadgeMetric::fromRawValue("cpu"), DockBadgeMetric::cpu);
}

}  // namespace
}  // namespace brimlet
