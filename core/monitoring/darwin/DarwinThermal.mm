// The system's thermal state through Foundation; the only Objective-C the monitor needs.
#import <Foundation/Foundation.h>

#include <cstdint>

namespace brimlet {

std::int64_t darwinThermalState() {
    @autoreleasepool {
        return static_cast<std::int64_t>([[NSProcessInfo processInfo] thermalState]);
    }
}

} // namespace brimlet
