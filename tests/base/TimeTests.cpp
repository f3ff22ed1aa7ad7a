#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "base/Rounding.hpp"
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

// The plain-arithmetic rounding must give what the math library gives, bit for bit (the sign of
// zero too), at the awkward values and over a spread of random ones.
TEST(Rounding, AgreesWithTheMathLibraryBitForBit) {
    const auto bits = [](double d) {
        std::uint64_t b = 0;
        std::memcpy(&b, &d, sizeof b);
        return b;
    };
    std::vector<double> values = {0.0,
                                  -0.0,
                                  0.5,
                                  -0.5,
                                  1.5,
                                  2.5,
                                  -2.5,
                                  0.49999999999999994,
                                  -0.49999999999999994,
                                  0.3,
                                  -0.3,
                                  4503599627370495.5,
                                  -4503599627370495.5,
                                  4503599627370496.0,
                                  9007199254740993.0,
                                  1e300,
                                  -1e300,
                                  std::numeric_limits<double>::denorm_min(),
                                  -std::numeric_limits<double>::denorm_min(),
                                  std::numeric_limits<double>::infinity(),
                                  -std::numeric_limits<double>::infinity()};
    std::mt19937_64 random(11);
    std::uniform_real_distribution<double> spread(-1e6, 1e6);
    for (int i = 0; i < 20000; ++i) {
        const double v = spread(random);
        values.push_back(v);
        values.push_back(std::floor(v) + 0.5);  // exact halves
        values.push_back(v / 1e6);
    }
    for (const double v : values) {
        EXPECT_EQ(bits(kestrow::truncated(v)), bits(std::trunc(v))) << v;
        EXPECT_EQ(bits(kestrow::roundedHalfEven(v)), bits(std::nearbyint(v))) << v;
        EXPECT_EQ(bits(kestrow::roundedHalfAway(v)), bits(std::round(v))) << v;
        if (std::fabs(v) < 9e18) {
            EXPECT_EQ(kestrow::roundedToInteger(v), std::llround(v)) << v;
        }
    }
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(std::isnan(kestrow::truncated(nan)) && std::isnan(kestrow::roundedHalfEven(nan)) &&
                std::isnan(kestrow::roundedHalfAway(nan)));
    EXPECT_EQ(kestrow::roundedToInteger(nan), 0);
    EXPECT_EQ(kestrow::roundedToInteger(1e19), std::numeric_limits<long long>::max());
    EXPECT_EQ(kestrow::roundedToInteger(-1e19), std::numeric_limits<long long>::min());
}
