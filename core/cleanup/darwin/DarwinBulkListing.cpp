// Listing a folder with its entries' statuses through getattrlistbulk: one system call answers for
// a whole buffer of entries, where a status read per entry costs a call each. It reads from the
// descriptor the walk holds, and nothing in it follows a link: the listing describes each entry
// itself, links included.
#include <sys/attr.h>
#include <sys/vnode.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <span>
#include <vector>

#include "../BulkListing.hpp"

namespace brimlet {

static_assert(bulk::commonName == ATTR_CMN_NAME && bulk::commonDevice == ATTR_CMN_DEVID &&
              bulk::commonType == ATTR_CMN_OBJTYPE && bulk::commonOwner == ATTR_CMN_OWNERID &&
              bulk::commonAccess == ATTR_CMN_ACCESSMASK && bulk::commonFileId == ATTR_CMN_FILEID &&
              bulk::commonError == ATTR_CMN_ERROR && bulk::commonReturned == ATTR_CMN_RETURNED_ATTRS);
static_assert(bulk::folderMountStatus == ATTR_DIR_MOUNTSTATUS && bulk::folderMountPoint == DIR_MNTSTATUS_MNTPOINT &&
              bulk::folderAllocated == ATTR_DIR_ALLOCSIZE && bulk::fileAllocated == ATTR_FILE_ALLOCSIZE);
static_assert(bulk::regular == VREG && bulk::folder == VDIR && bulk::block == VBLK && bulk::character == VCHR &&
              bulk::link == VLNK && bulk::socket == VSOCK && bulk::fifo == VFIFO);
static_assert(sizeof(attribute_set_t) == 5 * sizeof(std::uint32_t) && sizeof(attrreference_t) == 8 &&
              sizeof(dev_t) == 4 && sizeof(uid_t) == 4 && sizeof(fsobj_type_t) == 4 && sizeof(off_t) == 8);

std::optional<BulkFolder> listFolderInBulk(int folder) {
    attrlist request{};
    request.bitmapcount = ATTR_BIT_MAP_COUNT;
    request.commonattr = walkLayout.common;
    request.dirattr = walkLayout.folder;
    request.fileattr = walkLayout.file;
    // 64 KiB holds several hundred entries; 8-byte words keep the buffer aligned for the kernel.
    std::vector<std::uint64_t> words(64 * 1024 / sizeof(std::uint64_t));
    const std::span<const std::byte> bytes(reinterpret_cast<const std::byte*>(words.data()),
                                           words.size() * sizeof(std::uint64_t));
    BulkFolder listed;
    bool first = true;
    for (;;) {
        const int count = ::getattrlistbulk(folder, &request, words.data(), bytes.size(), 0);
        if (count < 0) {
            // A file system without the call (or without these attributes) says so on the first
            // call, before anything of the folder was read: the walk lists it entry by entry.
            if (first && (errno == ENOTSUP || errno == EINVAL)) return std::nullopt;
            listed.error = errno;
            break;
        }
        if (count == 0) break;
        first = false;
        auto parsed = parseBulkEntries(bytes, static_cast<std::size_t>(count), walkLayout);
        if (parsed.failed()) {
            // Records this reader cannot trust: the rest of the folder is reported, not guessed.
            listed.error = EIO;
            break;
        }
        for (BulkEntry& entry : *parsed) listed.entries.push_back(std::move(entry));
    }
    return listed;
}

}  // namespace brimlet
