// Which running applications get a badge over their Dock icon, with what text and where. The
// platform reads the Dock's icons (title, bundle path, frame) and draws the badges; every decision
// in between is made here, free of platform calls.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Geometry.hpp"
#include "base/Json.hpp"
#include "base/RawValueEnum.hpp"
#include "core/monitoring/MonitorTypes.hpp"

namespace brimlet {

using kestrow::Rect;

// One icon of the Dock as Accessibility reports it: origin at the top left of the primary screen,
// y growing downwards.
struct DockItem {
    std::string title;
    std::optional<std::string> bundlePath;
    Rect axFrame;

    bool operator==(const DockItem&) const = default;
};

struct DockBadge {
    std::string id;  // the application group's id
    Rect iconFrame;  // window-system coordinates: origin at the bottom left, y growing upwards
    std::string text;
    bool isHeavy = false;  // at least four times the threshold: drawn in the stronger form

    bool operator==(const DockBadge&) const = default;
};

struct DockBadgeMetric : kestrow::RawValueEnum<DockBadgeMetric> {
    enum Value : int { memory, cpu };
    static constexpr std::array<std::string_view, 2> rawValues{"memory", "cpu"};
    Value value = memory;

    constexpr DockBadgeMetric() = default;
    constexpr DockBadgeMetric(Value v) : value(v) {}

    std::string_view id() const { return rawValue(); }
    std::string_view title() const { return value == memory ? "Memory" : "CPU"; }
};

struct DockBadgeSettings {
    static constexpr std::uint64_t defaultMemoryThreshold = 524'288'000;  // 500 MiB
    static constexpr double defaultCpuThreshold = 10.0;                   // percent of one core

    std::uint64_t memoryThreshold = defaultMemoryThreshold;
    double cpuThreshold = defaultCpuThreshold;

    // Compact JSON with both keys; none when the CPU threshold is not finite (JSON has no such
    // number). Decoding needs both keys with numbers of the right kind.
    [[nodiscard]] kestrow::Result<std::string> encoded() const;
    static std::optional<DockBadgeSettings> decode(std::string_view text);
    // What a reader of a stored value uses: the stored settings, or the defaults when absent or
    // not decodable.
    static DockBadgeSettings decodedOrDefault(const std::optional<std::string>& stored);

    bool operator==(const DockBadgeSettings&) const = default;
};

kestrow::JsonValue toJson(const DockBadgeSettings& settings);
bool fromJson(const kestrow::JsonValue& json, DockBadgeSettings& out);

namespace DockLayout {

std::vector<DockBadge> badges(const std::vector<DockItem>& items, const std::vector<AppGroup>& apps,
                              DockBadgeMetric metric, const DockBadgeSettings& settings, double primaryScreenHeight);

// The Dock counts as visible when more than half of its icons lie wholly on some screen; an
// auto-hidden Dock keeps its icons off screen.
bool isDockVisible(const std::vector<Rect>& iconFrames, const std::vector<Rect>& screenFrames);

// From Accessibility's top-left origin to the window system's bottom-left origin.
Rect cocoaFrame(const Rect& frame, double primaryScreenHeight);

// "." and ".." resolved, repeated and trailing slashes dropped; "/" stays "/".
std::string normalized(std::string_view path);

// "1.5 GB" from one GiB up, else whole MB on binary divisors: short enough for a badge.
// What VoiceOver reads for a badge: "Safari: Memory 1.2 GB".
std::string spokenLabel(std::string_view appName, std::string_view metricTitle, std::string_view text);
std::string compactMemory(std::uint64_t bytes);

}  // namespace DockLayout

}  // namespace brimlet
