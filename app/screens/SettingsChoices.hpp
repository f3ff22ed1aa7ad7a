// What the settings window offers: the titles of each choice, the thresholds a menu lists, and the
// explanations under the controls. A threshold stored by an older version or written by hand may
// not be one of the presets; it is then listed too, so the menu always shows what is in effect.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "app/stores/MonitorSettings.hpp"

namespace brimlet {

template <typename T>
struct SettingChoice {
    T value{};
    std::string title;
    bool operator==(const SettingChoice&) const = default;
};

namespace SettingsChoices {

inline constexpr std::string_view alertsNote =
    "Alerts only inform. They never clean or quit anything. Each alert waits 30 minutes before repeating.";
inline constexpr std::string_view dockBadgesTitle = "Show on Dock icons";
inline constexpr std::string_view dockAccessibilityNote =
    "Needs Accessibility access to read where Dock icons are. Nothing else is read.";
inline constexpr std::string_view ownIconTitle = "Show my own menu bar icon";
inline constexpr std::string_view ownIconExplanation =
    "When two or more Kestrow apps are running they share one menu bar item with a readout of the whole suite.";
inline constexpr std::string_view launchAtLoginTitle = "Launch at login";
inline constexpr std::string_view loginItemFailurePrefix = "Couldn't change login item: ";
// The reasons shown after the prefix when the system gives none of its own.
inline constexpr std::string_view loginItemServiceMissing = "the login item service is not available on this Mac";
inline constexpr std::string_view loginItemUnknownError = "unknown error";
inline constexpr std::string_view loginItemApprovalNote =
    "Allow it in System Settings \u203A General \u203A Login Items.";
inline constexpr std::string_view floatingShortcutNote = "Show or hide it anywhere with \u2303\u2325M.";

// Decimal gigabytes, as free space is shown.
inline constexpr std::uint64_t lowDiskPresets[] = {5'000'000'000ULL, 10'000'000'000ULL, 20'000'000'000ULL,
                                                   50'000'000'000ULL, 100'000'000'000ULL};
// Binary gigabytes, as memory is shown.
inline constexpr std::uint64_t heavyAppPresets[] = {2'147'483'648ULL, 4'294'967'296ULL, 8'589'934'592ULL,
                                                    17'179'869'184ULL, 34'359'738'368ULL};
inline constexpr std::uint64_t dockMemoryPresets[] = {262'144'000ULL, 524'288'000ULL, 1'073'741'824ULL,
                                                      2'147'483'648ULL, 4'294'967'296ULL};
inline constexpr double dockCpuPresets[] = {5, 10, 25, 50, 100};

// The presets with the current value added where it is missing, smallest first, each once.
std::vector<SettingChoice<std::uint64_t>> lowDiskThresholds(std::uint64_t current);
std::vector<SettingChoice<std::uint64_t>> heavyAppThresholds(std::uint64_t current);
std::vector<SettingChoice<std::uint64_t>> dockMemoryThresholds(std::uint64_t current);
std::vector<SettingChoice<double>> dockCpuThresholds(double current);

std::string_view title(MenuBarDisplay display);
std::string_view title(FloatingTheme theme);
std::string_view title(FloatingLook look);
std::string_view title(DockBadgeMode mode);

// The line shown under the login switch when the system refused the change.
std::string loginItemFailure(std::string_view errorDescription);

}  // namespace SettingsChoices

}  // namespace brimlet
