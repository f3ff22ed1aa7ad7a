#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

#include "app/screens/DashboardFigures.hpp"
#include "app/screens/SettingsChoices.hpp"
#include "app/stores/LiveSurface.hpp"

namespace brimlet {
namespace {

TEST(LiveSurface, EachAppearanceIsMatchedByExactlyOneDisappearance) {
    struct Case {
        const char* name;
        std::vector<bool> reports;  // what the window system reported, in order
        bool destroyAtEnd;
        int appeared;
        int disappeared;
    };
    const Case cases[] = {
        {"opened, then closed", {true, false}, false, 1, 1},
        {"brought forward twice while on screen", {true, true, true}, false, 1, 0},
        {"miniaturised, then closed from the Dock", {true, false, false}, false, 1, 1},
        {"miniaturised and restored twice", {true, false, true, false, true}, false, 3, 2},
        {"closed before it was ever shown", {false}, false, 0, 0},
        {"goes away while on screen", {true}, true, 1, 1},
        {"goes away while closed", {true, false}, true, 1, 1},
    };
    for (const Case& c : cases) {
        int appeared = 0;
        int disappeared = 0;
        auto surface = std::make_unique<LiveSurface>([&] { ++appeared; }, [&] { ++disappeared; });
        for (bool onScreen : c.reports) surface->setOnScreen(onScreen);
        if (c.destroyAtEnd) surface.reset();
        EXPECT_EQ(appeared, c.appeared) << c.name;
        EXPECT_EQ(disappeared, c.disappeared) << c.name;
    }
}

MonitorSnapshot snapshotWith(std::optional<double> cpu, std::uint64_t swap, MemoryPressure pressure,
                             std::uint64_t diskFree, std::optional<double> gpu, ThermalLevel thermal) {
    MonitorSnapshot s;
    s.system.memoryTotal = 17'179'869'184ULL;
    s.system.memoryUsed = 8'589'934'592ULL;
    s.system.memoryCompressed = 1'073'741'824ULL;
    s.system.memoryWired = 2'147'483'648ULL;
    s.system.cpuLoad = cpu;
    s.system.swapUsed = swap;
    s.system.pressure = pressure;
    s.system.diskFree = diskFree;
    s.system.diskTotal = 494'384'795'648ULL;
    s.system.gpuUtilization = gpu;
    s.system.thermal = thermal;
    s.system.diskReadPerSecond = 2'048.7;
    return s;
}

const DashboardFigure& figure(const std::vector<DashboardFigure>& figures, std::string_view id) {
    for (const auto& f : figures)
        if (f.id == id) return f;
    static const DashboardFigure none;
    ADD_FAILURE() << "no figure " << id;
    return none;
}

TEST(DashboardFigures, ValuesAndGradesFollowTheSample) {
    struct Expect {
        std::string_view id;
        std::string value;
        std::optional<Rating> rating;
    };
    struct Case {
        MonitorSnapshot snapshot;
        std::vector<Expect> expect;
    };
    const Case cases[] = {
        {snapshotWith(std::nullopt, 0, MemoryPressure::normal, 60'000'000'000ULL, std::nullopt, ThermalLevel::nominal),
         {{"memory", "8.00 GB", Rating::great},
          {"pressure", "Normal", std::nullopt},
          {"swap", "0 KB", std::nullopt},
          {"cpu", "\u2014", std::nullopt},
          {"gpu", "\u2014", std::nullopt},
          {"diskRead", "2 KB/s", std::nullopt},
          {"diskWrite", "\u2014", std::nullopt},
          {"diskFree", "60.0 GB", Rating::great},
          {"thermal", "No", Rating::great}}},
        {snapshotWith(40.0, 1'073'741'824ULL, MemoryPressure::normal, 21'474'836'480ULL, 55.4, ThermalLevel::fair),
         {{"memory", "8.00 GB", Rating::good},
          {"swap", "1.00 GB", std::nullopt},
          {"cpu", "40%", Rating::good},
          {"gpu", "55%", std::nullopt},
          {"diskFree", "21.5 GB", Rating::good},
          {"thermal", "Not yet", Rating::good}}},
        {snapshotWith(90.0, 0, MemoryPressure::critical, 100, 0.0, ThermalLevel::critical),
         {{"memory", "8.00 GB", Rating::poor},
          {"pressure", "Critical", std::nullopt},
          {"cpu", "90%", Rating::poor},
          {"gpu", "0%", std::nullopt},
          {"diskFree", "100 B", Rating::poor},
          {"thermal", "Heavily", Rating::poor}}},
    };
    for (const Case& c : cases) {
        const auto figures = DashboardFigures::figures(c.snapshot);
        ASSERT_EQ(figures.size(), 9u);
        for (const Expect& e : c.expect) {
            const auto& f = figure(figures, e.id);
            EXPECT_EQ(f.value, e.value) << e.id;
            EXPECT_EQ(f.rating, e.rating) << e.id;
        }
    }
    const auto figures = DashboardFigures::figures(cases[1].snapshot);
    EXPECT_EQ(figure(figures, "memory").detail, "of 16.00 GB \u00B7 1.00 GB compressed \u00B7 2.00 GB wired");
    EXPECT_EQ(figure(figures, "cpu").accessibilityLabel(), "CPU, 40%, All cores, Good");
    EXPECT_EQ(figure(figures, "gpu").accessibilityLabel(), "GPU, 55%, Busiest graphics processor");
}

TEST(DashboardFigures, HiddenProcessNote) {
    const std::pair<std::int64_t, std::string> notes[] = {
        {0, ""},
        {-1, ""},
        {1, "1 process could not be read (it belongs to the system or another user)."},
        {42, "42 processes could not be read (they belong to the system or other users)."}};
    for (const auto& [count, text] : notes) EXPECT_EQ(DashboardFigures::hiddenProcessNote(count), text);
}

HistoryPoint point(std::uint64_t memory, std::optional<double> cpu, std::optional<double> read,
                   std::optional<double> write) {
    HistoryPoint p;
    p.memoryUsed = memory;
    p.cpuLoad = cpu;
    p.diskReadPerSecond = read;
    p.diskWritePerSecond = write;
    return p;
}

TEST(DashboardCharts, SeriesKeepGapsAndSummariesSkipThem) {
    MetricsHistory history(150);
    history.append(point(1'073'741'824ULL, std::nullopt, std::nullopt, std::nullopt));  // the first sample
    history.append(point(3'221'225'472ULL, 87.0, 5'000'000.0, 1'000.0));
    history.append(point(2'147'483'648ULL, 3.2, 0.0, 2'500.0));
    history.append(point(2'147'483'648ULL, 12.0, std::nullopt, 400.0));

    struct Case {
        ChartLine line;
        std::size_t known;
        std::string summary;
    };
    const Case cases[] = {
        {ChartLine::memory, 4, "Memory over the last 5 minutes: lowest 1.00 GB, highest 3.00 GB, now 2.00 GB"},
        {ChartLine::cpu, 3, "CPU over the last 5 minutes: lowest 3%, highest 87%, now 12%"},
        {ChartLine::diskRead, 2, "Disk reads over the last 5 minutes: lowest 0 B/s, highest 5 MB/s, now 0 B/s"},
        {ChartLine::diskWrite, 3, "Disk writes over the last 5 minutes: lowest 400 B/s, highest 2 KB/s, now 400 B/s"},
    };
    for (const Case& c : cases) {
        const auto s = DashboardCharts::series(history, c.line);
        ASSERT_EQ(s.values.size(), 4u) << c.line.rawValue();
        EXPECT_EQ(static_cast<std::size_t>(
                      std::count_if(s.values.begin(), s.values.end(), [](const auto& v) { return v.has_value(); })),
                  c.known)
            << c.line.rawValue();
        EXPECT_EQ(DashboardCharts::summary(s), c.summary);
    }
    EXPECT_EQ(DashboardCharts::summary(DashboardCharts::series(MetricsHistory(150), ChartLine::cpu)),
              "CPU over the last 5 minutes: no figures yet");
}

TEST(DashboardCharts, CeilingIsNeverZeroAndFitsTheLines) {
    const auto line = [](ChartLine l, std::vector<std::optional<double>> values) { return ChartSeries{l, values}; };
    struct Case {
        const char* name;
        std::vector<ChartSeries> lines;
        std::uint64_t memoryTotal;
        double ceiling;
    };
    const Case cases[] = {
        {"cpu is a percentage", {line(ChartLine::cpu, {12.0, 40.0})}, 0, 100},
        {"cpu above 100 still fits", {line(ChartLine::cpu, {130.0})}, 0, 130},
        {"memory scales to the machine", {line(ChartLine::memory, {4e9})}, 16'000'000'000ULL, 16e9},
        {"memory without a total scales to its largest value", {line(ChartLine::memory, {4e9, 5e9})}, 0, 5e9},
        {"memory with nothing known", {line(ChartLine::memory, {})}, 0, 1},
        {"a quiet disk keeps the floor",
         {line(ChartLine::diskRead, {10.0}), line(ChartLine::diskWrite, {})},
         0,
         1'000'000},
        {"a busy disk scales to the larger line",
         {line(ChartLine::diskRead, {2e6, std::nullopt}), line(ChartLine::diskWrite, {7e6})},
         0,
         7e6},
    };
    for (const Case& c : cases) EXPECT_EQ(DashboardCharts::ceiling(c.lines, c.memoryTotal), c.ceiling) << c.name;
}

TEST(AppTable, RowsCarryTheQuitControlsTexts) {
    MonitorSnapshot snapshot;
    AppGroup safari{"/Applications/Safari.app",
                    "Safari",
                    "/Applications/Safari.app",
                    {10, 11, 12},
                    1'342'177'280ULL,
                    4.25,
                    std::nullopt,
                    std::nullopt};
    AppGroup node{"cmd:node", "node", std::nullopt, {40}, 524'288'000ULL, std::nullopt, std::nullopt, std::nullopt};
    snapshot.apps = {safari, node};
    const auto rows = AppTable::rows(snapshot);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0],
              (AppRow{"/Applications/Safari.app", "Safari", "1.25 GB", "4.2%", "3", true, "Ask Safari to quit"}));
    EXPECT_EQ(rows[1], (AppRow{"cmd:node", "node", "500 MB", "\u2014", "1", false,
                               "Quit it from the app or terminal that started it."}));
}

TEST(SettingsChoices, ThresholdMenusListTheValueInEffect) {
    const auto values = [](const auto& choices) {
        std::vector<double> out;
        for (const auto& c : choices) out.push_back(static_cast<double>(c.value));
        return out;
    };
    struct Case {
        const char* name;
        std::vector<double> got;
        std::vector<double> want;
    };
    const Case cases[] = {
        {"a preset is listed once",
         values(SettingsChoices::lowDiskThresholds(10'000'000'000ULL)),
         {5e9, 10e9, 20e9, 50e9, 100e9}},
        {"a hand-written value joins in order",
         values(SettingsChoices::lowDiskThresholds(15'000'000'000ULL)),
         {5e9, 10e9, 15e9, 20e9, 50e9, 100e9}},
        {"below every preset",
         values(SettingsChoices::heavyAppThresholds(1)),
         {1, 2147483648.0, 4294967296.0, 8589934592.0, 17179869184.0, 34359738368.0}},
        {"dock memory default",
         values(SettingsChoices::dockMemoryThresholds(524'288'000ULL)),
         {262144000.0, 524288000.0, 1073741824.0, 2147483648.0, 4294967296.0}},
        {"dock cpu fraction", values(SettingsChoices::dockCpuThresholds(12.5)), {5, 10, 12.5, 25, 50, 100}},
        {"dock cpu not a number reads as the default",
         values(SettingsChoices::dockCpuThresholds(std::numeric_limits<double>::quiet_NaN())),
         {5, 10, 25, 50, 100}},
    };
    for (const Case& c : cases) EXPECT_EQ(c.got, c.want) << c.name;

    EXPECT_EQ(SettingsChoices::lowDiskThresholds(10'000'000'000ULL)[1].title, "Less than 10.0 GB free");
    EXPECT_EQ(SettingsChoices::heavyAppThresholds(8'589'934'592ULL)[2].title, "More than 8.00 GB");
    EXPECT_EQ(SettingsChoices::dockMemoryThresholds(524'288'000ULL)[1].title, "500 MB or more");
    EXPECT_EQ(SettingsChoices::dockCpuThresholds(12.5)[2].title, "12.5% of a core or more");
    EXPECT_EQ(SettingsChoices::loginItemFailure("Operation not permitted"),
              "Couldn't change login item: Operation not permitted");
    EXPECT_EQ(SettingsChoices::loginItemFailure(SettingsChoices::loginItemServiceMissing),
              "Couldn't change login item: the login item service is not available on this Mac");
    EXPECT_EQ(SettingsChoices::loginItemFailure(SettingsChoices::loginItemUnknownError),
              "Couldn't change login item: unknown error");
}

}  // namespace
}  // namespace brimlet
