#include "Json.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "CLocaleNumbers.hpp"
#include "Rounding.hpp"
#include "UnicodeCase.hpp"

namespace kestrow {

double JsonNumber::asDouble() const {
    switch (kind) {
    case Kind::signedInteger: return static_cast<double>(i);
    case Kind::unsignedInteger: return static_cast<double>(u);
    case Kind::real: return d;
    }
    return 0;
}

std::optional<std::int64_t> JsonNumber::asSigned() const {
    switch (kind) {
    case Kind::signedInteger: return i;
    case Kind::unsignedInteger:
        if (u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return std::nullopt;
        return static_cast<std::int64_t>(u);
    case Kind::real:
        // 2^63 is exactly representable and is the first double out of range.
        if (!std::isfinite(d) || d != kestrow::truncated(d) || d < -9223372036854775808.0 || d >= 9223372036854775808.0)
            return std::nullopt;
        return static_cast<std::int64_t>(d);
    }
    return std::nullopt;
}

std::optional<std::uint64_t> JsonNumber::asUnsigned() const {
    switch (kind) {
    case Kind::signedInteger:
        if (i < 0) return std::nullopt;
        return static_cast<std::uint64_t>(i);
    case Kind::unsignedInteger: return u;
    case Kind::real:
        if (!std::isfinite(d) || d != kestrow::truncated(d) || d < 0 || d >= 18446744073709551616.0)
            return std::nullopt;
        return static_cast<std::uint64_t>(d);
    }
    return std::nullopt;
}

bool JsonNumber::operator==(const JsonNumber& other) const {
    if (kind == Kind::real || other.kind == Kind::real) {
        if (kind == Kind::real && other.kind == Kind::real) return d == other.d;
        // An integer equals a real only when the real is that exact integer.
        const JsonNumber& real = kind == Kind::real ? *this : other;
        const JsonNumber& whole = kind == Kind::real ? other : *this;
        if (whole.kind == Kind::signedInteger) return real.asSigned() == whole.i;
        return real.asUnsigned() == whole.u;
    }
    if (kind == other.kind) return kind == Kind::signedInteger ? i == other.i : u == other.u;
    const JsonNumber& s = kind == Kind::signedInteger ? *this : other;
    const JsonNumber& un = kind == Kind::signedInteger ? other : *this;
    return s.i >= 0 && static_cast<std::uint64_t>(s.i) == un.u;
}

const JsonValue* JsonValue::find(std::string_view key) const {
    const JsonObject* object = asObject();
    if (!object) return nullptr;
    auto it = object->find(std::string(key));
    return it == object->end() ? nullptr : &it->second;
}

// ---- UTF-8 ----

namespace {

// Length of the well-formed sequence at bytes[pos], or 0 when it is ill-formed.
std::size_t utf8SequenceLength(std::string_view bytes, std::size_t pos) {
    const auto b = [&](std::size_t k) { return static_cast<unsigned char>(bytes[pos + k]); };
    const std::size_t left = bytes.size() - pos;
    const unsigned char c = b(0);
    if (c < 0x80) return 1;
    if (c >= 0xC2 && c <= 0xDF) return left >= 2 && (b(1) & 0xC0) == 0x80 ? 2 : 0;
    if (c >= 0xE0 && c <= 0xEF) {
        if (left < 3) return 0;
        const unsigned char lo = c == 0xE0 ? 0xA0 : 0x80;
        const unsigned char hi = c == 0xED ? 0x9F : 0xBF;  // ED A0.. would be a surrogate
        if (b(1) < lo || b(1) > hi || (b(2) & 0xC0) != 0x80) return 0;
        return 3;
    }
    if (c >= 0xF0 && c <= 0xF4) {
        if (left < 4) return 0;
        const unsigned char lo = c == 0xF0 ? 0x90 : 0x80;
        const unsigned char hi = c == 0xF4 ? 0x8F : 0xBF;
        if (b(1) < lo || b(1) > hi || (b(2) & 0xC0) != 0x80 || (b(3) & 0xC0) != 0x80) return 0;
        return 4;
    }
    return 0;
}

}  // namespace

bool isValidUtf8(std::string_view bytes) {
    for (std::size_t pos = 0; pos < bytes.size();) {
        const std::size_t n = utf8SequenceLength(bytes, pos);
        if (n == 0) return false;
        pos += n;
    }
    return true;
}

std::string repairUtf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (std::size_t pos = 0; pos < bytes.size();) {
        const std::size_t n = utf8SequenceLength(bytes, pos);
        if (n == 0) {
            out += "\xEF\xBF\xBD";
            ++pos;
        } else {
            out.append(bytes.substr(pos, n));
            pos += n;
        }
    }
    return out;
}

// ---- Parser ----

namespace {

class Parser {
public:
    Parser(std::string_view text, JsonParseOptions options) : text_(text), options_(options) {}

    Result<JsonValue> run() {
        skipBlanks();
        JsonValue value;
        if (!parseValue(value, 0)) return error_;
        skipBlanks();
        if (pos_ != text_.size()) return fail("unexpected text after the value"), error_;
        return value;
    }

private:
    std::string_view text_;
    JsonParseOptions options_;
    std::size_t pos_ = 0;
    Status error_ = Status::success();

    bool fail(const char* message, Cause cause = Cause::dataLoss) {
        error_ = Status::failure(cause, std::string(message) + " at byte " + std::to_string(pos_));
        return false;
    }

    void skipBlanks() {
        while (pos_ < text_.size()) {
            const char c = text_[pos_];
            if (c != ' ' && c != '\t' && c != '\n' && c != '\r') break;
            ++pos_;
        }
    }

    bool literal(std::string_view word) {
        if (text_.substr(pos_, word.size()) != word) return fail("invalid literal");
        pos_ += word.size();
        return true;
    }

    bool parseValue(JsonValue& out, std::size_t depth) {
        if (pos_ >= text_.size()) return fail("unexpected end of text");
        switch (text_[pos_]) {
        case '{': return parseObject(out, depth + 1);
        case '[': return parseArray(out, depth + 1);
        case '"': {
            std::string s;
            if (!parseString(s)) return false;
            out = JsonValue(std::move(s));
            return true;
        }
        case 't':
            if (!literal("true")) return false;
            out = JsonValue(true);
            return true;
        case 'f':
            if (!literal("false")) return false;
            out = JsonValue(false);
            return true;
        case 'n':
            if (!literal("null")) return false;
            out = JsonValue(nullptr);
            return true;
        default: return parseNumber(out);
        }
    }

    bool parseObject(JsonValue& out, std::size_t depth) {
        if (depth > options_.maxDepth) return fail("nesting too deep", Cause::resourceExhausted);
        ++pos_;
        JsonObject object;
        skipBlanks();
        if (pos_ < text_.size() && text_[pos_] == '}') {
            ++pos_;
            out = JsonValue(std::move(object));
            return true;
        }
        for (;;) {
            skipBlanks();
            if (pos_ >= text_.size() || text_[pos_] != '"') return fail("expected a key");
            std::string key;
            if (!parseString(key)) return false;
            skipBlanks();
            if (pos_ >= text_.size() || text_[pos_] != ':') return fail("expected ':'");
            ++pos_;
            skipBlanks();
            JsonValue member;
            if (!parseValue(member, depth)) return false;
            if (!object.emplace(std::move(key), std::move(member)).second) return fail("duplicate key");
            skipBlanks();
            if (pos_ >= text_.size()) return fail("unexpected end of text");
            if (text_[pos_] == ',') {
                ++pos_;
                continue;
            }
            if (text_[pos_] == '}') {
                ++pos_;
                out = JsonValue(std::move(object));
                return true;
            }
            return fail("expected ',' or '}'");
        }
    }

    bool parseArray(JsonValue& out, std::size_t depth) {
        if (depth > options_.maxDepth) return fail("nesting too deep", Cause::resourceExhausted);
        ++pos_;
        JsonArray array;
        skipBlanks();
        if (pos_ < text_.size() && text_[pos_] == ']') {
            ++pos_;
            out = JsonValue(std::move(array));
            return true;
        }
        for (;;) {
            skipBlanks();
            JsonValue element;
            if (!parseValue(element, depth)) return false;
            array.push_back(std::move(element));
            skipBlanks();
            if (pos_ >= text_.size()) return fail("unexpected end of text");
            if (text_[pos_] == ',') {
                ++pos_;
                continue;
            }
            if (text_[pos_] == ']') {
                ++pos_;
                out = JsonValue(std::move(array));
                return true;
            }
            return fail("expected ',' or ']'");
        }
    }

    bool hex4(std::uint32_t& out) {
        if (text_.size() - pos_ < 4) return fail("short unicode escape");
        std::uint32_t v = 0;
        for (int k = 0; k < 4; ++k) {
            const char c = text_[pos_ + k];
            v <<= 4;
            if (c >= '0' && c <= '9') v |= static_cast<std::uint32_t>(c - '0');
            else if (c >= 'a' && c <= 'f') v |= static_cast<std::uint32_t>(c - 'a' + 10);
            else if (c >= 'A' && c <= 'F') v |= static_cast<std::uint32_t>(c - 'A' + 10);
            else return fail("invalid unicode escape");
        }
        pos_ += 4;
        out = v;
        return true;
    }

    bool parseString(std::string& out) {
        ++pos_;  // opening quote
        for (;;) {
            if (pos_ >= text_.size()) return fail("unterminated string");
            const unsigned char c = static_cast<unsigned char>(text_[pos_]);
            if (c == '"') {
                ++pos_;
                return true;
            }
            if (c < 0x20) return fail("control character in string");
            if (c == '\\') {
                ++pos_;
                if (pos_ >= text_.size()) return fail("unterminated escape");
                const char e = text_[pos_++];
                switch (e) {
                case '"': out += '"'; break;
                case '\\': out += '\\'; break;
                case '/': out += '/'; break;
                case 'b': out += '\b'; break;
                case 'f': out += '\f'; break;
                case 'n': out += '\n'; break;
                case 'r': out += '\r'; break;
                case 't': out += '\t'; break;
                case 'u': {
                    std::uint32_t cp = 0;
                    if (!hex4(cp)) return false;
                    if (cp >= 0xDC00 && cp <= 0xDFFF) return fail("lone low surrogate");
                    if (cp >= 0xD800 && cp <= 0xDBFF) {
                        if (text_.substr(pos_, 2) != "\\u") return fail("lone high surrogate");
                        pos_ += 2;
                        std::uint32_t low = 0;
                        if (!hex4(low)) return false;
                        if (low < 0xDC00 || low > 0xDFFF) return fail("lone high surrogate");
                        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                    }
                    appendUtf8(static_cast<char32_t>(cp), out);
                    break;
                }
                default: return fail("invalid escape");
                }
                continue;
            }
            const std::size_t n = utf8SequenceLength(text_, pos_);
            if (n == 0) return fail("invalid UTF-8");
            out.append(text_.substr(pos_, n));
            pos_ += n;
        }
    }

    bool parseNumber(JsonValue& out) {
        const std::size_t start = pos_;
        auto digit = [&](std::size_t p) { return p < text_.size() && text_[p] >= '0' && text_[p] <= '9'; };
        if (pos_ < text_.size() && text_[pos_] == '-') ++pos_;
        if (!digit(pos_)) return fail("invalid number");
        if (text_[pos_] == '0') {
            ++pos_;
            if (digit(pos_)) return fail("leading zero");
        } else {
            while (digit(pos_)) ++pos_;
        }
        bool integral = true;
        if (pos_ < text_.size() && text_[pos_] == '.') {
            integral = false;
            ++pos_;
            if (!digit(pos_)) return fail("invalid fraction");
            while (digit(pos_)) ++pos_;
        }
        if (pos_ < text_.size() && (text_[pos_] == 'e' || text_[pos_] == 'E')) {
            integral = false;
            ++pos_;
            if (pos_ < text_.size() && (text_[pos_] == '+' || text_[pos_] == '-')) ++pos_;
            if (!digit(pos_)) return fail("invalid exponent");
            while (digit(pos_)) ++pos_;
        }
        const char* first = text_.data() + start;
        const char* last = text_.data() + pos_;
        if (integral) {
            if (*first == '-') {
                std::int64_t v = 0;
                if (std::from_chars(first, last, v).ec == std::errc()) {
                    out = JsonValue(v);
                    return true;
                }
            } else {
                std::uint64_t v = 0;
                if (std::from_chars(first, last, v).ec == std::errc()) {
                    if (v <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
                        out = JsonValue(static_cast<std::int64_t>(v));
                    else out = JsonValue(v);
                    return true;
                }
            }
        }
        const std::optional<double> d = readCLocaleDouble(std::string(first, last));
        if (!d || !std::isfinite(*d)) return fail("number out of range");
        // A number too small for a double is refused rather than read as 0, as too large a one is.
        if (*d == 0 && hasNonZeroDigit(std::string_view(first, static_cast<std::size_t>(last - first))))
            return fail("number out of range");
        out = JsonValue(*d);
        return true;
    }

    // True when a digit of the significand (before any exponent) is not zero.
    static bool hasNonZeroDigit(std::string_view number) {
        for (const char c : number) {
            if (c == 'e' || c == 'E') break;
            if (c >= '1' && c <= '9') return true;
        }
        return false;
    }
};

// ---- Writer ----

class Writer {
public:
    explicit Writer(JsonWriteOptions options) : options_(options) {}

    bool write(const JsonValue& value, int depth) {
        return std::visit([&](const auto& v) { return this->emit(v, depth); }, value.storage());
    }

    std::string out;

private:
    JsonWriteOptions options_;

    void newline(int depth) {
        if (!options_.pretty) return;
        out += '\n';
        out.append(static_cast<std::size_t>(depth) * 2, ' ');
    }

    bool emit(std::nullptr_t, int) {
        out += "null";
        return true;
    }
    bool emit(bool b, int) {
        out += b ? "true" : "false";
        return true;
    }
    bool emit(const JsonNumber& n, int) {
        char buffer[32];
        switch (n.kind) {
        case JsonNumber::Kind::signedInteger: {
            auto r = std::to_chars(buffer, buffer + sizeof buffer, n.i);
            out.append(buffer, r.ptr);
            return true;
        }
        case JsonNumber::Kind::unsignedInteger: {
            auto r = std::to_chars(buffer, buffer + sizeof buffer, n.u);
            out.append(buffer, r.ptr);
            return true;
        }
        case JsonNumber::Kind::real:
            if (!std::isfinite(n.d)) return false;
            out += formatShortestDouble(n.d);
            return true;
        }
        return false;
    }
    bool emit(const std::string& s, int) {
        writeString(s);
        return true;
    }
    bool emit(const JsonArray& array, int depth) {
        out += '[';
        if (array.empty()) {
            out += ']';
            return true;
        }
        bool first = true;
        for (const JsonValue& element : array) {
            if (!first) out += ',';
            first = false;
            newline(depth + 1);
            if (!write(element, depth + 1)) return false;
        }
        newline(depth);
        out += ']';
        return true;
    }
    bool emit(const JsonObject& object, int depth) {
        out += '{';
        if (object.empty()) {
            out += '}';
            return true;
        }
        bool first = true;
        for (const auto& [key, member] : object) {
            if (!first) out += ',';
            first = false;
            newline(depth + 1);
            writeString(key);
            out += options_.pretty ? " : " : ":";
            if (!write(member, depth + 1)) return false;
        }
        newline(depth);
        out += '}';
        return true;
    }

    void writeString(const std::string& s) {
        static const char* hex = "0123456789abcdef";
        out += '"';
        for (const char ch : s) {
            const unsigned char c = static_cast<unsigned char>(ch);
            switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            case '\b': out += "\\b"; break;
            case '\f': out += "\\f"; break;
            case '/':
                if (options_.escapeSlashes) out += "\\/";
                else out += '/';
                break;
            default:
                if (c < 0x20) {
                    out += "\\u00";
                    out += hex[c >> 4];
                    out += hex[c & 0xF];
                } else {
                    out += ch;
                }
            }
        }
        out += '"';
    }
};

// ---- Shortest round-trip numbers ----
//
// The shortest decimal that reads back as the same double, laid out as the shorter of plain and
// exponent notation (plain on a tie): "0.1", "1.5e-07", "1e+21", "123456789012345683968". This is
// the text std::to_chars gives, built from printf's correctly rounded digits so that it needs no
// floating-point to_chars, which Apple's libc++ lacks.

// mantissa × 10^exponent, the mantissa without trailing zeros unless it is the only digit.
struct Decimal {
    std::uint64_t mantissa = 0;
    int exponent = 0;
};

std::uint64_t powerOfTen(int n) {
    std::uint64_t p = 1;
    while (n-- > 0) p *= 10;
    return p;
}

std::string integerText(std::int64_t v) {
    char buffer[24];
    auto r = std::to_chars(buffer, buffer + sizeof buffer, v);
    return std::string(buffer, r.ptr);
}

std::optional<double> readBack(const Decimal& d) {
    return readCLocaleDouble(integerText(static_cast<std::int64_t>(d.mantissa)) + "e" + integerText(d.exponent));
}

// The nearest decimal of `precision` significant digits to a positive finite value. printf rounds
// correctly; only its digits and exponent are taken, so whatever decimal point the C locale uses
// in between does not matter.
Decimal nearestDecimal(double magnitude, int precision) {
    char buffer[64];
    const int n = std::snprintf(buffer, sizeof buffer, "%.*e", precision - 1, magnitude);
    Decimal d;
    int digits = 0;
    int i = 0;
    for (; i < n && buffer[i] != 'e'; ++i) {
        if (buffer[i] >= '0' && buffer[i] <= '9') {
            d.mantissa = d.mantissa * 10 + static_cast<std::uint64_t>(buffer[i] - '0');
            ++digits;
        }
    }
    int exponent = 0;
    bool negative = false;
    for (++i; i < n; ++i) {
        if (buffer[i] == '-') negative = true;
        else if (buffer[i] >= '0' && buffer[i] <= '9') exponent = exponent * 10 + (buffer[i] - '0');
    }
    d.exponent = (negative ? -exponent : exponent) - (digits - 1);
    return d;
}

// The next decimal of the same number of significant digits above or below.
Decimal neighbour(Decimal d, int precision, bool above) {
    const std::uint64_t low = powerOfTen(precision - 1);
    if (above) {
        if (++d.mantissa == low * 10) {
            d.mantissa = low;
            ++d.exponent;
        }
    } else if (d.mantissa-- == low) {
        d.mantissa = low * 10 - 1;
        --d.exponent;
    }
    return d;
}

// The decimal of `precision` digits that reads back as the value, the nearest one if several do.
std::optional<Decimal> readingBack(double magnitude, int precision) {
    const Decimal nearest = nearestDecimal(magnitude, precision);
    const std::optional<double> back = readBack(nearest);
    if (!back) return std::nullopt;
    if (*back == magnitude) return nearest;
    // Where the spacing of doubles changes (at a power of two) the decimals that read back lie
    // unevenly around the value, and the nearest one may miss them while the next one on the far
    // side still reads back.
    const Decimal other = neighbour(nearest, precision, *back < magnitude);
    const std::optional<double> otherBack = readBack(other);
    if (otherBack && *otherBack == magnitude) return other;
    return std::nullopt;
}

// The figures this program writes are mostly whole or have a few decimals. A decimal of at most
// fifteen significant digits that reads back is the only one of its length that does (see the search),
// so the first number of decimals whose digits read back gives the shortest text, found with a
// multiplication and a division (both operands exact, so the quotient is the correctly rounded
// reading) instead of printing and reading text.
std::optional<Decimal> fewDecimals(double magnitude) {
    if (!(magnitude >= std::numeric_limits<double>::min())) return std::nullopt;
    double scale = 1;
    for (int decimals = 0; decimals <= 8; ++decimals, scale *= 10) {
        const double scaled = magnitude * scale;
        if (scaled >= 1e15) break;
        const double digits = kestrow::roundedHalfEven(scaled);
        if (digits / scale == magnitude) return Decimal{static_cast<std::uint64_t>(digits), -decimals};
    }
    return std::nullopt;
}

Decimal searchedDecimal(double magnitude) {
    // Every precision from the shortest one that reads back upwards reads back too (fewer digits
    // only ever remove candidates), so the shortest is found by bisection; 17 always reads back.
    int low = 1;
    int high = 17;
    std::optional<Decimal> best;
    // Fifteen-digit decimals lie further apart than a normal double's rounding interval is wide, so
    // at most one of them reads back; when one does, any shorter decimal that reads back is that
    // same one with trailing zeros, and dropping the zeros below gives the shortest without the
    // search. (Subnormals have fewer bits and wider intervals: they are searched.)
    if (magnitude >= std::numeric_limits<double>::min()) {
        if (const auto found = readingBack(magnitude, 15)) {
            best = found;
            low = high;
        } else {
            low = 16;
        }
    }
    while (low < high) {
        const int middle = (low + high) / 2;
        if (const auto found = readingBack(magnitude, middle)) {
            best = found;
            high = middle;
        } else {
            low = middle + 1;
        }
    }
    // Only when nothing shorter read back are the seventeen digits, which always do, printed.
    return best ? *best : nearestDecimal(magnitude, 17);
}

// ---- The same digits in integer arithmetic ----
//
// Printing and reading back cost microseconds a number, and timestamps and percentages with full
// precision all take that path. For a normal double v = m·2^e both questions it asks have exact
// answers in 128-bit integers: the correctly rounded p-digit decimal is round(m·5^s / 2^(-e-s))
// for s = p − 1 − (the power of ten of v's first digit), and a decimal reads back as v exactly
// when it lies in v's rounding interval. Between 1e-10 and 1e15 every product below stays under
// 2^120, so the answers are the ones printf and strtod give, which the tests check bit for bit.

__extension__ using Wide = unsigned __int128;

// Where the arithmetic is exact: s stays within the table of powers of five (at most 16 + 11).
constexpr double exactFrom = 1e-10;
constexpr double exactBelow = 1e15;

constexpr std::array<std::uint64_t, 28> powersOfFive = [] {
    std::array<std::uint64_t, 28> powers{};
    std::uint64_t p = 1;
    for (std::uint64_t& power : powers) {
        power = p;
        p *= 5;
    }
    return powers;
}();

// A positive normal double as significand × 2^exponent, the significand in [2^52, 2^53).
struct Binary {
    std::uint64_t significand = 0;
    int exponent = 0;
};

Binary binaryOf(double magnitude) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &magnitude, sizeof bits);
    constexpr std::uint64_t hidden = std::uint64_t{1} << 52;
    return Binary{(bits & (hidden - 1)) | hidden, static_cast<int>(bits >> 52) - 1075};
}

int bitWidth(Wide w) {
    const auto high = static_cast<std::uint64_t>(w >> 64);
    if (high != 0) return 128 - std::countl_zero(high);
    return 64 - std::countl_zero(static_cast<std::uint64_t>(w));
}

// The sign of a·2^shiftA − b·2^shiftB, shifts at least 0.
int compareScaled(Wide a, int shiftA, Wide b, int shiftB) {
    const int common = std::min(shiftA, shiftB);
    shiftA -= common;
    shiftB -= common;
    if (a != 0 && bitWidth(a) + shiftA > 128) return 1;
    if (b != 0 && bitWidth(b) + shiftB > 128) return -1;
    a <<= shiftA;
    b <<= shiftB;
    return a < b ? -1 : (a > b ? 1 : 0);
}

// The sign of digits·10^power − multiple·2^twos: 10^power is 5^power·2^power, and a negative
// power's 5^-power moves to the other side.
int compareWithBinary(std::uint64_t digits, int power, std::uint64_t multiple, int twos) {
    Wide left = digits;
    Wide right = multiple;
    if (power >= 0) left *= powersOfFive[static_cast<std::size_t>(power)];
    else right *= powersOfFive[static_cast<std::size_t>(-power)];
    const int base = std::min(power, twos);
    return compareScaled(left, power - base, right, twos - base);
}

// The power of ten of the first digit. v ≥ 2^(e+52), so floor((e + 52)·log10 2), which
// ((e + 52)·78913) >> 18 gives for every exponent a double has, is at most one too small.
int firstDigitPower(const Binary& b) {
    const int k = ((b.exponent + 52) * 78913) >> 18;
    return compareWithBinary(1, k + 1, b.significand, b.exponent) <= 0 ? k + 1 : k;
}

// What printf's "%.*e" gives: v·10^s rounded to an integer, half to even on an exact tie, where
// the ties are those of the exact binary value.
Decimal nearestExactly(const Binary& b, int firstDigit, int precision) {
    const int s = precision - 1 - firstDigit;
    const Wide scaled = Wide{b.significand} * powersOfFive[static_cast<std::size_t>(s)];
    const int shift = -(b.exponent + s);  // v·10^s = scaled / 2^shift
    Decimal d{0, -s};
    if (shift <= 0) {
        d.mantissa = static_cast<std::uint64_t>(scaled << -shift);
    } else {
        d.mantissa = static_cast<std::uint64_t>(scaled >> shift);
        const Wide rest = scaled & ((Wide{1} << shift) - 1);
        const Wide half = Wide{1} << (shift - 1);
        if (rest > half || (rest == half && (d.mantissa & 1) != 0)) ++d.mantissa;
    }
    if (d.mantissa == powerOfTen(precision)) {  // 9.99…5 rounded up to 10.0…0
        d.mantissa /= 10;
        ++d.exponent;
    }
    return d;
}

// Where a decimal reads back: below v's rounding interval (−1), inside it (0) or above it (1).
// The interval reaches half a unit in the last place to either side, only a quarter below a power
// of two, where the spacing halves; its ends read back as v when m is even, since strtod rounds
// a tie to the even significand.
int placeOf(const Decimal& d, const Binary& b) {
    const std::uint64_t m4 = b.significand * 4;
    const bool powerOfTwo = b.significand == std::uint64_t{1} << 52;
    const bool endsReadBack = b.significand % 2 == 0;
    const int low = compareWithBinary(d.mantissa, d.exponent, m4 - (powerOfTwo ? 1 : 2), b.exponent - 2);
    if (low < 0 || (low == 0 && !endsReadBack)) return -1;
    const int high = compareWithBinary(d.mantissa, d.exponent, m4 + 2, b.exponent - 2);
    if (high > 0 || (high == 0 && !endsReadBack)) return 1;
    return 0;
}

// readingBack without the C library.
std::optional<Decimal> readingBackExactly(const Binary& b, int firstDigit, int precision) {
    const Decimal nearest = nearestExactly(b, firstDigit, precision);
    const int place = placeOf(nearest, b);
    if (place == 0) return nearest;
    const Decimal other = neighbour(nearest, precision, place < 0);
    if (placeOf(other, b) == 0) return other;
    return std::nullopt;
}

// searchedDecimal's choice for a normal double between exactFrom and exactBelow: 15 digits if they
// read back, else 16, else the nearest 17.
Decimal searchedDecimalExactly(double magnitude) {
    const Binary b = binaryOf(magnitude);
    const int firstDigit = firstDigitPower(b);
    for (const int precision : {15, 16}) {
        if (const auto found = readingBackExactly(b, firstDigit, precision)) return *found;
    }
    return nearestExactly(b, firstDigit, 17);
}

Decimal shortestDecimal(double magnitude, DigitSearch search) {
    const std::optional<Decimal> quick = fewDecimals(magnitude);
    Decimal best;
    if (quick) best = *quick;
    else if (search == DigitSearch::exactWhereItCan && magnitude >= exactFrom && magnitude < exactBelow)
        best = searchedDecimalExactly(magnitude);
    else best = searchedDecimal(magnitude);
    while (best.mantissa % 10 == 0 && best.mantissa != 0) {
        best.mantissa /= 10;
        ++best.exponent;
    }
    return best;
}

// Writes the decimal at `out`, before `end`, and returns where it ends. With 17 digits at most the
// exponent form takes at most 23 characters, and the plain form is only chosen when no longer.
char* layOut(const Decimal& d, double magnitude, char* out, char* end) {
    char digits[24];
    char* const digitsEnd = std::to_chars(digits, digits + sizeof digits, d.mantissa).ptr;
    const int n = static_cast<int>(digitsEnd - digits);
    const int power = d.exponent + n - 1;  // of the first digit
    const int absolutePower = power < 0 ? -power : power;

    const int scientificLength = n + (n > 1 ? 1 : 0) + 2 + (absolutePower < 100 ? 2 : 3);  // d.ddde+XX
    int plainLength = 0;
    if (power < 0) plainLength = 2 + (-power - 1) + n;  // 0.000ddd
    else if (power < n - 1) plainLength = n + 1;        // ddd.ddd
    else plainLength = power + 1;                       // dddddd

    if (plainLength > scientificLength) {
        *out++ = digits[0];
        if (n > 1) {
            *out++ = '.';
            out = std::copy(digits + 1, digitsEnd, out);
        }
        *out++ = 'e';
        *out++ = power < 0 ? '-' : '+';
        if (absolutePower < 10) *out++ = '0';
        return std::to_chars(out, end, absolutePower).ptr;
    }
    if (power < 0) {
        *out++ = '0';
        *out++ = '.';
        out = std::fill_n(out, -power - 1, '0');
        return std::copy(digits, digitsEnd, out);
    }
    if (power < n - 1) {
        out = std::copy(digits, digits + power + 1, out);
        *out++ = '.';
        return std::copy(digits + power + 1, digitsEnd, out);
    }
    // A whole number written out in full shows its exact value, not the short digits padded with
    // zeros: 2^70 is 1180591620717411303424, not 1180591620717411300000.
    const int written = std::snprintf(out, static_cast<std::size_t>(end - out), "%.0f", magnitude);
    return out + (written > 0 ? std::min<std::ptrdiff_t>(written, end - out - 1) : 0);
}

}  // namespace

Result<JsonValue> parseJson(std::string_view text, JsonParseOptions options) { return Parser(text, options).run(); }

Result<std::string> writeJson(const JsonValue& value, JsonWriteOptions options) {
    Writer writer(options);
    if (!writer.write(value, 0)) return Status::failure(Cause::invalidArgument, "a number that is not finite");
    return std::move(writer.out);
}

std::string formatShortestDouble(double value) { return formatShortestDouble(value, DigitSearch::exactWhereItCan); }

std::string formatShortestDouble(double value, DigitSearch search) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
    if (value == 0) return "0";  // also folds −0, which readers treat as 0 anyway
    if (value == kestrow::truncated(value) && std::fabs(value) < 1e15) {
        // Whole numbers print without a fraction or exponent, as people expect of "12".
        char buffer[32];
        auto r = std::to_chars(buffer, buffer + sizeof buffer, static_cast<std::int64_t>(value));
        return std::string(buffer, r.ptr);
    }
    const double magnitude = std::fabs(value);
    const Decimal digits = shortestDecimal(magnitude, search);
    char text[64];
    char* start = text;
    if (value < 0) *start++ = '-';
    return std::string(text, layOut(digits, magnitude, start, text + sizeof text));
}

}  // namespace kestrow
