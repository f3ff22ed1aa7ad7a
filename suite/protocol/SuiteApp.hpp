// The suite's fixed catalogue of sibling applications.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/RawValueEnum.hpp"

namespace kestrow::suite {

// Ordered as the catalogue lists them.
struct SuiteApp : RawValueEnum<SuiteApp> {
    enum Value : int { brimlet, corvane, dismel, fennick, garrow, hollin, jessap };
    static constexpr std::array<std::string_view, 7> rawValues{"brimlet", "corvane", "dismel", "fennick",
                                                               "garrow",  "hollin",  "jessap"};
    Value value = brimlet;

    constexpr SuiteApp() = default;
    constexpr SuiteApp(Value v) : value(v) {}

    std::string glanceFileName() const { return std::string(rawValue()) + ".json"; }
    std::string bundleIdentifier() const { return "com.kestrow." + std::string(rawValue()); }
    std::string displayName() const;
    std::string shortName() const { return displayName().substr(8); }  // drops "Kestrow "
    // Dismel and Hollin publish records that are never shown.
    bool participates() const { return value != dismel && value != hollin; }
    bool canHost() const { return value == brimlet || value == fennick || value == garrow || value == jessap; }
};

struct MetricRef {
    SuiteApp app;
    std::string metric;
    bool operator==(const MetricRef&) const = default;
};

}  // namespace kestrow::suite
