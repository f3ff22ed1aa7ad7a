// Text between the C++ core (UTF-8 std::string) and Foundation (NSString): the one conversion every
// darwin file uses. Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>

#include <optional>
#include <string>
#include <string_view>

namespace kestrow::mac {

// Nil for bytes that are not UTF-8: for names that must not fall back to another one (a defaults
// key, an application group, a notification name).
inline NSString* toNSStringOrNil(std::string_view text) {
    return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
}

// Bytes that are not UTF-8 read as the empty string rather than nil, which views cannot show.
inline NSString* toNSString(std::string_view text) {
    NSString* string = toNSStringOrNil(text);
    return string != nil ? string : @"";
}

// Nothing for nil (or a string Foundation cannot give as UTF-8).
inline std::optional<std::string> utf8IfAny(NSString* text) {
    const char* bytes = text.UTF8String;
    if (bytes == nullptr) return std::nullopt;
    return std::string(bytes);
}

// The empty string for nil.
inline std::string utf8(NSString* text) { return utf8IfAny(text).value_or(std::string()); }

}  // namespace kestrow::mac
