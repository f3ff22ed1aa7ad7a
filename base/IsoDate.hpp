// ISO 8601 dates in UTC, the form every JSON file of the product uses.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace kestrow {

using Date = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

// The current time at microsecond precision, so that a written date reads back equal.
Date currentDate();

// "2026-11-23T09:15:02Z"; a date with a fraction of a second keeps it: "…02.125Z", "…02.000125Z".
std::string formatIsoDate(Date date);

// Accepts "YYYY-MM-DDThh:mm:ss", an optional fraction of 1–9 digits (beyond microseconds truncated),
// then "Z" or an offset "+hh:mm" / "-hh:mm". Anything else, or an impossible date, gives none.
std::optional<Date> parseIsoDate(std::string_view text);

}  // namespace kestrow
