// The user's Trash through the file manager, which knows every volume's Trash.
#import <Foundation/Foundation.h>

#include "../Cleaner.hpp"

namespace brimlet {

kestrow::Status LiveFileOperations::moveToTrash(const std::string& path) {
    @autoreleasepool {
        NSURL* url = [NSURL fileURLWithPath:[NSString stringWithUTF8String:path.c_str()]];
        NSError* error = nil;
        if ([[NSFileManager defaultManager] trashItemAtURL:url resultingItemURL:nil error:&error]) return kestrow::Status::success();
        return kestrow::Status::failure(std::string(error.localizedDescription.UTF8String ?: "cannot move to the Trash"));
    }
}

}  // namespace brimlet
