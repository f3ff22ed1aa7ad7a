#include "SuiteState.hpp"

#include <algorithm>
#include <cmath>

namespace kestrow::suite {

SuiteSettings SuiteSettings::decode(std::string_view bytes) {
    SuiteSettings settings;
    auto parsed = parseJson(bytes);
    if (parsed.failed()) return settings;
    JsonObject* object = parsed->asObject();
    if (!object) return settings;

    if (auto it = object->find("menuBarValues"); it != object->end() && it->second.asArray()) {
        std::vector<MetricRef> refs;
        for (const JsonValue& element : *it->second.asArray()) {
            const JsonValue* app = element.find("app");
            const JsonValue* metric = element.find("metric");
            const auto suiteApp = app && app->asString() ? SuiteApp::fromRawValue(*app->asString()) : std::nullopt;
            if (suiteApp && metric && metric->asString()) refs.push_back({*suiteApp, *metric->asString()});
        }
        if (refs.size() > maxMenuBarValues) refs.resize(maxMenuBarValues);
        settings.menuBarValues = std::move(refs);
        object->erase(it);
    }
    auto takeBool = [&](const char* key, bool& out) {
        auto it = object->find(key);
        if (it == object->end() || !it->second.asBool()) return;
        out = *it->second.asBool();
        object->erase(it);
    };
    takeBool("floatingVisible", settings.floatingVisible);
    takeBool("floatingExpanded", settings.floatingExpanded);
    if (auto it = object->find("floatingTopLeft"); it != object->end()) {
        const JsonArray* pair = it->second.asArray();
        if (pair && pair->size() == 2 && (*pair)[0].asNumber() && (*pair)[1].asNumber()) {
            settings.floatingTopLeft =
                std::make_pair((*pair)[0].asNumber()->asDouble(), (*pair)[1].asNumber()->asDouble());
            object->erase(it);
        }
    }
    if (auto it = object->find("statusItemPosition"); it != object->end() && it->second.asNumber()) {
        settings.statusItemPosition = it->second.asNumber()->asDouble();
        object->erase(it);
    }
    settings.unknown = std::move(*object);
    return settings;
}

std::string SuiteSettings::encode() const {
    JsonObject object(unknown.begin(), unknown.end());
    if (menuBarValues) {
        JsonArray refs;
        for (std::size_t i = 0; i < menuBarValues->size() && i < maxMenuBarValues; ++i) {
            const MetricRef& ref = (*menuBarValues)[i];
            refs.push_back(
                JsonValue(JsonObject{{"app", JsonValue(ref.app.rawValue())}, {"metric", JsonValue(ref.metric)}}));
        }
        object["menuBarValues"] = JsonValue(std::move(refs));
    }
    object["floatingVisible"] = JsonValue(floatingVisible);
    object["floatingExpanded"] = JsonValue(floatingExpanded);
    if (floatingTopLeft)
        object["floatingTopLeft"] =
            JsonValue(JsonArray{JsonValue(floatingTopLeft->first), JsonValue(floatingTopLeft->second)});
    if (statusItemPosition) object["statusItemPosition"] = JsonValue(*statusItemPosition);
    // Only a non-finite number cannot be written; such a value is left out rather than the file lost.
    if (auto text = writeJson(JsonValue(object)); text.ok()) return *text;
    object.erase("floatingTopLeft");
    object.erase("statusItemPosition");
    auto text = writeJson(JsonValue(object));
    return text.ok() ? *text : "{}";
}

SuiteSettings SuiteSettings::read(const SuiteFolder& folder) {
    const kestrow::Result<std::string> file = safeRead(folder.settingsURL(), readLimit);
    return file.ok() ? decode(*file) : SuiteSettings{};
}

kestrow::Status SuiteSettings::write(const SuiteFolder& folder) const {
    auto opened = OpenSuiteFolder::open(folder);
    if (opened.failed()) return opened.status();
    return write(*opened);
}

namespace {
constexpr const char* settingsFileName = "settings.json";
}  // namespace

SuiteSettings::Loaded SuiteSettings::load(const OpenSuiteFolder& folder) {
    // One byte more than is read as settings tells a file that is too long from one that fits.
    const kestrow::Result<std::string> file = folder.readFile(settingsFileName, readLimit + 1);
    if (file.status().cause() == kestrow::Cause::notFound) return {};
    if (file.failed()) return {SuiteSettings{}, file.status().message()};
    const std::string& bytes = *file;
    if (bytes.size() > readLimit) return {SuiteSettings{}, "larger than 65,536 bytes"};
    auto parsed = parseJson(bytes);
    if (parsed.failed() || !parsed->asObject()) return {SuiteSettings{}, "not a JSON object"};
    return {decode(bytes), std::nullopt};
}

kestrow::Status SuiteSettings::write(const OpenSuiteFolder& folder) const {
    if (auto current = load(folder); current.unreadable)
        return kestrow::Status::failure("settings.json could not be read (" + *current.unreadable +
                                        "); it is kept as it is");
    return folder.writeFile(settingsFileName, encode());
}

void RecordSightings::observe(const std::map<SuiteApp, GlanceRecord>& records, ContinuousTime readerNow) {
    for (auto it = seen.begin(); it != seen.end();) it = records.count(it->first) ? std::next(it) : seen.erase(it);
    for (const auto& [app, record] : records) {
        auto [it, first] = seen.emplace(app, Sighting{record, std::nullopt});
        if (first || it->second.record == record) continue;
        it->second.record = record;
        it->second.changedAt = readerNow;
    }
}

std::set<SuiteApp> RecordSightings::vouched(ContinuousTime readerNow) const {
    std::set<SuiteApp> apps;
    for (const auto& [app, sighting] : seen) {
        if (!sighting.changedAt || sighting.record.state != GlanceState::running) continue;
        const Seconds age = readerNow - *sighting.changedAt;
        if (age >= Seconds::zero() && age < Seconds(static_cast<double>(sighting.record.ttl))) apps.insert(app);
    }
    return apps;
}

bool SuiteStateMachine::isFresh(const GlanceRecord& record) const {
    if (record.isFresh(epochSeconds(now))) return true;
    return record.state == GlanceState::running && vouched.count(record.app) > 0;
}

void SuiteStateMachine::clockChanged(Seconds jump) {
    now += jump;
    if (belowSince) *belowSince += jump;
    if (wakeUntil) *wakeUntil += jump;
    if (activeSince) *activeSince += jump;
    if (hostSeenAt) *hostSeenAt += jump;
    for (auto& [app, at] : lastFreshAt) at += jump;
}

void SuiteStateMachine::update(const std::map<SuiteApp, GlanceRecord>& records, WallTime time,
                               std::set<SuiteApp> vouchedFor) {
    now = time;
    vouched = std::move(vouchedFor);
    latest.clear();
    std::vector<const GlanceRecord*> fresh;
    for (const auto& [app, record] : records) {
        if (!app.participates()) continue;
        const GlanceRecord& kept = latest.emplace(app, record).first->second;
        if (isFresh(kept)) {
            fresh.push_back(&kept);
            lastFreshAt[app] = now;
        }
    }
    if (fresh.size() < 2) {
        if (!isActive) return;
        if (!wakeUntil || now >= *wakeUntil) {
            if (!belowSince) belowSince = now;
            if (now - *belowSince >= offDelay) {
                isActive = false;
                activeSince.reset();
                hostSeenAt.reset();
                belowSince.reset();
                return;
            }
        } else {
            belowSince.reset();
        }
    } else {
        if (!isActive) {
            isActive = true;
            activeSince = now;
            hostSeenAt.reset();
        }
        belowSince.reset();
    }
    for (const GlanceRecord* record : fresh)
        if (record->hosting) hostSeenAt = now;
}

void SuiteStateMachine::didWake(WallTime time) {
    wakeUntil = time + wakeGrace;
    belowSince.reset();
}

bool SuiteStateMachine::hostMissing() const {
    if (!isActive) return false;
    const std::optional<WallTime> since = hostSeenAt ? hostSeenAt : activeSince;
    if (!since) return false;
    return now - *since > hostGrace;
}

bool SuiteStateMachine::showsOwnIcon(bool optIn) const {
    if (!isActive || optIn) return true;
    return hostMissing();
}

std::vector<SuiteRow> SuiteStateMachine::rows() const {
    std::vector<SuiteRow> result;
    for (SuiteApp app : SuiteApp::allCases()) {
        if (!app.participates()) continue;
        if (auto it = latest.find(app); it != latest.end() && isFresh(it->second)) {
            result.push_back({it->second});
        } else if (auto seen = lastFreshAt.find(app);
                   seen != lastFreshAt.end() && now - seen->second <= notRunningShown) {
            result.push_back({app});
        }
    }
    return result;
}

GlanceLevel SuiteStateMachine::worstLevel() const {
    GlanceLevel worst = GlanceLevel::ok;
    for (const SuiteRow& row : rows())
        if (const GlanceRecord* record = row.record(); record && worst < record->level) worst = record->level;
    return worst;
}

std::vector<std::pair<MetricRef, GlanceMetric>>
SuiteStateMachine::menuBarValues(const std::optional<std::vector<MetricRef>>& chosen) const {
    std::vector<GlanceRecord> running;
    for (const SuiteRow& row : rows())
        if (const GlanceRecord* record = row.record()) running.push_back(*record);
    std::vector<std::pair<MetricRef, GlanceMetric>> values;
    if (chosen && !chosen->empty()) {
        // A choice that no longer matches shows fewer values, never a substitute the user did not pick.
        for (std::size_t i = 0; i < chosen->size() && i < SuiteSettings::maxMenuBarValues; ++i) {
            const MetricRef& ref = (*chosen)[i];
            for (const GlanceRecord& record : running) {
                if (!(record.app == ref.app)) continue;
                auto metric = std::find_if(record.metrics.begin(), record.metrics.end(),
                                           [&](const GlanceMetric& m) { return m.id == ref.metric; });
                if (metric != record.metrics.end()) values.emplace_back(ref, *metric);
            }
        }
        return values;
    }
    for (const GlanceRecord& record : running) {
        if (record.metrics.empty()) continue;
        values.emplace_back(MetricRef{record.app, record.metrics.front().id}, record.metrics.front());
        break;
    }
    return values;
}

}  // namespace kestrow::suite
