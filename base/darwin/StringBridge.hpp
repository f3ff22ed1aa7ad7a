// Text between the C++ core (UTF-8 std::string) and Foundation (NSString). Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>

#include <string>
#include <string_view>

namespace kestrow::mac {

// Bytes that are not UTF-8 read as the empty string rather than nil, which views cannot show.
inline NSString* toNSString(std::string_view text) {
    NSString* string = [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
    return string != nil ? string : @"";
}

// The empty string for nil.
inline std::string utf8(NSString* text) {
    const char* bytes = text.UTF8String;
    return bytes != nullptr ? std::string(bytes) : std::string();
}

}  // namespace kestrow::mac
