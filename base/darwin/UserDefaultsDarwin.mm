// NSUserDefaults behind the defaults interface. Property-list values convert to JSON values and
// back; dates and data, which JSON cannot carry, read as absent.
#include "../UserDefaults.hpp"

#include <sys/stat.h>

#import <Foundation/Foundation.h>

#include "StringBridge.hpp"

namespace kestrow {

namespace {

using kestrow::mac::utf8;

std::optional<JsonValue> fromPropertyList(id object) {
    if (object == nil) return std::nullopt;
    if ([object isKindOfClass:[NSString class]]) return JsonValue(utf8((NSString*)object));
    if ([object isKindOfClass:[NSNumber class]]) {
        NSNumber* number = object;
        if (CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID())
            return JsonValue(static_cast<bool>(number.boolValue));
        if (CFNumberIsFloatType((__bridge CFNumberRef)number)) return JsonValue(number.doubleValue);
        return JsonValue(static_cast<std::int64_t>(number.longLongValue));
    }
    if ([object isKindOfClass:[NSArray class]]) {
        JsonArray array;
        for (id element in (NSArray*)object)
            if (auto converted = fromPropertyList(element)) array.push_back(std::move(*converted));
        return JsonValue(std::move(array));
    }
    if ([object isKindOfClass:[NSDictionary class]]) {
        JsonObject dictionary;
        for (id key in (NSDictionary*)object) {
            if (![key isKindOfClass:[NSString class]]) continue;
            if (auto converted = fromPropertyList(((NSDictionary*)object)[key]))
                dictionary[utf8((NSString*)key)] = std::move(*converted);
        }
        return JsonValue(std::move(dictionary));
    }
    return std::nullopt;
}

id toPropertyList(const JsonValue& value) {
    if (value.isNull()) return nil; // property lists have no null: the key is removed instead
    if (const bool* b = value.asBool()) return @(*b);
    if (const JsonNumber* n = value.asNumber()) {
        switch (n->kind) {
        case JsonNumber::Kind::signedInteger:
            return @(n->i);
        case JsonNumber::Kind::unsignedInteger:
            return @(n->u);
        case JsonNumber::Kind::real:
            return @(n->d);
        }
    }
    if (const std::string* s = value.asString()) return mac::toNSStringOrNil(*s);
    if (const JsonArray* a = value.asArray()) {
        NSMutableArray* array = [NSMutableArray arrayWithCapacity:a->size()];
        for (const JsonValue& element : *a)
            if (id converted = toPropertyList(element)) [array addObject:converted];
        return array;
    }
    if (const JsonObject* o = value.asObject()) {
        NSMutableDictionary* dictionary = [NSMutableDictionary dictionaryWithCapacity:o->size()];
        for (const auto& [key, element] : *o)
            if (id converted = toPropertyList(element)) dictionary[mac::toNSStringOrNil(key)] = converted;
        return dictionary;
    }
    return nil;
}

class SystemUserDefaults final : public UserDefaults {
public:
    explicit SystemUserDefaults(NSUserDefaults* defaults) : defaults_(defaults) {}

    std::optional<JsonValue> value(const std::string& key) const override {
        return fromPropertyList([defaults_ objectForKey:mac::toNSStringOrNil(key)]);
    }
    Status set(const std::string& key, const JsonValue& value) override {
        id object = toPropertyList(value);
        if (object == nil) [defaults_ removeObjectForKey:mac::toNSStringOrNil(key)];
        else [defaults_ setObject:object forKey:mac::toNSStringOrNil(key)];
        return Status::success();
    }
    Status remove(const std::string& key) override {
        [defaults_ removeObjectForKey:mac::toNSStringOrNil(key)];
        return Status::success();
    }

private:
    NSUserDefaults* defaults_;
};

} // namespace

std::unique_ptr<UserDefaults> UserDefaults::standard(const std::string&) {
    return std::make_unique<SystemUserDefaults>([NSUserDefaults standardUserDefaults]);
}

std::unique_ptr<UserDefaults> UserDefaults::named(const std::string& domain) {
    if (!isUsableDomain(domain)) return nullptr;
    // Nil for the application's own identifier and the global domain: those are not separate.
    NSUserDefaults* suite = [[NSUserDefaults alloc] initWithSuiteName:mac::toNSStringOrNil(domain)];
    if (suite == nil) return nullptr;
    return std::make_unique<SystemUserDefaults>(suite);
}

std::optional<FileUserDefaults::Stamp> FileUserDefaults::stampOf(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
    return Stamp{static_cast<unsigned long long>(st.st_dev),
                 st.st_ino,
                 st.st_size,
                 st.st_mtimespec.tv_sec,
                 st.st_mtimespec.tv_nsec,
                 st.st_ctimespec.tv_sec,
                 st.st_ctimespec.tv_nsec};
}

} // namespace kestrow
