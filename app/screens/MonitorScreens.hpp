// The monitor's screens as plain values: the menu bar item's popover, the floating monitor and the
// dashboard window. Each reading carries its words, grade and gauge; each application row carries
// its bundle path (where its icon comes from) and whether and how it can be asked to quit; each
// control names the action it triggers. Front ends draw these and hand the actions back.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ScreenParts.hpp"
#include "app/screens/DashboardFigures.hpp"
#include "app/stores/MonitorStore.hpp"

namespace brimlet {

enum class MonitorCommand {
    none,
    openDashboard,
    openCleanup,
    openSettings,
    quitProduct,
    quitApp,         // asks to quit the application group `target`; a dialog comes first
    confirmQuitApp,  // the user confirmed: ask the group `target` to quit
    expandFloating,
    collapseFloating,
    hideFloating,
    dismissAlertNote,  // the note about an undelivered alert was read
    dismiss,
};

using MonitorControl = screens::Control<MonitorCommand>;
using MonitorDialog = screens::Dialog<MonitorCommand>;

// One figure of a list of readings, as the popover and the floating monitor show them.
struct ReadingRow {
    std::string id;  // "memory", "pressure", "swap", "cpu", "gpu", "disk", "thermal"
    std::string symbol;
    std::string title;
    std::string value;  // the em dash while unknown
    std::string caption;
    std::optional<Rating> grade;
    std::optional<double> gauge;             // 0…1 where the figure has a gauge
    std::optional<MemoryPressure> pressure;  // the gauge's color follows the pressure, where given
    std::string accessibilityLabel;
    bool operator==(const ReadingRow&) const = default;
};

// An application of a list, with what its quit control does.
struct AppListRow {
    std::string id;
    std::string name;
    std::optional<std::string> bundlePath;  // its icon; none: a command-line process
    std::string fallbackSymbol;             // drawn without a bundle
    std::string memory;
    std::string cpu;
    std::string processes;
    MonitorControl quit;  // disabled, with its reason as help, when it cannot quit
    std::string accessibilityLabel;
    bool operator==(const AppListRow&) const = default;
};

struct PopoverScreen {
    std::string title;
    std::string note;  // the undelivered alert; empty: hidden
    std::string noteSymbol;
    std::string waiting;  // before the first sample; empty once figures exist
    std::vector<ReadingRow> readings;
    std::string appsTitle;
    std::string appsHint;
    std::vector<AppListRow> apps;
    std::vector<MonitorControl> footer;  // windows first, then quitting the product
};

struct FloatingMonitorScreen {
    std::string title;
    std::string accessibilityLabel;
    std::string accessibilityValue;
    // The bar: memory gauge and percentage, CPU.
    std::string memorySymbol;
    std::optional<double> memoryGauge;
    std::optional<MemoryPressure> pressure;
    std::string memoryPercent;
    std::string cpuSymbol;
    std::string cpu;
    MonitorControl expand;  // expands, or collapses when expanded
    MonitorControl collapse;
    // The table.
    std::vector<ReadingRow> readings;
    std::vector<MonitorControl> menu;  // the context menu
    bool expanded = false;
};

struct DashboardChart {
    std::string title;
    std::vector<ChartSeries> lines;
    double ceiling = 1;
    std::string summary;  // what VoiceOver reads for the chart
    std::string now;      // the latest values
    std::string nowAccessibilityLabel;
    std::vector<std::string> legend;  // one entry per line where there are several
};

struct DashboardScreen {
    std::string title;
    std::string status;
    screens::Tone statusTone = screens::Tone::secondary;
    MonitorControl dismissAlertNote;  // shown only with the undelivered-alert note
    bool showsDismiss = false;
    std::vector<DashboardFigure> figures;
    std::string chartsHeading;
    std::vector<std::string> chartTitles;  // memory, CPU, disk: there before the first sample too
    std::vector<std::string> diskLegend;   // reads, then writes
    std::vector<DashboardChart> charts;
    std::string tableHeading;
    std::vector<std::string> columns;  // app, memory, CPU, processes, quit
    std::vector<AppListRow> rows;
    std::string hiddenNote;
    MonitorControl quitSelected;  // its target and state follow the selected row
};

namespace MonitorScreens {

inline constexpr std::size_t popoverApps = 5;

PopoverScreen popover(const MonitorStore& store);
FloatingMonitorScreen floating(const MonitorStore& store);
// `selected`: the id of the selected row, if any; the quit button follows it.
DashboardScreen dashboard(const MonitorStore& store, const std::string& selected = {});

AppListRow appRow(const AppGroup& group);
// The question before an application is asked to quit; none when it cannot be.
std::optional<MonitorDialog> quitDialog(const AppGroup& group);
// The group of that id in the store's latest sample, for the question and the quit itself.
std::optional<AppGroup> group(const MonitorStore& store, const std::string& id);

}  // namespace MonitorScreens

}  // namespace brimlet
