// The glance record: the small JSON document each suite member writes about itself, and the codec
// that writes and validates it. Its bytes and its refusal texts are the contract between separate
// applications, so both are fixed.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "SuiteApp.hpp"
#include "base/Json.hpp"
#include "base/RawValueEnum.hpp"
#include "base/Status.hpp"

namespace kestrow::suite {

// Ordered ok < notice < alert.
struct GlanceLevel : RawValueEnum<GlanceLevel> {
    enum Value : int { ok, notice, alert };
    static constexpr std::array<std::string_view, 3> rawValues{"ok", "notice", "alert"};
    Value value = ok;
    constexpr GlanceLevel() = default;
    constexpr GlanceLevel(Value v) : value(v) {}
};

struct GlanceState : RawValueEnum<GlanceState> {
    enum Value : int { running, stopped };
    static constexpr std::array<std::string_view, 2> rawValues{"running", "stopped"};
    Value value = running;
    constexpr GlanceState() = default;
    constexpr GlanceState(Value v) : value(v) {}
};

// The closed list of words a metric may show instead of a number.
struct StateWord : RawValueEnum<StateWord> {
    enum Value : int { on, off, active, idle, paused, blocked, allowed, ok, warning, error, none };
    static constexpr std::array<std::string_view, 11> rawValues{
        "on", "off", "active", "idle", "paused", "blocked", "allowed", "ok", "warning", "error", "none"};
    Value value = on;
    constexpr StateWord() = default;
    constexpr StateWord(Value v) : value(v) {}
};

// A number or a state word.
using MetricValue = std::variant<double, StateWord>;

struct GlanceMetric {
    std::string id;
    std::string label;
    MetricValue value = 0.0;
    std::string unit;
    GlanceLevel level;
    bool operator==(const GlanceMetric&) const = default;
};

struct GlanceRecord {
    static constexpr std::int64_t ttlMin = 3;  // ttlRange: 3...60, both ends included
    static constexpr std::int64_t ttlMax = 60;
    static constexpr double futureTolerance = 2.0;

    std::int64_t contract = 1;
    SuiteApp app;
    bool hosting = false;
    GlanceState state;
    double at = 0;  // seconds since 1970
    std::int64_t ttl = 10;
    GlanceLevel level;
    std::vector<GlanceMetric> metrics;

    GlanceRecord() = default;
    GlanceRecord(SuiteApp app, bool hosting, GlanceState state, double at, std::int64_t ttl, GlanceLevel level,
                 std::vector<GlanceMetric> metrics, std::int64_t contract = 1)
        : contract(contract),
          app(app),
          hosting(hosting),
          state(state),
          at(at),
          ttl(ttl),
          level(level),
          metrics(std::move(metrics)) {}

    // Not stopped, and dated no more than 2 s ahead of now nor more than ttl behind it.
    [[nodiscard]] bool isFresh(double now) const;
    bool operator==(const GlanceRecord&) const = default;
};

// A record read from a member's file, or why there is none: `dataLoss` with the fixed reason when
// the bytes are not a valid record, `failedPrecondition` ("contract N") when they are written for a
// later contract than this one, which is skipped rather than taken for damage, and
// `permissionDenied` when the protected read refused the file.
using GlanceRead = kestrow::Result<GlanceRecord>;

namespace GlanceCodec {

inline constexpr std::size_t maxBytes = 2048;

// The bytes, or an invalid-argument failure whose text is the fixed reason the record cannot be written.
[[nodiscard]] kestrow::Result<std::string> encode(const GlanceRecord& record);
[[nodiscard]] GlanceRead decode(std::string_view bytes, std::string_view fileName);

// The validation rules: the problem a record has, as a failure carrying the fixed reason text.
[[nodiscard]] kestrow::Status problem(const GlanceRecord& record);
[[nodiscard]] kestrow::Status problem(const GlanceMetric& metric);
// The safe-text rule for a label (1...16) or a unit (0...6).
[[nodiscard]] kestrow::Status textProblem(std::string_view field, std::string_view text, std::size_t lower,
                                          std::size_t upper);

// Loose readers of JSON values.
[[nodiscard]] std::optional<std::int64_t> integer(const JsonValue& value);
[[nodiscard]] std::optional<bool> boolean(const JsonValue& value);
[[nodiscard]] std::optional<double> number(const JsonValue& value);

}  // namespace GlanceCodec

// Unicode scalars of well-formed UTF-8; none for ill-formed text.
[[nodiscard]] std::optional<std::vector<char32_t>> unicodeScalars(std::string_view utf8);

}  // namespace kestrow::suite
