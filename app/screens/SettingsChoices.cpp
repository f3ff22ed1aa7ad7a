#include "app/screens/SettingsChoices.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

#include "core/common/ByteFormat.hpp"
#include "core/desktop/DockLayout.hpp"

namespace brimlet::SettingsChoices {

namespace {

template <typename T, typename Title>
std::vector<SettingChoice<T>> withCurrent(const T* first, const T* last, T current, Title title) {
    std::vector<T> values(first, last);
    if (std::find(values.begin(), values.end(), current) == values.end()) values.push_back(current);
    std::sort(values.begin(), values.end());
    std::vector<SettingChoice<T>> out;
    out.reserve(values.size());
    for (T v : values) out.push_back({v, title(v)});
    return out;
}

std::string percentTitle(double value) {
    char buffer[64];
    // Whole percents print without a fraction; a hand-written 12.5 keeps its one decimal.
    const bool whole = std::floor(value) == value;
    const int n = std::snprintf(buffer, sizeof buffer, whole ? "%.0f%% of a core" : "%.1f%% of a core", value);
    return std::string(buffer, static_cast<std::size_t>(std::max(n, 0)));
}

}  // namespace

std::vector<SettingChoice<std::uint64_t>> lowDiskThresholds(std::uint64_t current) {
    return withCurrent(std::begin(lowDiskPresets), std::end(lowDiskPresets), current,
                       [](std::uint64_t v) { return "Less than " + ByteFormat::string(v) + " free"; });
}

std::vector<SettingChoice<std::uint64_t>> heavyAppThresholds(std::uint64_t current) {
    return withCurrent(std::begin(heavyAppPresets), std::end(heavyAppPresets), current,
                       [](std::uint64_t v) { return "More than " + ByteFormat::memory(v); });
}

std::vector<SettingChoice<std::uint64_t>> dockMemoryThresholds(std::uint64_t current) {
    return withCurrent(std::begin(dockMemoryPresets), std::end(dockMemoryPresets), current,
                       [](std::uint64_t v) { return DockLayout::compactMemory(v) + " or more"; });
}

std::vector<SettingChoice<double>> dockCpuThresholds(double current) {
    if (!std::isfinite(current)) current = DockBadgeSettings::defaultCpuThreshold;
    return withCurrent(std::begin(dockCpuPresets), std::end(dockCpuPresets), current,
                       [](double v) { return percentTitle(v) + " or more"; });
}

std::string_view title(MenuBarDisplay display) {
    switch (display.value) {
    case MenuBarDisplay::iconOnly: return "Icon only";
    case MenuBarDisplay::bar: return "Memory bar";
    case MenuBarDisplay::barAndPercent: return "Memory bar and percentage";
    }
    return "";
}

std::string_view title(FloatingTheme theme) {
    switch (theme.value) {
    case FloatingTheme::system: return "Match the system";
    case FloatingTheme::light: return "Light";
    case FloatingTheme::dark: return "Dark";
    }
    return "";
}

std::string_view title(FloatingLook look) {
    switch (look.value) {
    case FloatingLook::glass: return "Glass";
    case FloatingLook::solid: return "Solid";
    case FloatingLook::subtle: return "Subtle";
    case FloatingLook::faint: return "Faint";
    }
    return "";
}

std::string_view title(DockBadgeMode mode) {
    switch (mode.value) {
    case DockBadgeMode::off: return "Off";
    case DockBadgeMode::memory: return "Memory";
    case DockBadgeMode::cpu: return "CPU";
    }
    return "";
}

std::string loginItemFailure(std::string_view errorDescription) {
    return std::string(loginItemFailurePrefix) + std::string(errorDescription);
}

}  // namespace brimlet::SettingsChoices
