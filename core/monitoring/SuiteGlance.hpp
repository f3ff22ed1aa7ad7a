// The monitor's readout for the suite's shared menu-bar item: an overall level from memory pressure
// and up to three metrics, each published only when its figure could be read.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MonitorTypes.hpp"

namespace brimlet {

struct SuiteGlance {
    struct Level {
        enum Value { ok, notice, alert };
        Value value = ok;

        constexpr Level() = default;
        constexpr Level(Value v) : value(v) {}
        static std::optional<Level> fromRawValue(std::string_view raw);
        std::string_view rawValue() const;
        friend constexpr bool operator==(Level a, Level b) { return a.value == b.value; }
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
