// The user's Trash through the file manager, which knows every volume's Trash.
#import <Foundation/Foundation.h>

#include "../Cleaner.hpp"
#include "DarwinFileURL.hpp"

namespace brimlet {

kestrow::Status LiveFileOperations::moveToTrash(const std::string& path) {
    @autoreleasepool {
        NSURL* url = fileURLForPath(path);
        if (url == nil) return kestrow::Status::failure("cannot form a file URL for the path");
        NSError* error = nil;
        if ([[NSFileManager defaultManager] trashItemAtURL:url resultingItemURL:nil error:&error])
            return kestrow::Status::success();
        return kestrow::Status::failure(describe(error, "cannot move to the Trash"));
    }
}

}  // namespace brimlet
