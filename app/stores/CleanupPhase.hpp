// Where the application's cleanup run stands. Measuring, scanning and cleaning run off the main
// loop and are the busy phases: a run in one of them must not be reset or quit out from under.
#pragma once

#include <array>
#include <string_view>

#include "base/RawValueEnum.hpp"

namespace brimlet {

struct CleanupPhase : kestrow::RawValueEnum<CleanupPhase> {
    enum Value : int { idle, measuring, scanning, ready, cleaning, finished };
    static constexpr std::array<std::string_view, 6> rawValues{"idle",  "measuring", "scanning",
                                                               "ready", "cleaning",  "finished"};
    Value value = idle;

    constexpr CleanupPhase() = default;
    constexpr CleanupPhase(Value v) : value(v) {}

    constexpr bool isBusy() const { return value == measuring || value == scanning || value == cleaning; }
};

}  // namespace brimlet
