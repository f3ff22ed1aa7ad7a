#include "MonitorScreens.hpp"

#include "ScreenWording.hpp"
#include "app/desktop/AppQuitter.hpp"
#include "app/screens/MonitorReadout.hpp"
#include "core/common/ByteFormat.hpp"
#include "core/monitoring/MetricsHistory.hpp"

#include <algorithm>

namespace brimlet::MonitorScreens {

namespace R = MonitorReadout;

namespace {

constexpr std::string_view emDash = "\u2014";

MonitorControl control(std::string_view title, std::string symbol, MonitorCommand action) {
    MonitorControl made;
    made.title = std::string(title);
    made.symbol = std::move(symbol);
    made.action = action;
    return made;
}

ReadingRow reading(std::string id, std::string symbol, std::string_view title, std::string value,
                   std::string caption = {}, std::optional<Rating> grade = std::nullopt) {
    ReadingRow row;
    row.id = std::move(id);
    row.symbol = std::move(symbol);
    row.title = std::string(title);
    row.value = std::move(value);
    row.caption = std::move(caption);
    row.grade = grade;
    // "Memory, 9.87 GB of 16.00 GB, Memory spilled to disk, Good": what VoiceOver reads for the row.
    row.accessibilityLabel = row.title + ", " + row.value;
    if (!row.caption.empty()) row.accessibilityLabel += ", " + row.caption;
    if (grade) row.accessibilityLabel += ", " + std::string(grade->rawValue());
    return row;
}

std::optional<double> cpuGauge(const std::optional<double>& load) {
    if (!load) return std::nullopt;
    return std::clamp(*load / 100, 0.0, 1.0);
}

}  // namespace

AppListRow appRow(const AppGroup& group) {
    AppListRow row;
    row.id = group.id;
    row.name = group.name;
    row.bundlePath = group.bundlePath;
    row.fallbackSymbol = "terminal";
    row.memory = ByteFormat::memory(group.footprint);
    row.cpu = R::processPercent(group.cpuPercent);
    row.processes = std::to_string(group.pids.size());
    const bool canQuit = AppQuitter::canQuit(group);
    row.quit = control(R::quitButton, "xmark.circle.fill", MonitorCommand::quitApp);
    row.quit.target = group.id;
    row.quit.enabled = canQuit;
    row.quit.accessibilityLabel = R::quitControlLabel(group.name);
    row.quit.help = canQuit ? AppTable::quitHelp(group.name) : std::string(AppQuitter::unavailableHelp);
    row.accessibilityLabel = R::appRowLabel(group);
    return row;
}

std::optional<MonitorDialog> quitDialog(const AppGroup& group) {
    if (!AppQuitter::canQuit(group)) return std::nullopt;
    MonitorDialog dialog;
    dialog.style = screens::DialogStyle::warning;
    dialog.title = R::quitTitle(group.name);
    dialog.message = AppQuitter::confirmation(group);
    MonitorControl quit = control(R::quitButton, "", MonitorCommand::confirmQuitApp);
    quit.target = group.id;
    quit.isDefault = true;
    MonitorControl cancel = control(R::cancelButton, "", MonitorCommand::dismiss);
    cancel.isCancel = true;
    dialog.buttons = {quit, cancel};
    return dialog;
}

std::optional<AppGroup> group(const MonitorStore& store, const std::string& id) {
    if (const auto& snapshot = store.snapshot())
        for (const AppGroup& each : snapshot->apps)
            if (each.id == id) return each;
    return std::nullopt;
}

PopoverScreen popover(const MonitorStore& store) {
    PopoverScreen s;
    s.title = R::productName;
    if (store.hasUndeliveredAlert()) s.note = R::undeliveredAlertNote;
    s.noteSymbol = "exclamationmark.bubble";
    s.appsTitle = R::topAppsTitle;
    s.appsHint = R::quitHint;
    s.footer = {control(R::dashboardTitle, "gauge.medium", MonitorCommand::openDashboard),
                control(R::cleanupTitle, "sparkles", MonitorCommand::openCleanup),
                control(R::settingsTitle, "gearshape", MonitorCommand::openSettings),
                control(R::quitProductTitle, "power", MonitorCommand::quitProduct)};
    s.footer.back().help = R::quitProductTitle;
    const auto& snapshot = store.snapshot();
    if (!snapshot) {
        s.waiting = ScreenWording::forThisPlatform().waitingForFirstSample;
        return s;
    }
    const SystemStats& stats = snapshot->system;
    const HealthRating health(stats);
    ReadingRow memory = reading("memory", "memorychip", R::memoryTitle,
                                R::memoryUsage(stats.memoryUsed, stats.memoryTotal), {}, health.memory);
    memory.gauge = snapshot->glance().memoryFraction();
    memory.pressure = stats.pressure;
    ReadingRow cpu = reading("cpu", "cpu", R::cpuTitle, R::percent(stats.cpuLoad), {}, health.cpu);
    cpu.gauge = cpuGauge(stats.cpuLoad);
    s.readings = {
        memory,
        reading("pressure", "gauge", R::pressureTitle, std::string(R::pressureWord(stats.pressure))),
        reading("swap", "arrow.down.doc", R::swapTitle, ByteFormat::memory(stats.swapUsed),
                std::string(R::swapCaption)),
        cpu,
        reading("gpu", "cube.transparent", R::gpuTitle, R::percent(stats.gpuUtilization)),
        reading("disk", "internaldrive", R::diskTitle, R::diskSpace(stats.diskFree, stats.diskTotal),
                R::diskRates(stats.diskReadPerSecond, stats.diskWritePerSecond), health.disk),
        reading("thermal", "thermometer", R::thermalTitle, std::string(R::thermalWord(stats.thermal)),
                R::throttlingLine(stats.thermal), health.thermal),
    };
    for (const AppGroup& group : snapshot->topApps(AppMetric::memory, popoverApps)) s.apps.push_back(appRow(group));
    return s;
}

FloatingMonitorScreen floating(const MonitorStore& store) {
    FloatingMonitorScreen s;
    s.title = R::productName;
    s.accessibilityLabel = R::productName;
    s.expanded = store.floatingExpanded();
    s.memorySymbol = "memorychip";
    s.cpuSymbol = "cpu";
    s.memoryPercent = std::string(emDash);
    s.cpu = std::string(emDash);
    s.expand = control(R::expandFloatingLabel, "chevron.down", MonitorCommand::expandFloating);
    s.collapse = control(R::collapseFloatingLabel, "chevron.up", MonitorCommand::collapseFloating);
    s.menu = {s.expanded ? s.collapse : s.expand, control(R::hideFloatingTitle, "", MonitorCommand::hideFloating)};
    const auto& glance = store.glance();
    s.accessibilityValue = R::menuBarAccessibilityLabel(glance);
    ReadingRow memory = reading("memory", "memorychip", R::memoryTitle, std::string(emDash));
    ReadingRow pressure = reading("pressure", "gauge", R::pressureTitle, std::string(emDash));
    ReadingRow cpu = reading("cpu", "cpu", R::cpuTitle, std::string(emDash));
    ReadingRow disk = reading("disk", "internaldrive", R::freeDiskTitle, std::string(emDash));
    if (glance) {
        s.memoryGauge = glance->memoryFraction();
        s.pressure = glance->pressure;
        s.memoryPercent = std::to_string(R::memoryPercent(*glance)) + "%";
        s.cpu = R::percent(glance->cpuLoad);
        std::optional<Rating> memoryGrade, cpuGrade, diskGrade;
        // The grades need the full figures; the glance between samples keeps the last ones.
        if (const auto& snapshot = store.snapshot()) {
            const HealthRating health(snapshot->system);
            memoryGrade = health.memory;
            cpuGrade = health.cpu;
            diskGrade = health.disk;
        }
        memory = reading("memory", "memorychip", R::memoryTitle,
                         R::memoryUsage(glance->memoryUsed, glance->memoryTotal), {}, memoryGrade);
        memory.gauge = glance->memoryFraction();
        memory.pressure = glance->pressure;
        pressure = reading("pressure", "gauge", R::pressureTitle, std::string(R::pressureWord(glance->pressure)));
        cpu = reading("cpu", "cpu", R::cpuTitle, R::percent(glance->cpuLoad), {}, cpuGrade);
        disk = reading("disk", "internaldrive", R::freeDiskTitle, ByteFormat::string(glance->diskFree), {}, diskGrade);
    }
    s.readings = {memory, pressure, cpu, disk};
    return s;
}

DashboardScreen dashboard(const MonitorStore& store, const std::string& selected) {
    DashboardScreen s;
    s.title = R::productName;
    const auto& snapshot = store.snapshot();
    if (store.hasUndeliveredAlert()) {
        s.status = DashboardFigures::undeliveredAlertNote;
        s.statusTone = screens::Tone::warning;
        s.showsDismiss = true;
    } else {
        s.status = snapshot ? DashboardFigures::cadenceNote : DashboardFigures::waitingNote;
    }
    s.dismissAlertNote = control("Dismiss", "", MonitorCommand::dismissAlertNote);
    s.dismissAlertNote.accessibilityLabel = "Dismiss the note about an undelivered alert";
    s.chartsHeading = "Last 5 minutes";
    s.chartTitles = {"Memory", "CPU", "Disk"};
    s.diskLegend = {"\u25CF Reads", "\u25CF Writes"};
    s.tableHeading = "Apps by memory";
    s.columns = {"App", "Memory", "CPU", "Processes", R::quitButton.data()};
    s.quitSelected = control("Quit App\u2026", "", MonitorCommand::quitApp);
    s.quitSelected.accessibilityLabel = "Quit the selected app";
    s.quitSelected.enabled = false;
    if (!snapshot) return s;

    s.figures = DashboardFigures::figures(*snapshot);
    const std::uint64_t memoryTotal = snapshot->system.memoryTotal;
    const auto latest = [](const ChartSeries& line) -> std::string {
        for (auto it = line.values.rbegin(); it != line.values.rend(); ++it)
            if (*it) return line.line.text(**it);
        return std::string(emDash);
    };
    auto chart = [&](std::string title, std::vector<ChartLine> lines) {
        DashboardChart made;
        made.title = std::move(title);
        for (ChartLine line : lines) made.lines.push_back(DashboardCharts::series(store.history(), line));
        made.ceiling = DashboardCharts::ceiling(made.lines, memoryTotal);
        for (const ChartSeries& line : made.lines) {
            if (!made.summary.empty()) made.summary += ". ";
            made.summary += DashboardCharts::summary(line);
        }
        return made;
    };
    DashboardChart memory = chart(s.chartTitles[0], {ChartLine::memory});
    memory.now = latest(memory.lines[0]);
    DashboardChart cpu = chart(s.chartTitles[1], {ChartLine::cpu});
    cpu.now = latest(cpu.lines[0]);
    DashboardChart disk = chart(s.chartTitles[2], {ChartLine::diskRead, ChartLine::diskWrite});
    const std::string reads = latest(disk.lines[0]), writes = latest(disk.lines[1]);
    disk.now = reads + " \u2191 " + writes + " \u2193";
    disk.nowAccessibilityLabel = "Reads " + reads + ", writes " + writes;
    disk.legend = s.diskLegend;
    s.charts = {memory, cpu, disk};

    // The table has room for a tenth of a percent, which tells a busy app from an idle one.
    const std::vector<AppRow> table = AppTable::rows(*snapshot);
    for (std::size_t i = 0; i < snapshot->apps.size(); ++i) {
        const AppGroup& group = snapshot->apps[i];
        s.rows.push_back(appRow(group));
        s.rows.back().cpu = table[i].cpu;
        if (group.id == selected) {
            s.quitSelected.target = group.id;
            s.quitSelected.enabled = s.rows.back().quit.enabled;
            s.quitSelected.help = s.rows.back().quit.help;
        }
    }
    s.hiddenNote = DashboardFigures::hiddenProcessNote(snapshot->hiddenProcessCount);
    return s;
}

}  // namespace brimlet::MonitorScreens
