#include "GlanceRecord.hpp"

#include "base/Rounding.hpp"
#include <cmath>
#include <set>

namespace kestrow::suite {

bool GlanceRecord::isFresh(double now) const {
    if (state == GlanceState::stopped) return false;
    return at - futureTolerance <= now && now <= at + static_cast<double>(ttl);
}

// ---- Unicode ----

std::optional<std::vector<char32_t>> unicodeScalars(std::string_view utf8) {
    if (!isValidUtf8(utf8)) return std::nullopt;
    std::vector<char32_t> scalars;
    scalars.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size();) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        const std::size_t length = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
        char32_t cp = length == 1 ? c : length == 2 ? (c & 0x1F) : length == 3 ? (c & 0x0F) : (c & 0x07);
        for (std::size_t k = 1; k < length; ++k) cp = (cp << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
        scalars.push_back(cp);
        i += length;
    }
    return scalars;
}

namespace {

bool isControl(char32_t c) { return c <= 0x1F || (c >= 0x7F && c <= 0x9F); }  // general category Cc

bool isBidiFormatting(char32_t c) {
    return c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

// value × 100, rounded half away from zero.
double hundredths(double value) { return kestrow::roundedHalfAway(value * 100); }

}  // namespace

namespace GlanceCodec {

kestrow::Status textProblem(std::string_view field, std::string_view text, std::size_t lower, std::size_t upper) {
    using kestrow::Status;
    const std::string name(field);
    const auto scalars = unicodeScalars(text);
    // Text that is not UTF-8 has no scalars to count; it fails the length rule.
    if (!scalars || scalars->size() < lower || scalars->size() > upper)
        return Status::failure(kestrow::Cause::invalidArgument,
                               name + ": " + std::to_string(lower) + "-" + std::to_string(upper) + " scalars");
    for (const char32_t c : *scalars) {
        if (c == U'/' || c == U'\\') return Status::failure(kestrow::Cause::invalidArgument, name + ": no / or \\");
        if (isControl(c)) return Status::failure(kestrow::Cause::invalidArgument, name + ": no control characters");
        if (isBidiFormatting(c)) return Status::failure(kestrow::Cause::invalidArgument, name + ": no bidi formatting");
    }
    return Status::success();
}

kestrow::Status problem(const GlanceMetric& metric) {
    using kestrow::Status;
    const auto id = unicodeScalars(metric.id);
    if (!id || id->empty() || id->size() > 24)
        return Status::failure(kestrow::Cause::invalidArgument, "metric id length");
    for (const char32_t c : *id)
        if (!((c >= U'a' && c <= U'z') || (c >= U'0' && c <= U'9') || c == U'-'))
            return Status::failure(kestrow::Cause::invalidArgument, "metric id charset");
    if (auto status = textProblem("label", metric.label, 1, 16); status.failed()) return status;
    if (auto status = textProblem("unit", metric.unit, 0, 6); status.failed()) return status;
    if (const double* v = std::get_if<double>(&metric.value)) {
        if (!std::isfinite(*v)) return Status::failure(kestrow::Cause::invalidArgument, "value: finite number");
        const double scaled = *v * 100;
        if (!(std::fabs(scaled - kestrow::roundedHalfAway(scaled)) < 0.000001))
            return Status::failure(kestrow::Cause::invalidArgument, "value: at most 2 decimals");
    }
    return Status::success();
}

kestrow::Status problem(const GlanceRecord& record) {
    using kestrow::Status;
    if (record.contract < 1) return Status::failure(kestrow::Cause::invalidArgument, "contract: integer >= 1");
    if (record.ttl < GlanceRecord::ttlMin || record.ttl > GlanceRecord::ttlMax)
        return Status::failure(kestrow::Cause::invalidArgument, "ttl: 3-60");
    if (!std::isfinite(record.at)) return Status::failure(kestrow::Cause::invalidArgument, "at: required number");
    if (record.metrics.size() > 4) return Status::failure(kestrow::Cause::invalidArgument, "metrics: 0-4");
    std::set<std::string> seen;
    for (const GlanceMetric& metric : record.metrics) {
        if (auto status = problem(metric); status.failed()) return status;
        if (!seen.insert(metric.id).second)
            return Status::failure(kestrow::Cause::invalidArgument, "metric ids unique");
    }
    return Status::success();
}

kestrow::Result<std::string> encode(const GlanceRecord& record) {
    if (auto status = problem(record); status.failed()) return status;
    JsonArray metrics;
    for (const GlanceMetric& m : record.metrics) {
        JsonObject object;
        object["id"] = JsonValue(m.id);
        object["label"] = JsonValue(m.label);
        object["level"] = JsonValue(m.level.rawValue());
        object["unit"] = JsonValue(m.unit);
        if (const double* v = std::get_if<double>(&m.value)) object["value"] = JsonValue(hundredths(*v) / 100);
        else object["value"] = JsonValue(std::get<StateWord>(m.value).rawValue());
        metrics.push_back(JsonValue(std::move(object)));
    }
    JsonObject object;
    object["app"] = JsonValue(record.app.rawValue());
    object["at"] = JsonValue(record.at);
    object["contract"] = JsonValue(record.contract);
    object["hosting"] = JsonValue(record.hosting);
    object["level"] = JsonValue(record.level.rawValue());
    object["metrics"] = JsonValue(std::move(metrics));
    object["state"] = JsonValue(record.state.rawValue());
    object["ttl"] = JsonValue(record.ttl);
    auto bytes = writeJson(JsonValue(std::move(object)), {.pretty = false, .escapeSlashes = false});
    if (bytes.failed())
        return kestrow::Status::failure(kestrow::Cause::invalidArgument,
                                        "at: required number");  // only a non-finite number fails
    if (bytes->size() > maxBytes)
        return kestrow::Status::failure(kestrow::Cause::resourceExhausted, "size: at most 2,048 bytes");
    return std::move(*bytes);
}

std::optional<std::int64_t> integer(const JsonValue& value) {
    const JsonNumber* n = value.asNumber();
    if (!n) return std::nullopt;
    const double d = n->asDouble();
    if (!std::isfinite(d) || d != kestrow::truncated(d) || !(std::fabs(d) < 1e15)) return std::nullopt;
    return static_cast<std::int64_t>(d);
}

std::optional<bool> boolean(const JsonValue& value) {
    if (const bool* b = value.asBool()) return *b;
    return std::nullopt;
}

std::optional<double> number(const JsonValue& value) {
    const JsonNumber* n = value.asNumber();
    if (!n) return std::nullopt;
    const double d = n->asDouble();
    if (!std::isfinite(d)) return std::nullopt;
    return d;
}

namespace {

const std::string* stringAt(const JsonValue& object, std::string_view key) {
    const JsonValue* v = object.find(key);
    return v ? v->asString() : nullptr;
}

// The metric, or a damaged-data failure with the fixed reason.
kestrow::Result<GlanceMetric> decodeMetric(const JsonValue& json) {
    const auto invalid = [](const char* reason) { return kestrow::Status::failure(kestrow::Cause::dataLoss, reason); };
    if (!json.asObject()) return invalid("metric: an object");
    GlanceMetric metric;
    const std::string* id = stringAt(json, "id");
    if (!id) return invalid("metric id length");
    const std::string* label = stringAt(json, "label");
    if (!label) return invalid("label: 1-16 scalars");
    const std::string* unit = stringAt(json, "unit");
    if (!unit) return invalid("unit: 0-6 scalars");
    const std::string* level = stringAt(json, "level");
    const auto metricLevel = level ? GlanceLevel::fromRawValue(*level) : std::nullopt;
    if (!metricLevel) return invalid("level");
    const JsonValue* value = json.find("value");
    if (const std::string* word = value ? value->asString() : nullptr) {
        const auto stateWord = StateWord::fromRawValue(*word);
        if (!stateWord) return invalid("value: closed state-word list");
        metric.value = *stateWord;
    } else {
        const auto n = value ? number(*value) : std::nullopt;
        if (!n) return invalid("value: finite number");
        metric.value = *n;
    }
    metric.id = *id;
    metric.label = *label;
    metric.unit = *unit;
    metric.level = *metricLevel;
    return metric;
}

}  // namespace

GlanceRead decode(std::string_view bytes, std::string_view fileName) {
    const auto invalid = [](std::string reason) {
        return kestrow::Status::failure(kestrow::Cause::dataLoss, std::move(reason));
    };
    if (bytes.size() > maxBytes) return invalid("size: at most 2,048 bytes");
    auto parsed = parseJson(bytes);
    if (parsed.failed()) return invalid("JSON");
    const JsonValue& json = *parsed;
    if (!json.asObject()) return invalid("an object");

    const JsonValue* contractValue = json.find("contract");
    const auto contract = contractValue ? integer(*contractValue) : std::nullopt;
    if (!contract || *contract < 1) return invalid("contract: integer >= 1");
    if (*contract != 1)
        return kestrow::Status::failure(kestrow::Cause::failedPrecondition, "contract " + std::to_string(*contract));

    const std::string* appId = stringAt(json, "app");
    const auto app = appId ? SuiteApp::fromRawValue(*appId) : std::nullopt;
    if (!app) return invalid("app: catalog id");
    if (app->glanceFileName() != fileName) return invalid("app equals file name");

    const JsonValue* hostingValue = json.find("hosting");
    const auto hosting = hostingValue ? boolean(*hostingValue) : std::nullopt;
    if (!hosting) return invalid("hosting: boolean");

    const std::string* stateText = stringAt(json, "state");
    const auto state = stateText ? GlanceState::fromRawValue(*stateText) : std::nullopt;
    if (!state) return invalid("state");

    const JsonValue* atValue = json.find("at");
    const auto at = atValue ? number(*atValue) : std::nullopt;
    if (!at) return invalid("at: required number");

    const JsonValue* ttlValue = json.find("ttl");
    const auto ttlNumber = ttlValue ? number(*ttlValue) : std::nullopt;
    if (!ttlNumber) return invalid("ttl: 3-60");
    if (*ttlNumber != kestrow::truncated(*ttlNumber)) return invalid("ttl: integer");
    if (std::fabs(*ttlNumber) >= 9223372036854775808.0) return invalid("ttl: 3-60");

    const std::string* levelText = stringAt(json, "level");
    const auto level = levelText ? GlanceLevel::fromRawValue(*levelText) : std::nullopt;
    if (!level) return invalid("level");

    const JsonValue* metricsValue = json.find("metrics");
    const JsonArray* metricsArray = metricsValue ? metricsValue->asArray() : nullptr;
    if (!metricsArray || metricsArray->size() > 4) return invalid("metrics: 0-4");
    std::vector<GlanceMetric> metrics;
    for (const JsonValue& element : *metricsArray) {
        auto metric = decodeMetric(element);
        if (metric.failed()) return metric.status();
        metrics.push_back(std::move(metric).value());
    }

    GlanceRecord record(*app, *hosting, *state, *at, static_cast<std::int64_t>(*ttlNumber), *level, std::move(metrics),
                        1);
    if (auto status = problem(record); status.failed()) return invalid(status.message());
    return record;
}

}  // namespace GlanceCodec

}  // namespace kestrow::suite
