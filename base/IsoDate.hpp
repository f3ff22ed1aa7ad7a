// ISO 8601 dates in UTC, the form every JSON file of the product uses.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace kestrow {

using Date = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

// The current time at microsecond precision (durations between two dates keep it; written dates
// do not).
Date currentDate();

// "2026-11-23T09:15:02Z": whole seconds, the fraction dropped (rounded toward the past), since
// standard ISO 8601 decoders elsewhere refuse fractional seconds.
[[nodiscard]] std::string formatIsoDate(Date date);

// Lenient: accepts "YYYY-MM-DDThh:mm:ss", an optional fraction of 1–9 digits (beyond microseconds truncated),
// then "Z" or an offset "+hh:mm" / "-hh:mm". Anything else, or an impossible date, gives none.
[[nodiscard]] std::optional<Date> parseIsoDate(std::string_view text);

}  // namespace kestrow
