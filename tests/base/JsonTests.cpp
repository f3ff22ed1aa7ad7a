#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/Json.hpp"

namespace kestrow {
namespace {

bool parses(std::string_view text) { return std::holds_alternative<JsonValue>(parseJson(text)); }
JsonValue parse(std::string_view text) { return std::get<JsonValue>(parseJson(text)); }

TEST(JsonParser, AcceptsOnlyStrictJson) {
    const char* good[] = {
        "0", "-0", "1e5", "1E-5", "-12.5e+3", "\"\"", "[]", "{}", " \t\r\n[1 , 2]\n", "{\"a\":{\"b\":[null,true,false]}}",
        "\"\\u00e9\\ud83d\\ude00\\/\"", "\"caf\xC3\xA9\"", "18446744073709551615", "-9223372036854775808",
    };
    for (const char* text : good) EXPECT_TRUE(parses(text)) << text;

    const std::string bad[] = {
        "", " ", "01", "1.", ".5", "+1", "1e", "--1", "NaN", "Infinity", "1e400", "[1,]", "{\"a\":1,}", "[1 2]",
        "{\"a\" 1}", "{a:1}", "'x'", "\"\\x\"", "\"\\u12\"", "\"\\ud800\"", "\"\\udc00\"", "\"\\ud800\\u0041\"",
        "\"tab\there\"", std::string("\"nul\0\"", 6), "\"\xC3\"", "\"\xC0\xAF\"", "\"\xED\xA0\x80\"",
        "\"\xF4\x90\x80\x80\"", "\xEF\xBB\xBF{}", "{} {}", "[", "{\"a\":1,\"a\":2}", "/* c */ 1", "tru", "nul",
    };
    for (const std::string& text : bad) EXPECT_FALSE(parses(text)) << text;

    std::string deep(64, '[');
    deep += std::string(64, ']');
    EXPECT_TRUE(parses(deep));
    std::string tooDeep(65, '[');
    tooDeep += std::string(65, ']');
    EXPECT_FALSE(parses(tooDeep));
    EXPECT_FALSE(parses(std::string(100000, '[')));  // fails fast instead of overflowing the stack
}

TEST(JsonParser, NumbersKeepTheirExactForm) {
    EXPECT_EQ(parse("18446744073709551615").asNumber()->asUnsigned(), UINT64_MAX);
    EXPECT_EQ(parse("-9223372036854775808").asNumber()->asSigned(), INT64_MIN);
    EXPECT_FALSE(parse("-1").asNumber()->asUnsigned());
    EXPECT_FALSE(parse("1.5").asNumber()->asSigned());
    EXPECT_EQ(parse("3.0").asNumber()->asUnsigned(), 3u);
    EXPECT_EQ(parse("1e2").asNumber()->asSigned(), 100);
    EXPECT_FALSE(parse("18446744073709551616").asNumber()->asUnsigned());  // one past: a double now
    EXPECT_FALSE(parse("9223372036854775808.0").asNumber()->asSigned());
    EXPECT_EQ(parse("\"\\u00e9\"").asString()->size(), 2u);
    EXPECT_EQ(*parse("\"\\ud83d\\ude00\"").asString(), "\xF0\x9F\x98\x80");
}

TEST(JsonWriter, SortedKeysShortestNumbersAndEscapes) {
    JsonObject object;
    object["zeta"] = JsonValue(1);
    object["alpha"] = JsonValue(JsonArray{JsonValue(0.1), JsonValue(12.0), JsonValue(1e300), JsonValue(-0.0),
                                          JsonValue(UINT64_MAX), JsonValue(1.0 / 3)});
    object["Beta"] = JsonValue("a/b\"c\\\n\x01");
    object["empty"] = JsonValue(JsonObject{});
    const std::string compact = *writeJson(JsonValue(object));
    EXPECT_EQ(compact,
              "{\"Beta\":\"a/b\\\"c\\\\\\n\\u0001\",\"alpha\":[0.1,12,1e+300,0,18446744073709551615,"
              "0.3333333333333333],\"empty\":{},\"zeta\":1}");
    EXPECT_EQ(*writeJson(JsonValue("/"), {.pretty = false, .escapeSlashes = true}), "\"\\/\"");
    EXPECT_EQ(*writeJson(JsonValue(JsonObject{{"a", JsonValue(JsonArray{JsonValue(1)})}, {"b", JsonValue(JsonArray{})}}),
                         {.pretty = true}),
              "{\n  \"a\" : [\n    1\n  ],\n  \"b\" : []\n}");
    EXPECT_FALSE(writeJson(JsonValue(std::nan(""))));
    EXPECT_FALSE(writeJson(JsonValue(JsonArray{JsonValue(std::numeric_limits<double>::infinity())})));
}

TEST(JsonWriter, RoundTripsEveryValue) {
    const double doubles[] = {0.1, 1e-7, 123456789.123, 5e-324, 1.7976931348623157e308, -2.5, 1e15, 1e16};
    for (double d : doubles) {
        const std::string text = *writeJson(JsonValue(d));
        EXPECT_EQ(parse(text).asNumber()->asDouble(), d) << text;
    }
    const std::string text = "{\"a\":[1,-2,\"\xF0\x9F\x98\x80\",null,true,{\"b\":0.5}],\"c\":18446744073709551615}";
    EXPECT_EQ(*writeJson(parse(text)), text);
    EXPECT_EQ(parse(text), parse(*writeJson(parse(text), {.pretty = true})));
}

TEST(Utf8, ValidationAndRepair) {
    EXPECT_TRUE(isValidUtf8("plain \xC3\xA9 \xE2\x80\x94 \xF0\x9F\x98\x80"));
    const char* invalid[] = {"\x80", "\xC3", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF"};
    for (const char* bytes : invalid) EXPECT_FALSE(isValidUtf8(bytes)) << bytes;
    EXPECT_EQ(repairUtf8("a\xFF" "b\xC3"), "a\xEF\xBF\xBD" "b\xEF\xBF\xBD");
    EXPECT_EQ(repairUtf8("ok \xE2\x80\x94"), "ok \xE2\x80\x94");
}

}  // namespace
}  // namespace kestrow
