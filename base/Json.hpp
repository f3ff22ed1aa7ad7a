// A small JSON value with a strict parser and a writer that always sorts object keys.
//
// Numbers keep their integer form when they have one, so byte counts up to 2^64 − 1 survive a
// round trip exactly; other numbers are doubles written in the shortest form that reads back
// to the same double.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Status.hpp"

namespace kestrow {

class JsonValue;
using JsonArray = std::vector<JsonValue>;
using JsonObject = std::map<std::string, JsonValue>;  // byte-wise key order is the sorted order

struct JsonNumber {
    enum class Kind { signedInteger, unsignedInteger, real };
    Kind kind = Kind::signedInteger;
    std::int64_t i = 0;
    std::uint64_t u = 0;
    double d = 0;

    static JsonNumber ofSigned(std::int64_t v) { return {Kind::signedInteger, v, 0, 0}; }
    static JsonNumber ofUnsigned(std::uint64_t v) { return {Kind::unsignedInteger, 0, v, 0}; }
    static JsonNumber ofReal(double v) { return {Kind::real, 0, 0, v}; }

    double asDouble() const;
    // Exact conversions only: 3.0 converts to 3, 3.5 does not; negatives never become unsigned.
    std::optional<std::int64_t> asSigned() const;
    std::optional<std::uint64_t> asUnsigned() const;
    bool operator==(const JsonNumber& other) const;
};

class JsonValue {
public:
    using Storage = std::variant<std::nullptr_t, bool, JsonNumber, std::string, JsonArray, JsonObject>;

    JsonValue() : storage_(nullptr) {}
    JsonValue(std::nullptr_t) : storage_(nullptr) {}
    JsonValue(bool b) : storage_(b) {}
    JsonValue(int v) : storage_(JsonNumber::ofSigned(v)) {}
    JsonValue(std::int64_t v) : storage_(JsonNumber::ofSigned(v)) {}
    JsonValue(std::uint32_t v) : storage_(JsonNumber::ofUnsigned(v)) {}
    JsonValue(std::uint64_t v) : storage_(JsonNumber::ofUnsigned(v)) {}
    JsonValue(double v) : storage_(JsonNumber::ofReal(v)) {}
    JsonValue(JsonNumber n) : storage_(n) {}
    JsonValue(const char* s) : storage_(std::string(s)) {}
    JsonValue(std::string s) : storage_(std::move(s)) {}
    JsonValue(std::string_view s) : storage_(std::string(s)) {}
    JsonValue(JsonArray a) : storage_(std::move(a)) {}
    JsonValue(JsonObject o) : storage_(std::move(o)) {}

    bool isNull() const { return std::holds_alternative<std::nullptr_t>(storage_); }
    const bool* asBool() const { return std::get_if<bool>(&storage_); }
    const JsonNumber* asNumber() const { return std::get_if<JsonNumber>(&storage_); }
    const std::string* asString() const { return std::get_if<std::string>(&storage_); }
    const JsonArray* asArray() const { return std::get_if<JsonArray>(&storage_); }
    const JsonObject* asObject() const { return std::get_if<JsonObject>(&storage_); }
    JsonArray* asArray() { return std::get_if<JsonArray>(&storage_); }
    JsonObject* asObject() { return std::get_if<JsonObject>(&storage_); }

    // Member lookup on an object; null when this is not an object or the key is missing.
    const JsonValue* find(std::string_view key) const;

    const Storage& storage() const { return storage_; }
    bool operator==(const JsonValue& other) const { return storage_ == other.storage_; }

private:
    Storage storage_;
};

struct JsonParseOptions {
    std::size_t maxDepth = 64;
};

// Strict RFC 8259: one value, optional surrounding blanks, no comments, no trailing commas, no
// leading zeros, valid UTF-8 only, escapes checked (lone surrogates refused). Duplicate keys are
// refused too, since their meaning differs between readers. A failure says what was wrong and at
// which byte: `resourceExhausted` when the nesting is deeper than allowed, `dataLoss` for any text
// that is not JSON (cut short, a wrong token, ill-formed UTF-8).
[[nodiscard]] Result<JsonValue> parseJson(std::string_view text, JsonParseOptions options = {});

struct JsonWriteOptions {
    bool pretty = false;         // two blanks of indent, "key" : value, one item a line
    bool escapeSlashes = false;  // write "/" as "\/"
};

// Fails (`invalidArgument`) only for a non-finite double, which JSON cannot carry.
[[nodiscard]] Result<std::string> writeJson(const JsonValue& value, JsonWriteOptions options = {});

// Shortest text that reads back as the same double ("0.1", "12", "1e+300").
std::string formatShortestDouble(double value);

// How formatShortestDouble finds digits that need a search: in integer arithmetic where that is
// exact (normal doubles from 1e-10 to 1e15), or everywhere by printing with printf and reading back
// with strtod, which is slower but is the reference the arithmetic must match byte for byte.
enum class DigitSearch { exactWhereItCan, printfAndStrtod };
std::string formatShortestDouble(double value, DigitSearch search);

// True when the bytes are well-formed UTF-8 (no overlongs, no surrogates, nothing above U+10FFFF).
bool isValidUtf8(std::string_view bytes);
// Replaces each ill-formed sequence with U+FFFD, the way system APIs repair text.
std::string repairUtf8(std::string_view bytes);

}  // namespace kestrow
