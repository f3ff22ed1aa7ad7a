#include "Alerts.hpp"

#include "base/JsonCoding.hpp"
#include "core/common/ByteFormat.hpp"

namespace brimlet {

bool AlertSettings::isEnabled(AlertKind kind) const {
    switch (kind.value) {
    case AlertKind::memoryPressure: return memoryPressureEnabled;
    case AlertKind::lowDisk: return lowDiskEnabled;
    case AlertKind::heavyApp: return heavyAppEnabled;
    }
    return false;
}

namespace {
using kestrow::field;

constexpr auto alertSettingsFields = std::tuple{
    field("memoryPressureEnabled", &AlertSettings::memoryPressureEnabled),
    field("lowDiskEnabled", &AlertSettings::lowDiskEnabled),
    field("heavyAppEnabled", &AlertSettings::heavyAppEnabled),
    field("lowDiskThreshold", &AlertSettings::lowDiskThreshold),
    field("heavyAppThreshold", &AlertSettings::heavyAppThreshold),
};
}  // namespace

JsonValue toJson(const AlertSettings& s) { return kestrow::encodeFields(s, alertSettingsFields); }

bool fromJson(const JsonValue& json, AlertSettings& s) { return kestrow::decodeFields(json, s, alertSettingsFields); }

std::vector<Alert> AlertEvaluator::evaluate(const MonitorSnapshot& snapshot, const AlertSettings& settings, Date now) {
    std::vector<Alert> candidates;
    // The critical run is tracked whatever the settings say, so enabling the alert during a long
    // run fires at once instead of waiting another 30 seconds.
    if (snapshot.system.pressure == MemoryPressure::critical) {
        if (!criticalSince) criticalSince = now;
        if (now - *criticalSince >= criticalDuration) {
            std::string top = "unknown";
            if (!snapshot.apps.empty())
                top = snapshot.apps.front().name + ", " + ByteFormat::memory(snapshot.apps.front().footprint);
            candidates.push_back({AlertKind::memoryPressure, "Memory pressure is critical",
                                  wording.shortOnMemory + " Top app: " + top + "."});
        }
    } else {
        criticalSince.reset();
    }

    if (snapshot.system.diskTotal != 0 && snapshot.system.diskFree < settings.lowDiskThreshold) {
        candidates.push_back({AlertKind::lowDisk, "Disk space is low",
                              ByteFormat::string(snapshot.system.diskFree) + " free. " + wording.reclaimSpace});
    }

    for (const AppGroup& group : snapshot.apps) {
        if (group.footprint > settings.heavyAppThreshold) {
            candidates.push_back({AlertKind::heavyApp, group.name + " is using a lot of memory",
                                  group.name + " is using " + ByteFormat::memory(group.footprint) + "."});
            break;
        }
    }

    std::vector<Alert> kept;
    for (Alert& alert : candidates) {
        if (!settings.isEnabled(alert.kind)) continue;
        if (auto last = lastFired.find(alert.kind); last != lastFired.end() && now - last->second < cooldown) continue;
        lastFired[alert.kind] = now;
        kept.push_back(std::move(alert));
    }
    return kept;
}

}  // namespace brimlet
