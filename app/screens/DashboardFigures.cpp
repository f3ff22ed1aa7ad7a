#include "app/screens/DashboardFigures.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "app/desktop/AppQuitter.hpp"
#include "app/screens/MonitorReadout.hpp"
#include "app/screens/ScreenWording.hpp"
#include "core/common/ByteFormat.hpp"

namespace brimlet {

namespace {

// The table has room for a tenth of a percent, which tells a busy app from an idle one.
std::string tenthsPercent(double value) {
    char buffer[64];
    const int n = std::snprintf(buffer, sizeof buffer, "%.1f%%", value);
    return std::string(buffer, static_cast<std::size_t>(std::max(n, 0)));
}

}  // namespace

std::string DashboardFigure::accessibilityLabel() const {
    std::string label = title + ", " + value;
    if (!detail.empty()) label += ", " + detail;
    if (rating) label += ", " + std::string(rating->rawValue());
    return label;
}

std::string_view ChartLine::title() const {
    switch (value) {
    case memory: return "Memory";
    case cpu: return "CPU";
    case diskRead: return "Disk reads";
    case diskWrite: return "Disk writes";
    }
    return "";
}

std::string ChartLine::text(double v) const {
    switch (value) {
    case memory: return ByteFormat::memory(v <= 0 ? 0 : static_cast<std::uint64_t>(v));
    case cpu: return MonitorReadout::processPercent(v);
    case diskRead:
    case diskWrite: return ByteFormat::rate(std::max(v, 0.0));
    }
    return "";
}

namespace DashboardFigures {

std::vector<DashboardFigure> figures(const MonitorSnapshot& snapshot) {
    const SystemStats& s = snapshot.system;
    const HealthRating health(s);
    std::vector<DashboardFigure> out;
    out.push_back({"memory", "Memory", ByteFormat::memory(s.memoryUsed),
                   "of " + ByteFormat::memory(s.memoryTotal) + " \u00B7 " + ByteFormat::memory(s.memoryCompressed) +
                       " compressed \u00B7 " + ByteFormat::memory(s.memoryWired) + " wired",
                   health.memory});
    out.push_back({"pressure", "Memory pressure", std::string(MonitorReadout::pressureWord(s.pressure)),
                   ScreenWording::forThisPlatform().pressureCaption, std::nullopt});
    out.push_back({"swap", "Memory spilled to disk", ByteFormat::memory(s.swapUsed), "Swap in use", std::nullopt});
    out.push_back({"cpu", "CPU", MonitorReadout::processPercent(s.cpuLoad),
                   s.cpuLoad ? "All cores" : "Measured from the second sample", health.cpu});
    out.push_back(
        {"gpu", "GPU", MonitorReadout::processPercent(s.gpuUtilization),
         s.gpuUtilization ? "Busiest graphics processor" : ScreenWording::forThisPlatform().graphicsNotReported,
         std::nullopt});
    out.push_back({"diskRead", "Disk reads", ByteFormat::rate(s.diskReadPerSecond), "All disks", std::nullopt});
    out.push_back({"diskWrite", "Disk writes", ByteFormat::rate(s.diskWritePerSecond), "All disks", std::nullopt});
    out.push_back({"diskFree", "Free space", ByteFormat::string(s.diskFree),
                   "of " + ByteFormat::string(s.diskTotal) + " on the data volume", health.disk});
    out.push_back({"thermal", ScreenWording::forThisPlatform().thermalCaption,
                   std::string(MonitorReadout::throttlingAnswer(s.thermal)),
                   "Thermal state " + std::string(s.thermal.rawValue()), health.thermal});
    return out;
}

std::string hiddenProcessNote(std::int64_t hidden) {
    if (hidden <= 0) return "";
    const std::string count = std::to_string(hidden);
    return hidden == 1 ? "1 process could not be read (it belongs to the system or another user)."
                       : count + " processes could not be read (they belong to the system or other users).";
}

}  // namespace DashboardFigures

namespace DashboardCharts {

ChartSeries series(const MetricsHistory& history, ChartLine line) {
    ChartSeries out{line, {}};
    out.values.reserve(history.points.size());
    for (const HistoryPoint& point : history.points) {
        switch (line.value) {
        case ChartLine::memory: out.values.emplace_back(static_cast<double>(point.memoryUsed)); break;
        case ChartLine::cpu: out.values.push_back(point.cpuLoad); break;
        case ChartLine::diskRead: out.values.push_back(point.diskReadPerSecond); break;
        case ChartLine::diskWrite: out.values.push_back(point.diskWritePerSecond); break;
        }
    }
    return out;
}

double ceiling(const std::vector<ChartSeries>& lines, std::uint64_t memoryTotal) {
    double largest = 0;
    bool cpu = false;
    bool memory = false;
    for (const ChartSeries& s : lines) {
        cpu = cpu || s.line == ChartLine::cpu;
        memory = memory || s.line == ChartLine::memory;
        for (const auto& v : s.values)
            if (v && std::isfinite(*v)) largest = std::max(largest, *v);
    }
    if (cpu) return std::max(100.0, largest);  // a sum of cores may exceed 100 on a glitch; keep it drawn
    if (memory) {
        const double total = static_cast<double>(memoryTotal);
        return std::max({total, largest, 1.0});
    }
    return std::max(largest, minimumDiskCeiling);
}

std::string summary(const ChartSeries& series) {
    const std::string head = std::string(series.line.title()) + " over the last 5 minutes: ";
    std::optional<double> low, high, latest;
    for (const auto& v : series.values) {
        if (!v || !std::isfinite(*v)) continue;
        low = low ? std::min(*low, *v) : *v;
        high = high ? std::max(*high, *v) : *v;
        latest = *v;
    }
    if (!latest) return head + "no figures yet";
    return head + "lowest " + series.line.text(*low) + ", highest " + series.line.text(*high) + ", now " +
           series.line.text(*latest);
}

}  // namespace DashboardCharts

namespace AppTable {

std::vector<AppRow> rows(const MonitorSnapshot& snapshot) {
    std::vector<AppRow> out;
    out.reserve(snapshot.apps.size());
    for (const AppGroup& group : snapshot.apps) {
        AppRow row;
        row.id = group.id;
        row.name = group.name;
        row.memory = ByteFormat::memory(group.footprint);
        row.cpu = group.cpuPercent && std::isfinite(*group.cpuPercent) ? tenthsPercent(std::max(*group.cpuPercent, 0.0))
                                                                       : std::string(MonitorReadout::unknown);
        row.processes = std::to_string(group.pids.size());
        row.canQuit = AppQuitter::canQuit(group);
        row.quitHelp = row.canQuit ? quitHelp(group.name) : std::string(AppQuitter::unavailableHelp);
        out.push_back(std::move(row));
    }
    return out;
}

std::string quitHelp(std::string_view name) { return "Ask " + std::string(name) + " to quit"; }

}  // namespace AppTable

}  // namespace brimlet
