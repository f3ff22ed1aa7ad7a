#import <Foundation/Foundation.h>

#include "../SuiteFolder.hpp"

#include "base/darwin/StringBridge.hpp"

namespace kestrow::suite {

// Only the lookup: Foundation names the container even when this application has no entitlement
// for the group, so whether it is used is decided by usableGroupFolder.
std::optional<std::string> applicationGroupContainer(const std::string& identifier) {
    @autoreleasepool {
        NSString* group = kestrow::mac::toNSStringOrNil(identifier);
        if (group == nil) return std::nullopt; // not UTF-8: no group has such a name
        NSURL* url = [[NSFileManager defaultManager] containerURLForSecurityApplicationGroupIdentifier:group];
        if (url == nil) return std::nullopt;
        const char* path = url.fileSystemRepresentation;
        if (path == nullptr) return std::nullopt;
        return std::string(path);
    }
}

SuiteFolder SuiteFolder::standard(const std::string& home) { return plain(home); }

} // namespace kestrow::suite
