// Text between the C++ core (UTF-8 std::string) and Foundation (NSString), for the start-up glue.
// Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>

#include <optional>
#include <string>
#include <string_view>

namespace brimlet::mac {

inline NSString* toNSString(std::string_view text) {
    NSString* string = [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
    return string != nil ? string : @"";  // bytes that are not UTF-8 read as nothing rather than nil
}

inline std::optional<std::string> toStdString(NSString* text) {
    const char* utf8 = text.UTF8String;
    if (utf8 == nullptr) return std::nullopt;
    return std::string(utf8);
}

}  // namespace brimlet::mac
