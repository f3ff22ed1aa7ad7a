// Permanent removal through the file manager, so that a failure reads as the system's own localized
// description. The cleaner has already checked that the tree lies on one file system and may be
// removed as a whole; removeItemAtURL:error: removes a symbolic link itself, never its target.
#import <Foundation/Foundation.h>

#include "../Cleaner.hpp"
#include "DarwinFileURL.hpp"

namespace brimlet {

kestrow::Status LiveFileOperations::removePermanently(const std::string& path) {
    @autoreleasepool {
        NSURL* url = fileURLForPath(path);
        if (url == nil) return kestrow::Status::failure("cannot form a file URL for the path");
        NSError* error = nil;
        if ([[NSFileManager defaultManager] removeItemAtURL:url error:&error]) return kestrow::Status::success();
        return kestrow::Status::failure(describe(error, "cannot remove the item"));
    }
}

}  // namespace brimlet
