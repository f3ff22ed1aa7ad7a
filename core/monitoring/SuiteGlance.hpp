// The monitor's readout for the suite's shared menu-bar item: an overall level from memory pressure
// and up to three metrics, each published only when its figure could be read.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <array>

#include "MonitorTypes.hpp"

namespace brimlet {

struct SuiteGlance {
    struct Level : kestrow::RawValueEnum<Level> {
        enum Value : int { ok, notice, alert };
        static constexpr std::array<std::string_view, 3> rawValues{"ok", "notice", "alert"};
        Value value = ok;

        constexpr Level() = default;
        constexpr Level(Value v) : value(v) {}
    };

    struct Metric {
        std::string id;
        std::string label;
        double value = 0;
        std::string unit;
        Level level;
        bool operator==(const Metric&) const = default;
    };

    Level level;
    std::vector<Metric> metrics;

    explicit SuiteGlance(const SystemGlance& glance);
    bool operator==(const SuiteGlance&) const = default;
};

}  // namespace brimlet
