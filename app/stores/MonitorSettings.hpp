// The monitor's display settings as the user defaults keep them: string raw values, booleans and
// encoded records under dotted keys. Anything unknown or unreadable reads as the setting's default,
// so a value written by a newer or older version never stops the app from starting.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "base/RawValueEnum.hpp"
#include "base/UserDefaults.hpp"
#include "core/desktop/DockLayout.hpp"
#include "core/monitoring/Alerts.hpp"

namespace brimlet {

struct MenuBarDisplay : kestrow::RawValueEnum<MenuBarDisplay> {
    enum Value : int { iconOnly, bar, barAndPercent };
    static constexpr std::array<std::string_view, 3> rawValues{"iconOnly", "bar", "barAndPercent"};
    Value value = barAndPercent;

    constexpr MenuBarDisplay() = default;
    constexpr MenuBarDisplay(Value v) : value(v) {}
};

struct FloatingTheme : kestrow::RawValueEnum<FloatingTheme> {
    enum Value : int { system, light, dark };
    static constexpr std::array<std::string_view, 3> rawValues{"system", "light", "dark"};
    Value value = system;

    constexpr FloatingTheme() = default;
    constexpr FloatingTheme(Value v) : value(v) {}
};

struct FloatingLook : kestrow::RawValueEnum<FloatingLook> {
    enum Value : int { glass, solid, subtle, faint };
    static constexpr std::array<std::string_view, 4> rawValues{"glass", "solid", "subtle", "faint"};
    Value value = glass;

    constexpr FloatingLook() = default;
    constexpr FloatingLook(Value v) : value(v) {}
};

struct DockBadgeMode : kestrow::RawValueEnum<DockBadgeMode> {
    enum Value : int { off, memory, cpu };
    static constexpr std::array<std::string_view, 3> rawValues{"off", "memory", "cpu"};
    Value value = off;

    constexpr DockBadgeMode() = default;
    constexpr DockBadgeMode(Value v) : value(v) {}
};

namespace MonitorSettingKeys {
inline constexpr const char* alertSettings = "alertSettings";
inline constexpr const char* menuBarDisplay = "menuBarDisplay";
inline constexpr const char* floatingVisible = "floating.visible";
inline constexpr const char* floatingTheme = "floating.theme";
inline constexpr const char* floatingLook = "floating.look";
inline constexpr const char* dockBadges = "dock.badges";
inline constexpr const char* dockBadgeSettings = "dock.badgeSettings";
}  // namespace MonitorSettingKeys

namespace MonitorSettingsCoding {

// A string raw value of the enumeration, or its default.
template <typename E>
E readEnum(const kestrow::UserDefaults& defaults, const std::string& key, E fallback = E()) {
    const auto stored = defaults.value(key);
    const std::string* raw = stored ? stored->asString() : nullptr;
    if (!raw) return fallback;
    return E::fromRawValue(*raw).value_or(fallback);
}

bool readBool(const kestrow::UserDefaults& defaults, const std::string& key, bool fallback);

// Encoded records travel as their JSON text (property lists have no place for raw data we could
// share with the Linux files).
AlertSettings readAlertSettings(const kestrow::UserDefaults& defaults);
[[nodiscard]] kestrow::Result<std::string> encode(const AlertSettings& settings);
DockBadgeSettings readDockBadgeSettings(const kestrow::UserDefaults& defaults);

}  // namespace MonitorSettingsCoding

}  // namespace brimlet
