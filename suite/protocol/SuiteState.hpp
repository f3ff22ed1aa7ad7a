// Settings shared by every suite member, and the host's view of the suite: which members run,
// whether the suite is active, whether a host is speaking, and what the shared item shows.
#pragma once

#include <limits>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "GlanceRecord.hpp"
#include "SuiteFolder.hpp"

namespace kestrow::suite {

// Keeps integers and doubles apart and every key intact, so settings a newer member stored survive
// our read and write.
using JSONValue = kestrow::JsonValue;

struct SuiteSettings {
    static constexpr std::size_t maxMenuBarValues = 2;
    static constexpr std::size_t readLimit = 65536;

    std::optional<std::vector<MetricRef>> menuBarValues;  // none: chosen automatically
    bool floatingVisible = false;
    bool floatingExpanded = false;
    std::optional<std::pair<double, double>> floatingTopLeft;
    std::optional<double> statusItemPosition;
    std::map<std::string, JSONValue> unknown;

    // Never fails: anything unreadable reads as the defaults.
    [[nodiscard]] static SuiteSettings decode(std::string_view bytes);
    [[nodiscard]] std::string encode() const;
    [[nodiscard]] static SuiteSettings read(const SuiteFolder& folder);
    kestrow::Status write(const SuiteFolder& folder) const;
    bool operator==(const SuiteSettings&) const = default;
};

struct SuiteRow {
    std::variant<GlanceRecord, SuiteApp> value;  // running with its record, or not running

    bool isRunning() const { return std::holds_alternative<GlanceRecord>(value); }
    const GlanceRecord* record() const { return std::get_if<GlanceRecord>(&value); }
    SuiteApp app() const { return isRunning() ? std::get<GlanceRecord>(value).app : std::get<SuiteApp>(value); }
    bool operator==(const SuiteRow&) const = default;
};

struct SuiteStateMachine {
    static constexpr double offDelay = 10;
    static constexpr double wakeGrace = 10;
    static constexpr double hostGrace = 5;
    static constexpr double notRunningShown = 60;

    bool isActive = false;
    std::optional<double> belowSince;
    double wakeUntil = -std::numeric_limits<double>::infinity();
    std::optional<double> activeSince;
    std::optional<double> hostSeenAt;
    std::map<SuiteApp, GlanceRecord> latest;
    std::map<SuiteApp, double> lastFreshAt;
    double now = 0;

    void update(const std::map<SuiteApp, GlanceRecord>& records, double now);
    void didWake(double now);
    [[nodiscard]] bool hostMissing() const;
    [[nodiscard]] bool showsOwnIcon(bool optIn) const;
    [[nodiscard]] std::vector<SuiteRow> rows() const;
    [[nodiscard]] GlanceLevel worstLevel() const;
    [[nodiscard]] std::vector<std::pair<MetricRef, GlanceMetric>> menuBarValues(const std::optional<std::vector<MetricRef>>& chosen) const;
};

}  // namespace kestrow::suite
