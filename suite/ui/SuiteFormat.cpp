#include "SuiteFormat.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "GlobalHotKey.hpp"
#include "base/Rounding.hpp"

namespace kestrow::suite {

namespace SuiteFormat {

std::string number(double value, const NumberLocale& locale) {
    if (!std::isfinite(value)) return "\u2014";  // a record never carries one; show a dash, not "nan"
    std::string digits;
    int fraction = 0;
    bool negative = false;
    constexpr double scale = 10.0;  // 10 ^ fractionDigits
    if (std::fabs(value) < 1e15) {
        long long tenths = kestrow::roundedToInteger(value * scale);
        negative = tenths < 0;  // a value that rounds to zero loses its sign
        tenths = std::llabs(tenths);
        digits = std::to_string(tenths / 10);
        fraction = static_cast<int>(tenths % 10);
    } else {
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "%.0f", std::fabs(value));  // digits only: no separator involved
        digits = buffer;
        negative = value < 0;
    }
    std::string grouped;
    const std::size_t size = locale.groupingSize;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (size > 0 && i > 0 && (digits.size() - i) % size == 0) grouped += locale.groupingSeparator;
        grouped += digits[i];
    }
    return (negative ? "-" : "") + grouped + locale.decimalSeparator + std::to_string(fraction);
}

std::string text(const GlanceMetric& metric, const NumberLocale& locale) {
    if (const StateWord* word = std::get_if<StateWord>(&metric.value)) return std::string(word->rawValue());
    std::string out = number(std::get<double>(metric.value), locale);
    if (!metric.unit.empty()) {
        out += noBreakSpace;
        out += metric.unit;
    }
    return out;
}

std::string levelWord(GlanceLevel level) { return std::string(level.rawValue()); }

std::string accessibilityLabel(const SuiteValues& values, GlanceLevel worst, const NumberLocale& locale) {
    std::string out(itemLabel);
    for (const auto& [ref, metric] : values) out += " " + text(metric, locale);
    return out + " " + levelWord(worst);
}

std::string itemTitle(const SuiteValues& values, const NumberLocale& locale) {
    std::string out;
    for (const auto& [ref, metric] : values) {
        if (!out.empty()) out += valueSeparator;
        out += text(metric, locale);
    }
    return out;
}

std::string_view itemSymbol(GlanceLevel worst) {
    switch (worst.value) {
    case GlanceLevel::notice: return noticeSymbol;
    case GlanceLevel::alert: return alertSymbol;
    case GlanceLevel::ok: break;
    }
    return okItemSymbol;
}

SuiteRowLine rowLine(const SuiteRow& row, const NumberLocale& locale) {
    SuiteRowLine line;
    line.app = row.app();
    line.name = line.app.shortName();
    const GlanceRecord* record = row.record();
    if (!record) {
        line.values = notRunning;
        line.symbol = notRunningSymbol;
        line.accessibilityLabel = line.name + ", " + std::string(notRunning);
        return line;
    }
    line.running = true;
    line.level = record->level;
    line.symbol = record->level == GlanceLevel::ok ? okRowSymbol : itemSymbol(record->level);
    // VoiceOver pauses at commas; the middle dot would be read out as a word.
    std::string spoken;
    for (const GlanceMetric& metric : record->metrics) {
        const std::string value = text(metric, locale);
        if (!line.values.empty()) line.values += valueSeparator;
        line.values += value;
        spoken += ", " + (metric.label.empty() ? value : metric.label + " " + value);
    }
    line.accessibilityLabel = line.name + spoken + ", " + levelWord(record->level);
    return line;
}

std::string showBarLabel(bool shortcutRegistered) {
    std::string out(showBarTitle);
    if (shortcutRegistered) out += ", shortcut " + std::string(GlobalHotKey::displayName);
    return out;
}

}  // namespace SuiteFormat

namespace SuiteStatusItemPosition {

std::optional<double> read(const UserDefaults& defaults) {
    const std::optional<double> position = defaults.number(std::string(defaultsKey));
    if (position && !std::isfinite(*position)) return std::nullopt;
    return position;
}

Status write(double position, UserDefaults& defaults) {
    return defaults.set(std::string(defaultsKey), JsonValue(position));
}

}  // namespace SuiteStatusItemPosition

}  // namespace kestrow::suite
