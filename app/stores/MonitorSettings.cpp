#include "app/stores/MonitorSettings.hpp"

namespace brimlet::MonitorSettingsCoding {

bool readBool(const kestrow::UserDefaults& defaults, const std::string& key, bool fallback) {
    return defaults.boolean(key).value_or(fallback);
}

AlertSettings readAlertSettings(const kestrow::UserDefaults& defaults) {
    const auto stored = defaults.value(MonitorSettingKeys::alertSettings);
    const std::string* text = stored ? stored->asString() : nullptr;
    if (!text) return AlertSettings();
    auto parsed = kestrow::parseJson(*text);
    AlertSettings settings;
    if (parsed.ok() && fromJson(*parsed, settings)) return settings;
    return AlertSettings();
}

kestrow::Result<std::string> encode(const AlertSettings& settings) { return kestrow::writeJson(toJson(settings)); }

DockBadgeSettings readDockBadgeSettings(const kestrow::UserDefaults& defaults) {
    const auto stored = defaults.value(MonitorSettingKeys::dockBadgeSettings);
    const std::string* text = stored ? stored->asString() : nullptr;
    return DockBadgeSettings::decodedOrDefault(text ? std::optional<std::string>(*text) : std::nullopt);
}

}  // namespace brimlet::MonitorSettingsCoding
