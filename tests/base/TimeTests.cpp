#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>

#include "base/Time.hpp"

namespace kestrow {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

// What a timer or a system call receives for a length: never negative, never past the integer's range,
// a fraction rounded to the nearest unit.
TEST(Time, WholeDurationsClampAndRound) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    struct Case {
        double seconds;
        std::int64_t nanoseconds;
    };
    const Case cases[] = {
        {0, 0},
        {-0.0, 0},
        {-1e-9, 0},
        {-5, 0},
        {-infinity, 0},
        {std::nan(""), 0},
        {1e-9, 1},
        {0.4e-9, 0},
        {0.6e-9, 1},
        {0.001, 1'000'000},
        {4.9, 4'900'000'000},
        {10.1, 10'100'000'000},
        {9.2e9, 9'200'000'000'000'000'000},  // about 290 years: still within 64 bits
        {9.3e9, std::numeric_limits<std::int64_t>::max()},
        {1e300, std::numeric_limits<std::int64_t>::max()},
        {infinity, std::numeric_limits<std::int64_t>::max()},
    };
    for (const Case& c : cases)
        EXPECT_EQ(wholeDuration<nanoseconds>(Seconds(c.seconds)).count(), c.nanoseconds) << c.seconds;

    struct MillisecondCase {
        double seconds;
        std::int64_t milliseconds;
    };
    const MillisecondCase coarser[] = {
        {0.0004, 0}, {0.0005, 1}, {1.2346, 1'235}, {-0.5, 0}, {2.5e16, std::numeric_limits<std::int64_t>::max()}};
    for (const MillisecondCase& c : coarser)
        EXPECT_EQ(wholeDuration<milliseconds>(Seconds(c.seconds)).count(), c.milliseconds) << c.seconds;
}

// A record's "at" leaves as seconds since 1970 and comes back as the same moment, whatever its sign
// or size, fraction included.
TEST(Time, EpochSecondsKeepTheMomentExactly) {
    const double moments[] = {0,
                              -0.5,
                              -86'400.25,
                              1'700'000'000.0,
                              1'700'000'003.5,
                              1'700'000'010.1,
                              4.1e9,
                              -1e12,
                              1e300,
                              std::numeric_limits<double>::denorm_min()};
    for (const double moment : moments) EXPECT_EQ(epochSeconds(fromEpochSeconds(moment)), moment) << moment;
    // The wall clock's own reading lands within a microsecond of itself through the number.
    const auto now = WallClock::now();
    const WallTime through = fromEpochSeconds(epochSeconds(now));
    EXPECT_LE(std::chrono::abs(through - WallTime(now)), std::chrono::microseconds(1));
}

}  // namespace
}  // namespace kestrow
