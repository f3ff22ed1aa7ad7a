// What the tree walks of cleanup (measuring, the removal check, removal) learn about one entry,
// read without following a link, and the rule that keeps every walk on one file system.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>

namespace brimlet {

struct EntryStatus {
    mode_t mode = 0;
    std::uint64_t allocatedBytes = 0;  // blocks the entry occupies
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    uid_t owner = 0;
    // The root of a mount. Mounts of another file system also show as another device, but a bind
    // mount of a folder of the same file system shows only here.
    bool mountRoot = false;

    bool isDirectory() const { return S_ISDIR(mode); }
    bool isLink() const { return S_ISLNK(mode); }
};

// Reads an entry relative to an open folder (or AT_FDCWD with a full path); none when it cannot.
using EntryReader = std::function<std::optional<EntryStatus>(int folder, const char* name)>;

// The platform's reader: statx on Linux (it alone reports bind mounts), fstatat elsewhere.
std::optional<EntryStatus> readEntryStatus(int folder, const char* name);

// An entry lies beyond the item's file system, like the mounts `du -x` and `rm --one-file-system`
// stay out of, when it sits on another device or is itself the root of a mount.
inline bool crossesFileSystem(const EntryStatus& entry, std::uint64_t itemDevice) {
    return entry.device != itemDevice || entry.mountRoot;
}

}  // namespace brimlet
