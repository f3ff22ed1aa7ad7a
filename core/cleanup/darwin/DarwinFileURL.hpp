// File URLs for the file manager, built from the path's bytes as the file system stores them.
// Objective-C++ only. A path need not be valid UTF-8; going through NSString would lose such a path
// (stringWithUTF8String: answers nil), so the URL is made from the raw representation instead.
#pragma once

#import <Foundation/Foundation.h>

#include <sys/stat.h>

#include <string>

#include "base/darwin/StringBridge.hpp"

namespace brimlet {

// Nil when no URL can be formed (an empty path, or bytes the file manager refuses).
inline NSURL* fileURLForPath(const std::string& path) {
    if (path.empty() || path.find('\0') != std::string::npos) return nil;
    // The directory flag only decides whether the URL ends in "/"; a link is never a directory here,
    // so the operation applies to the link itself.
    struct stat info {};
    const BOOL isDirectory = ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) ? YES : NO;
    return [NSURL fileURLWithFileSystemRepresentation:path.c_str() isDirectory:isDirectory relativeToURL:nil];
}

// The error's localized description, or the fallback when there is none.
inline std::string describe(NSError* error, const char* fallback) {
    return kestrow::mac::utf8IfAny(error.localizedDescription).value_or(std::string(fallback));
}

}  // namespace brimlet
