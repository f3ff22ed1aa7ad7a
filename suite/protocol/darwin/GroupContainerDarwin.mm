#import <Foundation/Foundation.h>

#include "../SuiteFolder.hpp"

namespace kestrow::suite {

std::optional<std::string> applicationGroupContainer(const std::string& identifier) {
    @autoreleasepool {
        NSString* group = [NSString stringWithUTF8String:identifier.c_str()];
        NSURL* url = [[NSFileManager defaultManager] containerURLForSecurityApplicationGroupIdentifier:group];
        if (url == nil || url.path == nil) return std::nullopt;
        return std::string(url.path.UTF8String);
    }
}

}  // namespace kestrow::suite
