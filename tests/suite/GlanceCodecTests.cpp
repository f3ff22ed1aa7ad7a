#include <gtest/gtest.h>

#include "suite/protocol/GlanceRecord.hpp"

namespace kestrow::suite {
namespace {

GlanceMetric metric(std::string id, std::string label, MetricValue value, std::string unit = "%") {
    return {std::move(id), std::move(label), value, std::move(unit), GlanceLevel::ok};
}

GlanceRecord sample() {
    return GlanceRecord(SuiteApp::brimlet, true, GlanceState::running, 1795414540.25, 10, GlanceLevel::notice,
                        {metric("mem", "Memory", 62.0), metric("fw", "Firewall", StateWord::on, "")});
}

TEST(GlanceCodec, EncodesExactBytes) {
    const auto bytes = GlanceCodec::encode(sample());
    ASSERT_TRUE(bytes.ok());
    EXPECT_EQ(*bytes,
              R"({"app":"brimlet","at":1795414540.25,"contract":1,"hosting":true,"level":"notice","metrics":[)"
              R"({"id":"mem","label":"Memory","level":"ok","unit":"%","value":62},)"
              R"({"id":"fw","label":"Firewall","level":"ok","unit":"","value":"on"}],"state":"running","ttl":10})");

    GlanceRecord rounded = sample();
    rounded.metrics = {metric("a", "Load/avg", 1.0)};
    EXPECT_EQ(GlanceCodec::encode(rounded).status(),
              kestrow::Status::failure(kestrow::Cause::invalidArgument, "label: no / or \\"));
    rounded.metrics = {metric("a", "x", 1.005)};  // validated before rounding
    EXPECT_EQ(GlanceCodec::encode(rounded).status(),
              kestrow::Status::failure(kestrow::Cause::invalidArgument, "value: at most 2 decimals"));
    rounded.metrics = {metric("a", "π", 0.125 * 2), metric("b", "x", -3.1)};
    const std::string text = GlanceCodec::encode(rounded).value();
    EXPECT_NE(text.find(R"("label":"π","level":"ok","unit":"%","value":0.25})"), std::string::npos) << text;
    EXPECT_NE(text.find(R"("value":-3.1})"), std::string::npos) << text;

    GlanceRecord big = sample();
    big.metrics = {metric("a", std::string(16, 'x'), 1.0, "xxxxxx")};
    for (auto& m : big.metrics) m.label = "\xF0\x9F\x98\x80\xF0\x9F\x98\x80";
    EXPECT_TRUE(GlanceCodec::encode(big).ok());
}

TEST(GlanceCodec, RoundTrip) {
    const std::string bytes = GlanceCodec::encode(sample()).value();
    const auto result = GlanceCodec::decode(bytes, "brimlet.json");
    ASSERT_TRUE(result.ok()) << result.status().message();
    EXPECT_EQ(result.value(), sample());
}

// A valid record with one key replaced by raw JSON text.
std::string with(const std::string& key, const std::string& json) {
    std::map<std::string, std::string> fields = {{"app", R"("brimlet")"},   {"at", "1795414540.5"}, {"contract", "1"},
                                                 {"hosting", "false"},      {"level", R"("ok")"},   {"metrics", "[]"},
                                                 {"state", R"("running")"}, {"ttl", "10"}};
    if (json.empty()) fields.erase(key);
    else fields[key] = json;
    std::string out = "{";
    for (const auto& [k, v] : fields) out += (out.size() > 1 ? "," : "") + ("\"" + k + "\":" + v);
    return out + "}";
}

std::string metricJson(const std::string& id, const std::string& label, const std::string& value,
                       const std::string& unit = R"("")", const std::string& level = R"("ok")") {
    return R"({"id":)" + id + R"(,"label":)" + label + R"(,"level":)" + level + R"(,"unit":)" + unit + R"(,"value":)" +
           value + "}";
}

TEST(GlanceCodec, DecodeReasonsForHostileRecords) {
    struct Case {
        std::string what, bytes, expected;  // expected: a reason, "skipped N", or "valid"
        std::string file = "brimlet.json";
    };
    const std::string m5 = "[" + metricJson(R"("a")", R"("A")", "1") + "," + metricJson(R"("b")", R"("B")", "1") + "," +
                           metricJson(R"("c")", R"("C")", "1") + "," + metricJson(R"("d")", R"("D")", "1") + "," +
                           metricJson(R"("e")", R"("E")", "1") + "]";
    std::string padded = with("app", R"("brimlet")");
    padded.insert(1, "\"pad\":\"" + std::string(2048 - padded.size() - 9, 'x') + "\",");
    const Case cases[] = {
        {"minimal", with("app", R"("brimlet")"), "valid"},
        {"exactly 2,048 bytes", padded, "valid"},
        {"2,049 bytes", padded + " ", "size: at most 2,048 bytes"},
        {"byte-order mark", "\xEF\xBB\xBF" + with("app", R"("brimlet")"), "JSON"},
        {"invalid UTF-8", with("app", "\"br\xFFimlet\""), "JSON"},
        {"truncated", with("app", R"("brimlet")").substr(0, 40), "JSON"},
        {"deep nesting", with("metrics", std::string(100, '[') + std::string(100, ']')), "JSON"},
        {"array at top", "[1]", "an object"},
        {"contract 2 with a broken body", R"({"contract":2,"app":7})", "skipped 2"},
        {"contract 0", with("contract", "0"), "contract: integer >= 1"},
        {"contract 1.5", with("contract", "1.5"), "contract: integer >= 1"},
        {"contract as text", with("contract", R"("1")"), "contract: integer >= 1"},
        {"contract true", with("contract", "true"), "contract: integer >= 1"},
        {"contract 1.0", with("contract", "1.0"), "valid"},
        {"unknown app", with("app", R"("safari")"), "app: catalog id"},
        {"wrong file", with("app", R"("brimlet")"), "app equals file name", "corvane.json"},
        {"hosting 1", with("hosting", "1"), "hosting: boolean"},
        {"hosting missing", with("hosting", ""), "hosting: boolean"},
        {"state word", with("state", R"("paused")"), "state"},
        {"at text", with("at", R"("now")"), "at: required number"},
        {"ttl 2", with("ttl", "2"), "ttl: 3-60"},
        {"ttl 61", with("ttl", "61"), "ttl: 3-60"},
        {"ttl 10.5", with("ttl", "10.5"), "ttl: integer"},
        {"ttl 10.0", with("ttl", "10.0"), "valid"},
        {"ttl huge", with("ttl", "1e300"), "ttl: 3-60"},
        {"ttl missing", with("ttl", ""), "ttl: 3-60"},
        {"level", with("level", R"("warning")"), "level"},
        {"five metrics", with("metrics", m5), "metrics: 0-4"},
        {"metrics object", with("metrics", "{}"), "metrics: 0-4"},
        {"metric not object", with("metrics", "[1]"), "metric: an object"},
        {"metric id number", with("metrics", "[" + metricJson("5", R"("A")", "1") + "]"), "metric id length"},
        {"metric id long", with("metrics", "[" + metricJson("\"" + std::string(25, 'a') + "\"", R"("A")", "1") + "]"),
         "metric id length"},
        {"metric id upper", with("metrics", "[" + metricJson(R"("Mem")", R"("A")", "1") + "]"), "metric id charset"},
        {"label slash", with("metrics", "[" + metricJson(R"("a")", R"("a/b")", "1") + "]"), "label: no / or \\"},
        {"label backslash", with("metrics", "[" + metricJson(R"("a")", R"("a\\b")", "1") + "]"), "label: no / or \\"},
        {"label 17", with("metrics", "[" + metricJson(R"("a")", "\"" + std::string(17, 'x') + "\"", "1") + "]"),
         "label: 1-16 scalars"},
        {"label empty", with("metrics", "[" + metricJson(R"("a")", R"("")", "1") + "]"), "label: 1-16 scalars"},
        {"label control", with("metrics", "[" + metricJson(R"("a")", R"("a\u0007")", "1") + "]"),
         "label: no control characters"},
        {"label C1 control", with("metrics", "[" + metricJson(R"("a")", R"("a\u0085")", "1") + "]"),
         "label: no control characters"},
        {"label bidi",
         with("metrics", "[" +
                             metricJson(R"("a")",
                                        "\"a\xE2\x80\xAE"
                                        "b\"",
                                        "1") +
                             "]"),
         "label: no bidi formatting"},
        {"label 16 emoji",
         with("metrics", "[" +
                             metricJson(R"("a")",
                                        "\"" +
                                            [] {
                                                std::string s;
                                                for (int i = 0; i < 16; ++i) s += "\xF0\x9F\x98\x80";
                                                return s;
                                            }() +
                                            "\"",
                                        "1") +
                             "]"),
         "valid"},
        {"unit 7", with("metrics", "[" + metricJson(R"("a")", R"("A")", "1", R"("abcdefg")") + "]"),
         "unit: 0-6 scalars"},
        {"unit missing", with("metrics", R"([{"id":"a","label":"A","level":"ok","value":1}])"), "unit: 0-6 scalars"},
        {"metric level", with("metrics", "[" + metricJson(R"("a")", R"("A")", "1", R"("")", R"("bad")") + "]"),
         "level"},
        {"value word", with("metrics", "[" + metricJson(R"("a")", R"("A")", R"("running")") + "]"),
         "value: closed state-word list"},
        {"value bool", with("metrics", "[" + metricJson(R"("a")", R"("A")", "true") + "]"), "value: finite number"},
        {"value 1.005", with("metrics", "[" + metricJson(R"("a")", R"("A")", "1.005") + "]"),
         "value: at most 2 decimals"},
        {"duplicate ids",
         with("metrics",
              "[" + metricJson(R"("a")", R"("A")", "1") + "," + metricJson(R"("a")", R"("B")", R"("off")") + "]"),
         "metric ids unique"},
        {"unknown keys ignored", with("extra", R"({"x":[1,2]})"), "valid"},
    };
    for (const Case& c : cases) {
        const auto result = GlanceCodec::decode(c.bytes, c.file);
        // A later contract is skipped, not taken for damage; every other refusal is damaged data.
        const bool skipped = c.expected.rfind("skipped ", 0) == 0;
        const kestrow::Cause cause = c.expected == "valid" ? kestrow::Cause::ok
                                     : skipped             ? kestrow::Cause::failedPrecondition
                                                           : kestrow::Cause::dataLoss;
        EXPECT_EQ(result.status().cause(), cause) << c.what;
        const std::string got = result.ok() ? "valid" : result.status().message();
        EXPECT_EQ(got, skipped ? "contract " + c.expected.substr(8) : c.expected) << c.what;
    }
}

TEST(GlanceRecord, FreshnessAroundTheClock) {
    GlanceRecord r = sample();  // at 1795414540.25, ttl 10
    const double at = r.at;
    struct Case {
        double now;
        bool fresh;
    };
    for (auto [now, fresh] :
         {Case{at - 3, false}, Case{at - 2, true}, Case{at, true}, Case{at + 10, true}, Case{at + 10.001, false}})
        EXPECT_EQ(r.isFresh(now), fresh) << now - at;
    r.state = GlanceState::stopped;
    EXPECT_FALSE(r.isFresh(at));
}

TEST(GlanceCodec, LooseReaders) {
    EXPECT_EQ(GlanceCodec::integer(JsonValue(5.0)), 5);
    EXPECT_FALSE(GlanceCodec::integer(JsonValue(1e15)));
    EXPECT_EQ(GlanceCodec::integer(JsonValue(-999999999999999.0)), -999999999999999);
    EXPECT_FALSE(GlanceCodec::integer(JsonValue(true)));
    EXPECT_FALSE(GlanceCodec::boolean(JsonValue(1)));
    EXPECT_EQ(GlanceCodec::boolean(JsonValue(false)), false);
    EXPECT_FALSE(GlanceCodec::number(JsonValue("1")));
    EXPECT_TRUE(GlanceCodec::textProblem("unit", "", 0, 6).ok());
    EXPECT_EQ(GlanceCodec::textProblem("unit", "\xFF", 0, 6),
              kestrow::Status::failure(kestrow::Cause::invalidArgument, "unit: 0-6 scalars"));
}

}  // namespace
}  // namespace kestrow::suite
