// The program's two clocks and its durations, as types.
//
// Two clocks because they answer different questions. The continuous clock answers "how long
// since": it never jumps and keeps counting while the machine sleeps, so timers, rate limits and
// ages count on it; its readings mean nothing outside this process. The wall clock answers "when":
// it is what other processes and files agree on (a glance record's time, a report's date), and the
// user or the network may set it back or ahead at any moment. A time point of one subtracted from
// or compared with one of the other does not compile, so neither is taken for the other by accident.
#pragma once

#include "Rounding.hpp"
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>

namespace kestrow {

// A length of time where fractions matter (intervals, tolerances, ages).
using Seconds = std::chrono::duration<double>;

// The clock that counts time asleep (CLOCK_BOOTTIME, mach_continuous_time); only differences
// between its readings mean anything. Each platform defines `now`.
struct ContinuousClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<ContinuousClock>;
    static constexpr bool is_steady = true;
    static time_point now() noexcept;
};

// A moment on the continuous clock in fractional seconds: what the main loop reports and its
// timers count in.
using ContinuousTime = std::chrono::time_point<ContinuousClock, Seconds>;

// The wall clock, and a moment on it in fractional seconds since 1970-01-01 UTC.
using WallClock = std::chrono::system_clock;
using WallTime = std::chrono::time_point<WallClock, Seconds>;

// Where a moment leaves the program as a number (a glance record's "at", a log line) or comes back
// from one: the number of seconds since 1970, fraction included.
constexpr double epochSeconds(WallTime time) { return time.time_since_epoch().count(); }
constexpr WallTime fromEpochSeconds(double seconds) { return WallTime(Seconds(seconds)); }

// A length of time as a whole number of `Unit`s, rounded to the nearest, for the system calls and
// integral counters that take one: negative and not-a-number give zero, beyond the range the
// largest count.
template <class Unit>
Unit wholeDuration(Seconds length) {
    using Rep = typename Unit::rep;
    const double count = std::chrono::duration<double, typename Unit::period>(length).count();
    if (!(count > 0)) return Unit::zero();
    // The type's largest value as a double: 64 bits round up to 2^63, so every count below it fits,
    // and converting a count at or past it would be undefined.
    constexpr double limit = static_cast<double>(std::numeric_limits<Rep>::max());
    if (count >= limit) return Unit::max();
    return Unit(static_cast<Rep>(kestrow::roundedToInteger(count)));
}

}  // namespace kestrow
