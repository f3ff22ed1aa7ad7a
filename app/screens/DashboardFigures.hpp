// What the dashboard window says: the live figures with the grade of their area, the lines of the
// 5-minute charts with their range and spoken summary, and the rows of the application table. The
// window only lays these out; every text and range is decided here so it can be tested anywhere.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/RawValueEnum.hpp"
#include "core/monitoring/MetricsHistory.hpp"
#include "core/monitoring/MonitorTypes.hpp"

namespace brimlet {

struct DashboardFigure {
    std::string id;
    std::string title;
    std::string value;
    std::string detail;
    std::optional<Rating> rating;  // the health grade of the figure's area, where it has one

    // What VoiceOver reads for the whole figure: "CPU, 12%, all cores, Great".
    std::string accessibilityLabel() const;
    bool operator==(const DashboardFigure&) const = default;
};

// One line of a chart; the disk chart draws two (reads and writes) on one scale.
struct ChartLine : kestrow::RawValueEnum<ChartLine> {
    enum Value : int { memory, cpu, diskRead, diskWrite };
    static constexpr std::array<std::string_view, 4> rawValues{"memory", "cpu", "diskRead", "diskWrite"};
    Value value = memory;

    constexpr ChartLine() = default;
    constexpr ChartLine(Value v) : value(v) {}

    std::string_view title() const;
    // A value of this line as the figures write it.
    std::string text(double value) const;
};

struct ChartSeries {
    ChartLine line;
    std::vector<std::optional<double>> values;  // one per history point, oldest first; none: unknown

    bool operator==(const ChartSeries&) const = default;
};

namespace DashboardFigures {

// "Live every 2 seconds · last 5 minutes kept in memory"
inline constexpr std::string_view cadenceNote = "Live every 2 seconds \u00B7 last 5 minutes kept in memory";
inline constexpr std::string_view waitingNote = "Taking the first sample\u2026";
inline constexpr std::string_view undeliveredAlertNote =
    "An alert could not be shown. Allow notifications for this app in System Settings.";

// Memory, pressure, swap, CPU, GPU, disk reads and writes, free space and thermal state, in that order.
std::vector<DashboardFigure> figures(const MonitorSnapshot& snapshot);

// "" when every process could be read; otherwise why some are missing from the table.
std::string hiddenProcessNote(std::int64_t hiddenProcessCount);

}  // namespace DashboardFigures

namespace DashboardCharts {

inline constexpr double minimumDiskCeiling = 1'000'000;  // 1 MB/s: a quiet disk draws flat, not noisy

ChartSeries series(const MetricsHistory& history, ChartLine line);

// The top of the vertical scale shared by the given lines: 100 for CPU, the machine's memory for
// memory (the largest value when the total is unknown), and for disk rates the largest value but at
// least `minimumDiskCeiling`. Never 0, so a chart can always divide by it.
double ceiling(const std::vector<ChartSeries>& lines, std::uint64_t memoryTotal);

// What VoiceOver reads for one line: its lowest, highest and latest known values over the window,
// "CPU over the last 5 minutes: lowest 3%, highest 87%, now 12%".
std::string summary(const ChartSeries& series);

}  // namespace DashboardCharts

// One row of the application table.
struct AppRow {
    std::string id;
    std::string name;
    std::string memory;
    std::string cpu;
    std::string processes;
    bool canQuit = false;
    std::string quitHelp;  // the tooltip of the quit control

    bool operator==(const AppRow&) const = default;
};

namespace AppTable {

inline constexpr std::string_view quitButtonTitle = "Quit";
inline constexpr std::string_view cancelButtonTitle = "Cancel";

std::vector<AppRow> rows(const MonitorSnapshot& snapshot);
// The help of an available quit control: "Ask Safari to quit".
std::string quitHelp(std::string_view name);

}  // namespace AppTable

}  // namespace brimlet
