// Rounding of doubles to whole numbers, in plain arithmetic. The math library's versions are each
// one call into a shared library whose code pages then stay resident for an app that runs all day;
// these compile to a handful of instructions and leave that library unloaded. Each gives exactly
// what its standard counterpart gives (in the default rounding mode), the sign of zero included.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace kestrow {

namespace rounding {
// From 2^52 on, every double is a whole number.
inline constexpr double allWhole = 4503599627370496.0;
}  // namespace rounding

// As std::trunc: towards zero.
inline double truncated(double x) {
    if (!(std::fabs(x) < rounding::allWhole)) return x;  // whole already, infinite or not a number
    return std::copysign(static_cast<double>(static_cast<std::int64_t>(x)), x);
}

// As std::nearbyint: to the nearest, halves to the even neighbour. Adding 2^52 leaves no bits
// below the units, so the addition itself rounds; taking it away again is exact.
inline double roundedHalfEven(double x) {
    if (!(std::fabs(x) < rounding::allWhole)) return x;
    const double shift = std::copysign(rounding::allWhole, x);
    return std::copysign((x + shift) - shift, x);
}

// As std::round: to the nearest, halves away from zero. The fraction x − trunc(x) is exact, so
// 0.49999999999999994 stays 0, where adding a half and truncating would make it 1.
inline double roundedHalfAway(double x) {
    const double whole = truncated(x);
    return std::fabs(x - whole) >= 0.5 ? whole + std::copysign(1.0, x) : whole;
}

// As std::llround for every value it defines; beyond the range of long long the nearest limit,
// and not a number gives zero (where std::llround leaves the result unspecified).
inline long long roundedToInteger(double x) {
    const double whole = roundedHalfAway(x);
    if (whole != whole) return 0;
    if (whole >= 9223372036854775808.0) return std::numeric_limits<long long>::max();
    if (whole < -9223372036854775808.0) return std::numeric_limits<long long>::min();
    return static_cast<long long>(whole);
}

}  // namespace kestrow
