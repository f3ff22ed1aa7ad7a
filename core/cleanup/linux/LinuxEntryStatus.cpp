// Entry status through statx, the one call that also tells whether an entry is a mount's root.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "../BulkListing.hpp"
#include "../EntryStatus.hpp"

namespace brimlet {

std::optional<EntryStatus> readEntryStatus(int folder, const char* name) {
    struct statx sx {};
    // AT_NO_AUTOMOUNT: looking at an automount point must not mount it.
    if (::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                STATX_TYPE | STATX_MODE | STATX_INO | STATX_UID | STATX_BLOCKS, &sx) != 0)
        return std::nullopt;
    EntryStatus status;
    status.mode = sx.stx_mode;
    status.allocatedBytes = static_cast<std::uint64_t>(sx.stx_blocks) * 512;
    status.device = makedev(sx.stx_dev_major, sx.stx_dev_minor);
    status.inode = sx.stx_ino;
    status.owner = sx.stx_uid;
    status.mountRoot = (sx.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) && (sx.stx_attributes & STATX_ATTR_MOUNT_ROOT);
    return status;
}

// Linux has no listing that carries statuses (and only statx reports bind mounts): entries are
// read one by one.
std::optional<BulkFolder> listFolderInBulk(int) { return std::nullopt; }

}  // namespace brimlet
