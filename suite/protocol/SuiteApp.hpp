// The suite's fixed catalogue of sibling applications.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrow::suite {

struct SuiteApp {
    enum Value { brimlet, corvane, dismel, fennick, garrow, hollin, jessap };
    Value value = brimlet;

    constexpr SuiteApp() = default;
    constexpr SuiteApp(Value v) : value(v) {}

    static const std::vector<SuiteApp>& allCases();  // catalogue order
    static std::optional<SuiteApp> fromRawValue(std::string_view raw);

    std::string_view rawValue() const;
    std::string glanceFileName() const { return std::string(rawValue()) + ".json"; }
    std::string bundleIdentifier() const { return "com.kestrow." + std::string(rawValue()); }
    std::string displayName() const;
    std::string shortName() const { return displayName().substr(8); }  // drops "Kestrow "
    // Dismel and Hollin publish records that are never shown.
    bool participates() const { return value != dismel && value != hollin; }
    bool canHost() const { return value == brimlet || value == fennick || value == garrow || value == jessap; }

    friend constexpr bool operator==(SuiteApp a, SuiteApp b) { return a.value == b.value; }
    friend constexpr bool operator<(SuiteApp a, SuiteApp b) { return a.value < b.value; }
};

struct MetricRef {
    SuiteApp app;
    std::string metric;
    bool operator==(const MetricRef&) const = default;
};

}  // namespace kestrow::suite
