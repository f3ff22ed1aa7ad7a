// The words and numbers of the monitor's own surfaces: the menu bar item, its popover and the
// floating monitor. Every figure is written here so that the three read alike and each rule (how a
// percentage rounds, what an unknown figure shows, what VoiceOver hears) is decided once and tested.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "app/stores/MonitorSettings.hpp"
#include "core/monitoring/MetricsHistory.hpp"
#include "core/monitoring/MonitorTypes.hpp"

namespace brimlet::MonitorReadout {

inline constexpr std::string_view productName = "Kestrow Brimlet";
inline constexpr std::string_view unknown = "—";
inline constexpr std::string_view quitHint = "Hover an app to quit it";
inline constexpr std::string_view swapCaption = "Memory spilled to disk";
inline constexpr std::string_view undeliveredAlertNote =
    "An alert could not be shown. Allow notifications for Kestrow Brimlet in System Settings.";
inline constexpr std::string_view memoryTitle = "Memory";
inline constexpr std::string_view pressureTitle = "Pressure";
inline constexpr std::string_view swapTitle = "Swap";
inline constexpr std::string_view cpuTitle = "CPU";
inline constexpr std::string_view gpuTitle = "GPU";
inline constexpr std::string_view diskTitle = "Disk";
inline constexpr std::string_view freeDiskTitle = "Free disk";
inline constexpr std::string_view thermalTitle = "Thermal";
inline constexpr std::string_view topAppsTitle = "Top Apps";
inline constexpr std::string_view quitProductTitle = "Quit Kestrow Brimlet";
inline constexpr std::string_view dashboardTitle = "Dashboard";
inline constexpr std::string_view cleanupTitle = "Cleanup";
inline constexpr std::string_view settingsTitle = "Settings";
inline constexpr std::string_view quitButton = "Quit";
inline constexpr std::string_view cancelButton = "Cancel";
inline constexpr std::string_view expandFloatingLabel = "Expand floating monitor";
inline constexpr std::string_view collapseFloatingLabel = "Collapse floating monitor";
inline constexpr std::string_view hideFloatingTitle = "Hide Floating Monitor";

// A machine-wide share on the 0–100 scale as a whole percentage ("63%"): clamped into 0…100,
// halves rounded away from zero; the em dash while unknown.
std::string percent(std::optional<double> value);
// A process's CPU share, which may pass 100 (one full core is 100): only negatives are clamped.
std::string processPercent(std::optional<double> value);
// The memory in use as a whole percentage of the total, the number the menu bar shows.
int memoryPercent(const SystemGlance& glance);

std::string_view pressureWord(MemoryPressure pressure);  // "Normal", "Warning", "Critical"
std::string_view thermalWord(ThermalLevel level);        // "Nominal", "Fair", "Serious", "Critical"
// The plain answer to the thermal caption's question: only a serious or critical state slows the machine.
std::string_view throttlingAnswer(ThermalLevel level);

// The platform's thermal caption and the answer: "Is the Mac throttling? No".
std::string throttlingLine(ThermalLevel level);

// "9.87 GB of 16.00 GB" (memory sizes, binary divisors).
std::string memoryUsage(std::uint64_t used, std::uint64_t total);
// "123.4 GB free of 494.4 GB" (disk sizes, decimal units); "123.4 GB free" without a total.
std::string diskSpace(std::uint64_t free, std::uint64_t total);
// "Read 2 MB/s · Write 512 KB/s"; an unknown rate (the first sample has none) reads as the em dash.
std::string diskRates(std::optional<double> readPerSecond, std::optional<double> writePerSecond);

// The text beside the menu bar icon: the memory percentage for `barAndPercent` once a glance exists,
// otherwise nothing.
std::string menuBarTitle(MenuBarDisplay display, const std::optional<SystemGlance>& glance);
// Whether the button draws the small memory bar.
bool menuBarShowsBar(MenuBarDisplay display);
// What VoiceOver reads for the item whatever it shows: "Kestrow Brimlet, memory 63% used, pressure
// normal, CPU 12%, 123.4 GB free" (each figure only when known).
std::string menuBarAccessibilityLabel(const std::optional<SystemGlance>& glance);

// The grade of an area as VoiceOver reads it after the figure: "Memory, Good".
std::string gradedLabel(std::string_view area, Rating grade);

// The quit control of an application row.
std::string quitTitle(std::string_view name);         // "Quit Safari?"
std::string quitControlLabel(std::string_view name);  // "Quit Safari"
// An application row as VoiceOver reads it: "Safari, 1.25 GB, CPU 12%".
std::string appRowLabel(const AppGroup& group);

}  // namespace brimlet::MonitorReadout
