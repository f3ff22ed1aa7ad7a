#include "DockLayout.hpp"

#include <cmath>
#include <cstdio>
#include <unordered_map>
#include <variant>

#include "base/Checked.hpp"
#include "base/Files.hpp"
#include "base/JsonCoding.hpp"

namespace brimlet {

namespace {

// printf's rounding, as the platform's formatted strings use.
std::string format(const char* pattern, double value) {
    char buffer[64];
    const int n = std::snprintf(buffer, sizeof buffer, pattern, value);
    return n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : std::string();
}

std::optional<DockBadge> memoryBadge(const AppGroup& group, const DockBadgeSettings& settings) {
    const std::uint64_t value = group.footprint;
    if (value < settings.memoryThreshold) return std::nullopt;
    // Only reachable with an absurd stored threshold (2^62 bytes or more) that an application
    // actually meets; a wrong "heavy" flag is not something to guess at.
    const std::uint64_t heavyFrom =
        kestrow::checkedMultiply(4, settings.memoryThreshold, "Dock badge memory threshold overflows when quadrupled");
    return DockBadge{group.id, {}, DockLayout::compactMemory(value), heavyFrom <= value};
}

std::optional<DockBadge> cpuBadge(const AppGroup& group, const DockBadgeSettings& settings) {
    if (!group.cpuPercent) return std::nullopt;
    const double percent = *group.cpuPercent;
    // A figure that is not finite is a sampling fault, not a reading worth a badge ("inf%").
    if (!std::isfinite(percent) || percent < settings.cpuThreshold) return std::nullopt;
    return DockBadge{group.id, {}, format("%.0f%%", percent), 4 * settings.cpuThreshold <= percent};
}

}  // namespace

namespace {
constexpr auto dockBadgeSettingsFields = std::tuple{
    kestrow::field("memoryThreshold", &DockBadgeSettings::memoryThreshold),
    kestrow::field("cpuThreshold", &DockBadgeSettings::cpuThreshold),
};
}  // namespace

kestrow::JsonValue toJson(const DockBadgeSettings& settings) {
    return kestrow::encodeFields(settings, dockBadgeSettingsFields);
}

bool fromJson(const kestrow::JsonValue& json, DockBadgeSettings& out) {
    // Settings are read whole or not at all: a stored value with one bad field keeps the current ones.
    DockBadgeSettings decoded;
    if (!kestrow::decodeFields(json, decoded, dockBadgeSettingsFields)) return false;
    out = decoded;
    return true;
}

kestrow::Result<std::string> DockBadgeSettings::encoded() const { return kestrow::writeJson(toJson(*this)); }

std::optional<DockBadgeSettings> DockBadgeSettings::decode(std::string_view text) {
    auto parsed = kestrow::parseJson(text);
    const kestrow::JsonValue* json = parsed.ok() ? &*parsed : nullptr;
    DockBadgeSettings settings;
    if (!json || !fromJson(*json, settings)) return std::nullopt;
    return settings;
}

DockBadgeSettings DockBadgeSettings::decodedOrDefault(const std::optional<std::string>& stored) {
    if (!stored) return DockBadgeSettings();
    return decode(*stored).value_or(DockBadgeSettings());
}

namespace DockLayout {

std::string normalized(std::string_view path) {
    std::string result = kestrow::standardizePath(path);
    while (result.size() >= 2 && result.back() == '/') result.pop_back();
    return result;
}

Rect cocoaFrame(const Rect& frame, double primaryScreenHeight) {
    return Rect{{frame.minX(), primaryScreenHeight - frame.maxY()}, {frame.absoluteWidth(), frame.absoluteHeight()}};
}

std::string spokenLabel(std::string_view appName, std::string_view metricTitle, std::string_view text) {
    return std::string(appName) + ": " + std::string(metricTitle) + " " + std::string(text);
}

std::string compactMemory(std::uint64_t bytes) {
    const double gibibytes = static_cast<double>(bytes) / 1'073'741'824.0;
    if (gibibytes >= 1) return format("%.1f GB", gibibytes);
    return format("%.0f MB", static_cast<double>(bytes) / 1'048'576.0);
}

std::vector<DockBadge> badges(const std::vector<DockItem>& items, const std::vector<AppGroup>& apps,
                              DockBadgeMetric metric, const DockBadgeSettings& settings, double primaryScreenHeight) {
    // Groups arrive largest first; when two share a bundle path the larger one keeps the icon.
    std::unordered_map<std::string, const AppGroup*> byPath;
    byPath.reserve(apps.size());
    for (const AppGroup& group : apps)
        if (group.bundlePath) byPath.try_emplace(normalized(*group.bundlePath), &group);

    // The same by real path, for an application that runs from another path than its Dock tile
    // names (Safari from a Cryptex volume); made only when a tile finds no group by its path.
    std::optional<std::unordered_map<std::string, const AppGroup*>> byRealPath;
    const auto findReal = [&](const std::string& path) -> const AppGroup* {
        if (!byRealPath) {
            byRealPath.emplace();
            for (const AppGroup& group : apps)
                if (group.bundlePath)
                    if (auto real = kestrow::canonicalizePath(*group.bundlePath))
                        byRealPath->try_emplace(*real, &group);
        }
        const auto real = kestrow::canonicalizePath(path);
        if (!real) return nullptr;
        const auto found = byRealPath->find(*real);
        return found == byRealPath->end() ? nullptr : found->second;
    };

    std::vector<DockBadge> result;
    for (const DockItem& item : items) {
        if (!item.bundlePath) continue;
        const auto found = byPath.find(normalized(*item.bundlePath));
        const AppGroup* match = found != byPath.end() ? found->second : findReal(*item.bundlePath);
        if (!match) continue;
        const AppGroup& group = *match;
        auto badge = metric == DockBadgeMetric::memory ? memoryBadge(group, settings) : cpuBadge(group, settings);
        if (!badge) continue;
        badge->iconFrame = cocoaFrame(item.axFrame, primaryScreenHeight);
        result.push_back(std::move(*badge));
    }
    return result;
}

bool isDockVisible(const std::vector<Rect>& iconFrames, const std::vector<Rect>& screenFrames) {
    if (iconFrames.empty() || screenFrames.empty()) return false;
    std::size_t onScreen = 0;
    for (const Rect& icon : iconFrames) {
        for (const Rect& screen : screenFrames) {
            if (screen.contains(icon)) {
                ++onScreen;
                break;
            }
        }
    }
    return onScreen * 2 > iconFrames.size();
}

}  // namespace DockLayout

}  // namespace brimlet
