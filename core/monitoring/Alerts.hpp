// Background alerts that only inform: pressure that stays critical, a data volume running out of
// space, one application holding a very large amount of memory. Each kind waits 30 minutes before
// it repeats.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <array>

#include "MonitorTypes.hpp"

namespace brimlet {

struct AlertKind : kestrow::RawValueEnum<AlertKind> {
    enum Value : int { memoryPressure, lowDisk, heavyApp };
    static constexpr std::array<std::string_view, 3> rawValues{"memoryPressure", "lowDisk", "heavyApp"};
    Value value = memoryPressure;

    constexpr AlertKind() = default;
    constexpr AlertKind(Value v) : value(v) {}
};

struct AlertSettings {
    bool memoryPressureEnabled = true;
    bool lowDiskEnabled = true;
    bool heavyAppEnabled = true;
    // Decimal, as free disk space is shown; the memory threshold is binary, as memory is shown.
    std::uint64_t lowDiskThreshold = 10'000'000'000ULL;
    std::uint64_t heavyAppThreshold = 8'589'934'592ULL;

    bool isEnabled(AlertKind kind) const;
    bool operator==(const AlertSettings&) const = default;
};

JsonValue toJson(const AlertSettings& settings);
// Every key is required; a missing or mistyped one refuses the whole value.
bool fromJson(const JsonValue& json, AlertSettings& out);

struct Alert {
    AlertKind kind;
    std::string title;
    std::string body;
    bool operator==(const Alert&) const = default;
};

// The words an alert uses for the computer and for what to do about low space. The Mac's are the
// defaults; a platform that is not a Mac names the computer neutrally and points at what it offers.
struct AlertWording {
    std::string shortOnMemory = "Your Mac is short on memory.";
    std::string reclaimSpace = "Open Cleanup to reclaim space safely.";

    // This build's platform (defined beside the platform's readers).
    static AlertWording forThisPlatform();
    bool operator==(const AlertWording&) const = default;
};

struct AlertEvaluator {
    static constexpr std::chrono::seconds criticalDuration{30};
    static constexpr std::chrono::seconds cooldown{1800};

    std::optional<Date> criticalSince;  // start of the current unbroken run of critical samples
    std::map<AlertKind, Date> lastFired;
    AlertWording wording;

    // The alerts to post now, at most one of each kind, in the order pressure, disk, application.
    std::vector<Alert> evaluate(const MonitorSnapshot& snapshot, const AlertSettings& settings, Date now);
};

}  // namespace brimlet
