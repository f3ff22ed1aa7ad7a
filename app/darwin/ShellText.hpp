// Text between the C++ core (UTF-8 std::string) and Foundation (NSString), for the start-up glue.
// Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>

#include <optional>
#include <string>
#include <string_view>

#include "base/darwin/StringBridge.hpp"

namespace brimlet::mac {

using kestrow::mac::toNSString;

inline std::optional<std::string> toStdString(NSString* text) {
    const char* utf8 = text.UTF8String;
    if (utf8 == nullptr) return std::nullopt;
    return std::string(utf8);
}

}  // namespace brimlet::mac
