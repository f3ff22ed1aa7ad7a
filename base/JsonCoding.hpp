// Typed encoding and decoding of records to and from JsonValue. A record type provides
//   JsonValue toJson(const T&)   and   bool fromJson(const JsonValue&, T&)
// found by argument-dependent lookup; these helpers handle numbers, strings, arrays and optionals,
// and a record's own pair is written from one table of its fields (encodeFields, decodeFields).
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "IsoDate.hpp"
#include "Json.hpp"
#include "RawValueEnum.hpp"

namespace kestrow {

inline JsonValue toJson(bool v) { return JsonValue(v); }
inline JsonValue toJson(std::int32_t v) { return JsonValue(static_cast<std::int64_t>(v)); }
inline JsonValue toJson(std::int64_t v) { return JsonValue(v); }
inline JsonValue toJson(std::uint32_t v) { return JsonValue(static_cast<std::uint64_t>(v)); }
inline JsonValue toJson(std::uint64_t v) { return JsonValue(v); }
inline JsonValue toJson(double v) { return JsonValue(v); }
inline JsonValue toJson(const std::string& v) { return JsonValue(v); }
inline JsonValue toJson(Date v) { return JsonValue(formatIsoDate(v)); }

// Enumerations with string raw values travel as their raw value.
template <typename Derived>
JsonValue toJson(const RawValueEnum<Derived>& value) {
    return JsonValue(value.rawValue());
}
template <typename Derived>
bool fromJson(const JsonValue& json, RawValueEnum<Derived>& out) {
    const std::string* raw = json.asString();
    auto value = raw ? Derived::fromRawValue(*raw) : std::nullopt;
    if (!value) return false;
    static_cast<Derived&>(out) = *value;
    return true;
}

template <typename T>
JsonValue toJson(const std::vector<T>& values) {
    JsonArray array;
    array.reserve(values.size());
    for (const T& v : values) array.push_back(toJson(v));
    return JsonValue(std::move(array));
}

inline bool fromJson(const JsonValue& v, bool& out) {
    if (const bool* b = v.asBool()) return out = *b, true;
    return false;
}
inline bool fromJson(const JsonValue& v, std::uint64_t& out) {
    const JsonNumber* n = v.asNumber();
    if (!n) return false;
    auto u = n->asUnsigned();
    return u ? (out = *u, true) : false;
}
inline bool fromJson(const JsonValue& v, std::int64_t& out) {
    const JsonNumber* n = v.asNumber();
    if (!n) return false;
    auto s = n->asSigned();
    return s ? (out = *s, true) : false;
}
inline bool fromJson(const JsonValue& v, std::int32_t& out) {
    std::int64_t wide = 0;
    if (!fromJson(v, wide) || wide < std::numeric_limits<std::int32_t>::min() ||
        wide > std::numeric_limits<std::int32_t>::max())
        return false;
    out = static_cast<std::int32_t>(wide);
    return true;
}
inline bool fromJson(const JsonValue& v, std::uint32_t& out) {
    std::uint64_t wide = 0;
    if (!fromJson(v, wide) || wide > std::numeric_limits<std::uint32_t>::max()) return false;
    out = static_cast<std::uint32_t>(wide);
    return true;
}
inline bool fromJson(const JsonValue& v, double& out) {
    const JsonNumber* n = v.asNumber();
    return n ? (out = n->asDouble(), true) : false;
}
inline bool fromJson(const JsonValue& v, std::string& out) {
    const std::string* s = v.asString();
    return s ? (out = *s, true) : false;
}
inline bool fromJson(const JsonValue& v, Date& out) {
    const std::string* s = v.asString();
    if (!s) return false;
    auto d = parseIsoDate(*s);
    return d ? (out = *d, true) : false;
}
template <typename T>
bool fromJson(const JsonValue& v, std::vector<T>& out) {
    const JsonArray* array = v.asArray();
    if (!array) return false;
    out.clear();
    out.reserve(array->size());
    for (const JsonValue& element : *array) {
        T item{};
        if (!fromJson(element, item)) return false;
        out.push_back(std::move(item));
    }
    return true;
}

// Builds an object field by field; absent optionals leave their key out.
class JsonObjectBuilder {
public:
    template <typename T>
    JsonObjectBuilder& set(const char* key, const T& value) {
        object_.insert_or_assign(key, toJson(value));
        return *this;
    }
    template <typename T>
    JsonObjectBuilder& set(const char* key, const std::optional<T>& value) {
        if (value) object_.insert_or_assign(key, toJson(*value));
        return *this;
    }
    JsonValue build() { return JsonValue(std::move(object_)); }

private:
    JsonObject object_;
};

// Reads fields of an object; any missing required field or wrong type makes ok() false.
// An optional field may be missing or null.
class JsonObjectReader {
public:
    explicit JsonObjectReader(const JsonValue& value) : object_(value.asObject()), ok_(object_ != nullptr) {}

    template <typename T>
    JsonObjectReader& get(const char* key, T& out) {
        if (!ok_) return *this;
        const JsonValue* member = find(key);
        if (!member || !fromJson(*member, out)) ok_ = false;
        return *this;
    }
    template <typename T>
    JsonObjectReader& get(const char* key, std::optional<T>& out) {
        if (!ok_) return *this;
        const JsonValue* member = find(key);
        out.reset();
        if (!member || member->isNull()) return *this;
        T value{};
        if (!fromJson(*member, value)) ok_ = false;
        else out = std::move(value);
        return *this;
    }
    bool ok() const { return ok_; }

private:
    const JsonValue* find(const char* key) const {
        auto it = object_->find(key);
        return it == object_->end() ? nullptr : &it->second;
    }
    const JsonObject* object_;
    bool ok_;
};

// A record's JSON form declared once, as a table of fields that both directions walk, so a key
// cannot be renamed on the way out and forgotten on the way in:
//   constexpr auto recordFields = std::tuple{kestrow::field("name", &Record::name), ...};
//   JsonValue toJson(const Record& r) { return kestrow::encodeFields(r, recordFields); }
//   bool fromJson(const JsonValue& j, Record& r) { return kestrow::decodeFields(j, r, recordFields); }
// Optional members are left out when absent and read back from a missing key or null; every other
// member is required. A field may name a function its value (an optional's contained value) passes
// through on the way out only, for a text that must be made writable first.
struct WrittenAsIs {};

template <typename T>
inline constexpr bool isOptional = false;
template <typename T>
inline constexpr bool isOptional<std::optional<T>> = true;

template <typename Record, typename Member, typename Encode = WrittenAsIs>
struct JsonField {
    const char* key;
    Member Record::*member;
    Encode encode{};

    void write(JsonObjectBuilder& object, const Record& record) const {
        const Member& value = record.*member;
        if constexpr (std::is_same_v<Encode, WrittenAsIs>) {
            object.set(key, value);
        } else if constexpr (isOptional<Member>) {
            if (value) object.set(key, encode(*value));
        } else {
            object.set(key, encode(value));
        }
    }
    void read(JsonObjectReader& object, Record& record) const { object.get(key, record.*member); }
};

template <typename Record, typename Member>
constexpr JsonField<Record, Member> field(const char* key, Member Record::*member) {
    return {key, member, {}};
}
template <typename Record, typename Member, typename Encode>
constexpr JsonField<Record, Member, Encode> field(const char* key, Member Record::*member, Encode encode) {
    return {key, member, encode};
}

template <typename Record, typename... Fields>
JsonValue encodeFields(const Record& record, const std::tuple<Fields...>& fields) {
    JsonObjectBuilder object;
    std::apply([&](const Fields&... each) { (each.write(object, record), ...); }, fields);
    return object.build();
}

// Fields read before a failure keep what they read; a caller that must not see a half-read record
// decodes into a copy.
template <typename Record, typename... Fields>
bool decodeFields(const JsonValue& json, Record& record, const std::tuple<Fields...>& fields) {
    JsonObjectReader object(json);
    std::apply([&](const Fields&... each) { (each.read(object, record), ...); }, fields);
    return object.ok();
}

}  // namespace kestrow
