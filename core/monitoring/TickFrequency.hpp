// The length of the kernel's CPU-time tick, from the frequency of the hardware timebase.
//
// Task CPU times (the resource-usage record's user and system times) count timebase ticks. A
// translated (Rosetta) process is told by mach_timebase_info that a tick is one nanosecond, as on
// an Intel Mac, while the kernel keeps counting the native 24 MHz ticks; its CPU figures then read
// 125/3 ≈ 41.7 times too low. The timebase frequency (sysctl "hw.tbfrequency") is the same for
// native and translated processes, so the clock derived from it is right for both.
#pragma once

#include <cstdint>
#include <numeric>
#include <optional>

#include "ProcessReader.hpp"

namespace brimlet {

// 10^9 / hertz nanoseconds a tick as a reduced fraction: 24 MHz gives 125/3, 1 GHz gives 1/1.
// None for a frequency of 0.
inline std::optional<TickClock> tickClockForFrequency(std::uint64_t hertz) {
    if (hertz == 0) return std::nullopt;
    constexpr std::uint64_t nanosecondsPerSecond = 1'000'000'000;
    const std::uint64_t common = std::gcd(nanosecondsPerSecond, hertz);
    return TickClock{nanosecondsPerSecond / common, hertz / common};
}

}  // namespace brimlet
