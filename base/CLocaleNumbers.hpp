// Decimal numbers in the notation of the "C" locale ("." before the fraction), whatever locale the
// process or a library it loads has chosen for LC_NUMERIC. JSON and the kernel's text files use
// that notation; strtod alone would read "0.5" as 0 under a comma-decimal locale.
#pragma once

#include <optional>
#include <string>

namespace kestrow {

// Reads the whole text as a decimal floating-point number, correctly rounded to the nearest double.
// None unless every character belongs to the number. A number beyond the double range reads as
// ±infinity and one below it as zero or a subnormal; callers decide whether that is acceptable.
std::optional<double> readCLocaleDouble(const std::string& text);

}  // namespace kestrow
