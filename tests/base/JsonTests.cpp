#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "base/Json.hpp"
#include "base/JsonCoding.hpp"

namespace kestrow {
namespace {

bool parses(std::string_view text) { return parseJson(text).ok(); }
JsonValue parse(std::string_view text) { return *parseJson(text); }

TEST(JsonParser, AcceptsOnlyStrictJson) {
    const char* good[] = {
        "0",
        "-0",
        "1e5",
        "1E-5",
        "-12.5e+3",
        "\"\"",
        "[]",
        "{}",
        " \t\r\n[1 , 2]\n",
        "{\"a\":{\"b\":[null,true,false]}}",
        "\"\\u00e9\\ud83d\\ude00\\/\"",
        "\"caf\xC3\xA9\"",
        "18446744073709551615",
        "-9223372036854775808",
    };
    for (const char* text : good) EXPECT_TRUE(parses(text)) << text;

    const std::string bad[] = {
        "",
        " ",
        "01",
        "1.",
        ".5",
        "+1",
        "1e",
        "--1",
        "NaN",
        "Infinity",
        "1e400",
        "[1,]",
        "{\"a\":1,}",
        "[1 2]",
        "{\"a\" 1}",
        "{a:1}",
        "'x'",
        "\"\\x\"",
        "\"\\u12\"",
        "\"\\ud800\"",
        "\"\\udc00\"",
        "\"\\ud800\\u0041\"",
        "\"tab\there\"",
        std::string("\"nul\0\"", 6),
        "\"\xC3\"",
        "\"\xC0\xAF\"",
        "\"\xED\xA0\x80\"",
        "\"\xF4\x90\x80\x80\"",
        "\xEF\xBB\xBF{}",
        "{} {}",
        "[",
        "{\"a\":1,\"a\":2}",
        "/* c */ 1",
        "tru",
        "nul",
    };
    // Text that is not JSON, cut short or not, is damaged data; only the depth limit is a limit.
    for (const std::string& text : bad) EXPECT_EQ(parseJson(text).status().cause(), Cause::dataLoss) << text;

    std::string deep(64, '[');
    deep += std::string(64, ']');
    EXPECT_TRUE(parses(deep));
    std::string tooDeep(65, '[');
    tooDeep += std::string(65, ']');
    EXPECT_EQ(parseJson(tooDeep).status().cause(), Cause::resourceExhausted);
    // Fails fast instead of overflowing the stack.
    EXPECT_EQ(parseJson(std::string(100000, '[')).status().cause(), Cause::resourceExhausted);
    EXPECT_EQ(parseJson("[[1]]", {.maxDepth = 1}).status().cause(), Cause::resourceExhausted);
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
    EXPECT_EQ(compact, "{\"Beta\":\"a/b\\\"c\\\\\\n\\u0001\",\"alpha\":[0.1,12,1e+300,0,18446744073709551615,"
                       "0.3333333333333333],\"empty\":{},\"zeta\":1}");
    EXPECT_EQ(*writeJson(JsonValue("/"), {.pretty = false, .escapeSlashes = true}), "\"\\/\"");
    EXPECT_EQ(
        *writeJson(JsonValue(JsonObject{{"a", JsonValue(JsonArray{JsonValue(1)})}, {"b", JsonValue(JsonArray{})}}),
                   {.pretty = true}),
        "{\n  \"a\" : [\n    1\n  ],\n  \"b\" : []\n}");
    EXPECT_EQ(writeJson(JsonValue(std::nan(""))).status().cause(), kestrow::Cause::invalidArgument);
    EXPECT_EQ(writeJson(JsonValue(JsonArray{JsonValue(std::numeric_limits<double>::infinity())})).status().cause(),
              kestrow::Cause::invalidArgument);
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

// Doubles from every corner of the format, with the text the writer must give each: the shortest
// that reads back, plain or with an exponent whichever is shorter (plain on a tie).
struct ShortestCase {
    double value;
    const char* text;
};
const ShortestCase shortestCases[] = {
    {0.1, "0.1"},
    {1.0 / 3, "0.3333333333333333"},
    {-1.5, "-1.5"},
    {123.456, "123.456"},
    {-0.0, "0"},
    {1e-7, "1e-07"},
    {0.0001, "1e-04"},
    {0.00012, "0.00012"},
    {1e15, "1e+15"},
    {1e21, "1e+21"},
    {4.35e21, "4.35e+21"},
    {1e23, "1e+23"},
    {1e300, "1e+300"},
    {1.7976931348623157e308, "1.7976931348623157e+308"},
    {-1.7976931348623157e308, "-1.7976931348623157e+308"},
    {5e-324, "5e-324"},
    {1.5e-323, "1.5e-323"},
    {2.2250738585072009e-308, "2.225073858507201e-308"},   // largest subnormal
    {2.2250738585072014e-308, "2.2250738585072014e-308"},  // smallest normal
    {9007199254740991.0, "9007199254740991"},              // 2^53 − 1
    {9007199254740992.0, "9007199254740992"},              // 2^53
    {9007199254740994.0, "9007199254740994"},              // 2^53 + 2, the next double
    {-9007199254740992.0, "-9007199254740992"},
    {1180591620717411303424.0, "1180591620717411303424"},  // 2^70, written out exactly on a tie
    {123456789012345683968.0, "123456789012345683968"},
    // 2^-1017: the nearest 16-digit decimal falls outside the narrower gap below a power of two,
    // the next one above still reads back.
    {7.120236347223045e-307, "7.120236347223045e-307"},
};

void expectShortestTexts() {
    for (const ShortestCase& c : shortestCases) {
        EXPECT_EQ(formatShortestDouble(c.value), c.text) << c.text;
        EXPECT_EQ(*writeJson(JsonValue(c.value)), c.text);
        EXPECT_EQ(parse(c.text).asNumber()->asDouble(), c.value) << c.text;
    }
}

TEST(JsonNumbers, WriterGivesTheShortestTextThatReadsBack) {
    EXPECT_EQ(std::ldexp(1.0, -1017), 7.120236347223045e-307);
    expectShortestTexts();
    EXPECT_EQ(formatShortestDouble(std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(formatShortestDouble(-std::numeric_limits<double>::infinity()), "-inf");
}

// Significant digits of a number's text: no sign, point, exponent, or leading and trailing zeros.
std::size_t significantDigits(const std::string& text) {
    std::string digits;
    for (const char c : text.substr(0, text.find_first_of("eE")))
        if (c >= '0' && c <= '9') digits += c;
    const std::size_t first = digits.find_first_not_of('0');
    if (first == std::string::npos) return 1;
    return digits.find_last_not_of('0') - first + 1;
}

// Random doubles of every magnitude, and short decimals, which take the quick path: each text
// reads back as its value and, unless whole, is no longer than the shortest "%.*g" text that
// reads back.
TEST(JsonNumbers, ShortestTextsOfRandomValues) {
    std::mt19937_64 random(20261125);
    std::vector<double> values;
    for (int i = 0; i < 4000; ++i) {
        const std::uint64_t bits = random() & ~(std::uint64_t{1} << 63);
        double value = 0;
        std::memcpy(&value, &bits, sizeof value);
        if (std::isfinite(value)) values.push_back(value);
        std::uint64_t limit = 10;
        for (std::uint64_t digits = random() % 17; digits > 0; --digits) limit *= 10;
        const auto mantissa = static_cast<double>(random() % limit);
        values.push_back(mantissa * std::pow(10.0, static_cast<int>(random() % 40) - 20));
    }
    for (const double value : values) {
        const std::string text = formatShortestDouble(value);
        EXPECT_EQ(std::strtod(text.c_str(), nullptr), value) << text;
        std::size_t shortest = 17;
        for (int precision = 1; precision < 17; ++precision) {
            char buffer[64];
            std::snprintf(buffer, sizeof buffer, "%.*g", precision, value);
            if (std::strtod(buffer, nullptr) == value) {
                shortest = static_cast<std::size_t>(precision);
                break;
            }
        }
        // Whole numbers are written out in full, every digit exact.
        if (text.find_first_of(".eE") != std::string::npos) {
            EXPECT_LE(significantDigits(text), shortest) << text;
        }
    }
}

// Where the digits come from integer arithmetic, the text is the one printf and strtod give, byte
// for byte: random bit patterns across the arithmetic's range and a little past both ends, the
// doubles beside powers of two (where the interval below is narrower) and of ten (where the number
// of digits changes), timestamps and percentages with every digit used, and dyadic values whose
// exact decimal ends in a 5 one place after 15, 16 or 17 digits, a tie for the rounding.
TEST(JsonNumbers, ArithmeticDigitsMatchPrintfAndStrtod) {
    __extension__ using Wide = unsigned __int128;
    std::mt19937_64 random(20261126);
    std::vector<double> values;
    const auto bitsOf = [](double d) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &d, sizeof bits);
        return bits;
    };
    const std::uint64_t lowest = bitsOf(1e-11);
    const std::uint64_t highest = bitsOf(1e16);
    for (int i = 0; i < 6000; ++i) {
        const std::uint64_t bits = lowest + random() % (highest - lowest);
        double value = 0;
        std::memcpy(&value, &bits, sizeof value);
        values.push_back(value);
    }
    const auto addNeighbours = [&values](double centre) {
        double below = centre;
        double above = centre;
        values.push_back(centre);
        for (int step = 0; step < 3; ++step) {
            below = std::nextafter(below, 0.0);
            above = std::nextafter(above, 1e300);
            values.push_back(below);
            values.push_back(above);
        }
    };
    for (int power = -36; power <= 52; ++power) addNeighbours(std::ldexp(1.0, power));
    for (int power = -11; power <= 16; ++power) {
        const std::string text = "1e" + std::to_string(power);
        addNeighbours(std::strtod(text.c_str(), nullptr));
        addNeighbours(std::strtod(("9.999999999999999" + text.substr(1)).c_str(), nullptr));
    }
    std::uniform_real_distribution<double> seconds(1.6e9, 2.2e9);
    std::uniform_real_distribution<double> percent(0, 100);
    for (int i = 0; i < 2000; ++i) {
        values.push_back(seconds(random));
        values.push_back(percent(random));
        values.push_back(percent(random) / 100);
    }
    // n·2^-j with n odd is exactly n·5^j·10^-j, whose last digit is 5; with `digits` digits in
    // n·5^j, rounding to one digit fewer is a tie.
    int ties = 0;
    std::vector<std::pair<double, int>> tieValues;
    for (int i = 0; i < 3000; ++i) {
        const int digits = 16 + static_cast<int>(random() % 3);
        const int twos = 1 + static_cast<int>(random() % 40);
        Wide five = 1;
        for (int j = 0; j < twos; ++j) five *= 5;
        Wide low = 1;
        for (int j = 1; j < digits; ++j) low *= 10;
        const Wide smallest = (low + five - 1) / five;
        Wide beyond = low * 10 / five;
        if (beyond > std::uint64_t{1} << 53) beyond = std::uint64_t{1} << 53;
        if (smallest >= beyond) continue;
        const auto n = static_cast<std::uint64_t>(smallest + random() % (beyond - smallest)) | 1;
        if (n >= beyond) continue;
        tieValues.emplace_back(std::ldexp(static_cast<double>(n), -twos), digits);
    }
    for (const auto& [value, digits] : tieValues) {
        values.push_back(value);
        // Fewer digits than the exact decimal, so a rounded tie, and its neighbour across the value
        // is as near: the rounding's choice decides the text.
        const std::string text = formatShortestDouble(value);
        if (significantDigits(text) == static_cast<std::size_t>(digits - 1)) ++ties;
    }
    EXPECT_GT(ties, 50);
    for (const double value : values) {
        for (const double signedValue : {value, -value}) {
            const std::string text = formatShortestDouble(signedValue);
            EXPECT_EQ(text, formatShortestDouble(signedValue, DigitSearch::printfAndStrtod)) << text;
            EXPECT_EQ(std::strtod(text.c_str(), nullptr), signedValue) << text;
        }
    }
}

// The reader rounds correctly, ties to even, and refuses what a double cannot hold.
void expectCorrectReading() {
    struct Reading {
        const char* text;
        double value;
    };
    const Reading readings[] = {
        {"0.5", 0.5},
        {"-12.5e+3", -12500.0},
        {"1E-5", 1e-5},
        {"0e-999", 0.0},
        {"-0.0e10", 0.0},
        {"9007199254740993.0", 9007199254740992.0},  // halfway: to the even neighbour
        {"9007199254740995.0", 9007199254740996.0},
        {"1.00000000000000011102230246251565404236316680908203125", 1.0},  // exactly halfway
        {"1.00000000000000011102230246251565404236316680908203126", std::nextafter(1.0, 2.0)},
        {"2.4703282292062328e-324", 5e-324},  // just above half the smallest subnormal
        {"1.7976931348623158e308", 1.7976931348623157e308},
    };
    for (const Reading& r : readings) EXPECT_EQ(parse(r.text).asNumber()->asDouble(), r.value) << r.text;
    const char* outOfRange[] = {"1e400", "-1e309", "1.7976931348623159e308", "1e-400", "2.4703282292062327e-324"};
    for (const char* text : outOfRange) EXPECT_FALSE(parses(text)) << text;
}

TEST(JsonNumbers, ReaderRoundsCorrectlyAndRefusesWhatDoesNotFit) { expectCorrectReading(); }

// A library or a user's environment may switch LC_NUMERIC to a locale that writes "0,5"; JSON
// stays "0.5" in both directions.
TEST(JsonNumbers, IndependentOfTheNumericLocale) {
    const char* candidates[] = {"de_DE.UTF-8", "de_DE.utf8",  "fr_FR.UTF-8", "fr_FR.utf8",
                                "ru_RU.UTF-8", "nl_NL.UTF-8", "de_DE",       "fr_FR"};
    const std::string previous = std::setlocale(LC_NUMERIC, nullptr);
    const char* chosen = nullptr;
    for (const char* name : candidates) {
        if (std::setlocale(LC_NUMERIC, name) && std::strcmp(std::localeconv()->decimal_point, ".") != 0) {
            chosen = name;
            break;
        }
    }
    if (!chosen) {
        std::setlocale(LC_NUMERIC, previous.c_str());
        GTEST_SKIP() << "no locale with another decimal point is installed (localedef -i de_DE -f UTF-8 de_DE.UTF-8)";
    }
    expectShortestTexts();
    expectCorrectReading();
    EXPECT_EQ(*writeJson(parse("{\"a\":[0.25,-1.5e-7]}")), "{\"a\":[0.25,-1.5e-07]}");
    std::setlocale(LC_NUMERIC, previous.c_str());
}

TEST(Utf8, ValidationAndRepair) {
    EXPECT_TRUE(isValidUtf8("plain \xC3\xA9 \xE2\x80\x94 \xF0\x9F\x98\x80"));
    const char* invalid[] = {"\x80", "\xC3", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF"};
    for (const char* bytes : invalid) EXPECT_FALSE(isValidUtf8(bytes)) << bytes;
    EXPECT_EQ(repairUtf8("a\xFF"
                         "b\xC3"),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD");
    EXPECT_EQ(repairUtf8("ok \xE2\x80\x94"), "ok \xE2\x80\x94");
}

struct Record {
    std::uint32_t count = 0;
    std::string name;
    std::optional<double> ratio;
    std::optional<std::string> note;
    std::vector<std::int64_t> marks;
    bool operator==(const Record&) const = default;
};

std::string bracketed(const std::string& text) { return "[" + text + "]"; }

constexpr auto recordFields = std::tuple{
    field("count", &Record::count),          field("name", &Record::name),   field("ratio", &Record::ratio),
    field("note", &Record::note, bracketed), field("marks", &Record::marks),
};

TEST(JsonFields, OneTableReadsAndWritesARecord) {
    struct Case {
        const char* json;
        std::optional<Record> expected;  // nullopt: the record is refused
    };
    const Case cases[] = {
        {R"({"count":3,"name":"a","ratio":0.5,"note":"n","marks":[1,-2]})", Record{3, "a", 0.5, "n", {1, -2}}},
        {R"({"count":4294967295,"name":"","marks":[]})", Record{4294967295u, "", {}, {}, {}}},
        {R"({"count":1,"name":"x","ratio":null,"note":null,"marks":[],"unknown":true})", Record{1, "x", {}, {}, {}}},
        {R"({"count":1,"ratio":0.5,"marks":[]})", std::nullopt},   // required member missing
        {R"({"count":1,"name":null,"marks":[]})", std::nullopt},   // required member null
        {R"({"count":"1","name":"x","marks":[]})", std::nullopt},  // wrong type
        {R"({"count":-1,"name":"x","marks":[]})", std::nullopt},   // out of range
        {R"({"count":4294967296,"name":"x","marks":[]})", std::nullopt},
        {R"({"count":1,"name":"x","ratio":"0.5","marks":[]})", std::nullopt},  // optional of the wrong type
        {R"({"count":1,"name":"x","marks":[1,"2"]})", std::nullopt},           // element of the wrong type
        {R"([1,"x"])", std::nullopt},
    };
    for (const Case& c : cases) {
        Record decoded{7, "stale", 9.0, "stale", {7}};  // what a decode must replace
        const bool ok = decodeFields(parse(c.json), decoded, recordFields);
        ASSERT_EQ(ok, c.expected.has_value()) << c.json;
        if (!ok) continue;
        EXPECT_EQ(decoded, *c.expected) << c.json;

        // Written back: absent optionals leave their key out, the note passes through its encoder on the
        // way out only, and what was written reads back as the record apart from that.
        const JsonValue written = encodeFields(decoded, recordFields);
        const JsonObject& object = *written.asObject();
        EXPECT_EQ(object.count("ratio"), decoded.ratio ? 1u : 0u) << c.json;
        EXPECT_EQ(object.count("note"), decoded.note ? 1u : 0u) << c.json;
        Record reread;
        ASSERT_TRUE(decodeFields(parse(*writeJson(written)), reread, recordFields)) << c.json;
        if (decoded.note) {
            decoded.note = bracketed(*decoded.note);
            EXPECT_EQ(*object.at("note").asString(), *decoded.note);
        }
        EXPECT_EQ(reread, decoded) << c.json;
    }
}

}  // namespace
}  // namespace kestrow
