#include "app/screens/MonitorReadout.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "app/screens/ScreenWording.hpp"
#include "base/Rounding.hpp"
#include "core/common/ByteFormat.hpp"

namespace brimlet::MonitorReadout {

namespace {

// Whole numbers only, halves away from zero, so no locale ever changes the digits.
std::string wholePercent(double value) { return std::to_string(kestrow::roundedToInteger(value)) + "%"; }

}  // namespace

std::string percent(std::optional<double> value) {
    if (!value || std::isnan(*value)) return std::string(unknown);
    return wholePercent(std::clamp(*value, 0.0, 100.0));
}

std::string processPercent(std::optional<double> value) {
    if (!value || !std::isfinite(*value)) return std::string(unknown);
    return wholePercent(std::max(*value, 0.0));
}

int memoryPercent(const SystemGlance& glance) {
    return static_cast<int>(kestrow::roundedToInteger(glance.memoryFraction() * 100));
}

std::string_view pressureWord(MemoryPressure pressure) {
    switch (pressure.value) {
    case MemoryPressure::normal: return "Normal";
    case MemoryPressure::warning: return "Warning";
    case MemoryPressure::critical: return "Critical";
    }
    return "Normal";
}

std::string_view thermalWord(ThermalLevel level) {
    switch (level.value) {
    case ThermalLevel::nominal: return "Nominal";
    case ThermalLevel::fair: return "Fair";
    case ThermalLevel::serious: return "Serious";
    case ThermalLevel::critical: return "Critical";
    }
    return "Nominal";
}

std::string_view throttlingAnswer(ThermalLevel level) {
    switch (level.value) {
    case ThermalLevel::nominal: return "No";
    case ThermalLevel::fair: return "Not yet";
    case ThermalLevel::serious: return "Yes";
    case ThermalLevel::critical: return "Heavily";
    }
    return "No";
}

std::string throttlingLine(ThermalLevel level) {
    return ScreenWording::forThisPlatform().thermalCaption + " " + std::string(throttlingAnswer(level));
}

std::string memoryUsage(std::uint64_t used, std::uint64_t total) {
    return ByteFormat::memory(used) + " of " + ByteFormat::memory(total);
}

std::string diskSpace(std::uint64_t free, std::uint64_t total) {
    std::string text = ByteFormat::string(free) + " free";
    if (total != 0) text += " of " + ByteFormat::string(total);
    return text;
}

std::string diskRates(std::optional<double> readPerSecond, std::optional<double> writePerSecond) {
    return "Read " + ByteFormat::rate(readPerSecond) + " · Write " + ByteFormat::rate(writePerSecond);
}

std::string menuBarTitle(MenuBarDisplay display, const std::optional<SystemGlance>& glance) {
    if (display != MenuBarDisplay::barAndPercent || !glance || glance->memoryTotal == 0) return {};
    return std::to_string(memoryPercent(*glance)) + "%";
}

bool menuBarShowsBar(MenuBarDisplay display) { return display != MenuBarDisplay::iconOnly; }

std::string menuBarAccessibilityLabel(const std::optional<SystemGlance>& glance) {
    std::string label(productName);
    if (!glance) return label;
    if (glance->memoryTotal != 0) label += ", memory " + std::to_string(memoryPercent(*glance)) + "% used";
    std::string pressure(pressureWord(glance->pressure));
    std::transform(pressure.begin(), pressure.end(), pressure.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    label += ", pressure " + pressure;
    if (glance->cpuLoad) label += ", CPU " + percent(glance->cpuLoad);
    if (glance->diskFree != 0) label += ", " + ByteFormat::string(glance->diskFree) + " free";
    return label;
}

std::string gradedLabel(std::string_view area, Rating grade) {
    return std::string(area) + ", " + std::string(grade.rawValue());
}

std::string quitTitle(std::string_view name) { return "Quit " + std::string(name) + "?"; }

std::string quitControlLabel(std::string_view name) { return "Quit " + std::string(name); }

std::string appRowLabel(const AppGroup& group) {
    std::string label = group.name + ", " + ByteFormat::memory(group.footprint);
    if (group.cpuPercent) label += ", CPU " + processPercent(group.cpuPercent);
    return label;
}

}  // namespace brimlet::MonitorReadout
