// Typed encoding and decoding of records to and from JsonValue. A record type provides
//   JsonValue toJson(const T&)   and   bool fromJson(const JsonValue&, T&)
// found by argument-dependent lookup; these helpers handle numbers, strings, arrays and optionals.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
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

}  // namespace kestrow
