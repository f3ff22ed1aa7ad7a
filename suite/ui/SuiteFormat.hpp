// How the shared menu bar item writes the suite's values, and where it keeps its place in the menu
// bar. The locale arrives as data (its separators), so the rules are the same on every platform and
// every locale can be tested.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Status.hpp"
#include "base/UserDefaults.hpp"
#include "suite/protocol/GlanceRecord.hpp"
#include "suite/protocol/SuiteState.hpp"

namespace kestrow::suite {

struct NumberLocale {
    std::string decimalSeparator = ".";
    std::string groupingSeparator = ",";
    std::size_t groupingSize = 3;  // digits per group left of the separator; 0 turns grouping off
};

using SuiteValues = std::vector<std::pair<MetricRef, GlanceMetric>>;

// One member as the popover and the floating bar list it: every text and symbol the line shows.
struct SuiteRowLine {
    SuiteApp app;
    bool running = false;
    GlanceLevel level;   // ok while not running
    std::string name;    // the short name
    std::string values;  // the values' texts, or "not running"
    std::string symbol;  // the SF Symbol of the level glyph
    std::string accessibilityLabel;
    bool operator==(const SuiteRowLine&) const = default;
};

namespace SuiteFormat {

// One digit after the separator: enough to tell 12.5 % from 13 %, short enough for the menu bar.
inline constexpr int fractionDigits = 1;
inline constexpr std::string_view noBreakSpace = "\u00A0";
inline constexpr std::string_view itemLabel = "Kestrow suite";
// Between two values in one line: the menu bar readout and a member's compact line.
inline constexpr std::string_view valueSeparator = " \u00B7 ";  // " · "
inline constexpr std::string_view notRunning = "not running";
inline constexpr std::string_view expandBarLabel = "Expand floating bar";
inline constexpr std::string_view collapseBarLabel = "Collapse floating bar";
inline constexpr std::string_view showBarTitle = "Show floating bar";
inline constexpr std::string_view hideBarLabel = "Hide floating bar";

// SF Symbols of the levels: the shared item shows a grid of apps while all is well, the rows a tick.
inline constexpr std::string_view okItemSymbol = "square.grid.2x2";
inline constexpr std::string_view okRowSymbol = "checkmark.circle";
inline constexpr std::string_view noticeSymbol = "exclamationmark.circle";
inline constexpr std::string_view alertSymbol = "exclamationmark.triangle.fill";
inline constexpr std::string_view notRunningSymbol = "minus.circle";

// The number with `fractionDigits` digits, grouped and separated as the locale does.
std::string number(double value, const NumberLocale& locale);
// A number with its unit after a no-break space (none for an empty unit), or the state word.
std::string text(const GlanceMetric& metric, const NumberLocale& locale);
std::string levelWord(GlanceLevel level);
// What VoiceOver reads for the item: its name, each value after a blank, then the worst level.
std::string accessibilityLabel(const SuiteValues& values, GlanceLevel worst, const NumberLocale& locale);

// The shared item's title: the values' texts with `valueSeparator` between them.
std::string itemTitle(const SuiteValues& values, const NumberLocale& locale);
// The shared item's image for the worst level.
std::string_view itemSymbol(GlanceLevel worst);
// A member's line: its level glyph, short name and values; VoiceOver hears name, values and level.
SuiteRowLine rowLine(const SuiteRow& row, const NumberLocale& locale);
// The control that brings the floating bar back, naming the shortcut only when it was registered.
std::string showBarLabel(bool shortcutRegistered);

}  // namespace SuiteFormat

namespace SuiteStatusItemPosition {

inline constexpr std::string_view autosaveName = "KestrowSuite";
// Where the status bar keeps the position of an item autosaved under that name.
inline constexpr std::string_view defaultsKey = "NSStatusItem Preferred Position KestrowSuite";

std::optional<double> read(const UserDefaults& defaults);
Status write(double position, UserDefaults& defaults);

}  // namespace SuiteStatusItemPosition

}  // namespace kestrow::suite
