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

namespace kestrow::suite {

struct NumberLocale {
    std::string decimalSeparator = ".";
    std::string groupingSeparator = ",";
    std::size_t groupingSize = 3;  // digits per group left of the separator; 0 turns grouping off
};

using SuiteValues = std::vector<std::pair<MetricRef, GlanceMetric>>;

namespace SuiteFormat {

// One digit after the separator: enough to tell 12.5 % from 13 %, short enough for the menu bar.
inline constexpr int fractionDigits = 1;
inline constexpr std::string_view noBreakSpace = "\u00A0";
inline constexpr std::string_view itemLabel = "Kestrow suite";

// The number with `fractionDigits` digits, grouped and separated as the locale does.
std::string number(double value, const NumberLocale& locale);
// A number with its unit after a no-break space (none for an empty unit), or the state word.
std::string text(const GlanceMetric& metric, const NumberLocale& locale);
std::string levelWord(GlanceLevel level);
// What VoiceOver reads for the item: its name, each value after a blank, then the worst level.
std::string accessibilityLabel(const SuiteValues& values, GlanceLevel worst, const NumberLocale& locale);

}  // namespace SuiteFormat

namespace SuiteStatusItemPosition {

inline constexpr std::string_view autosaveName = "KestrowSuite";
// Where the status bar keeps the position of an item autosaved under that name.
inline constexpr std::string_view defaultsKey = "NSStatusItem Preferred Position KestrowSuite";

std::optional<double> read(const UserDefaults& defaults);
Status write(double position, UserDefaults& defaults);

}  // namespace SuiteStatusItemPosition

}  // namespace kestrow::suite
