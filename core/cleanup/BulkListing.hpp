// Reading the packed records a bulk folder listing (macOS getattrlistbulk) returns: one call
// answers for many entries at once what a status read per entry would cost a system call each.
// The bytes come from the kernel but are checked as if hostile: every length, offset and name is
// held to the buffer and to its entry before it is read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "EntryStatus.hpp"
#include "base/Status.hpp"

namespace brimlet {

// The attribute bits the reader knows how to step over, with the values macOS gives them (the
// Darwin lister checks them against the system's header). Attributes pack in the order of these
// bits within each group, groups in the order common, folder, file.
namespace bulk {
inline constexpr std::uint32_t commonName = 0x00000001;         // attrreference to the name
inline constexpr std::uint32_t commonDevice = 0x00000002;       // dev_t, as st_dev
inline constexpr std::uint32_t commonType = 0x00000008;         // fsobj_type_t
inline constexpr std::uint32_t commonOwner = 0x00008000;        // uid_t
inline constexpr std::uint32_t commonAccess = 0x00020000;       // permission bits
inline constexpr std::uint32_t commonFileId = 0x02000000;       // 64-bit, as st_ino
inline constexpr std::uint32_t commonError = 0x20000000;        // packed right after the returned set
inline constexpr std::uint32_t commonReturned = 0x80000000;     // attribute_set_t, always first
inline constexpr std::uint32_t folderMountStatus = 0x00000004;  // u_int32_t flags
inline constexpr std::uint32_t folderMountPoint = 0x00000001;   // flag: something is mounted here
inline constexpr std::uint32_t folderAllocated = 0x00000008;    // off_t
inline constexpr std::uint32_t fileAllocated = 0x00000004;      // off_t

// The object types of fsobj_type_t.
inline constexpr std::uint32_t regular = 1;
inline constexpr std::uint32_t folder = 2;
inline constexpr std::uint32_t block = 3;
inline constexpr std::uint32_t character = 4;
inline constexpr std::uint32_t link = 5;
inline constexpr std::uint32_t socket = 6;
inline constexpr std::uint32_t fifo = 7;
}  // namespace bulk

// The bitmaps asked for (and, per entry, the ones answered).
struct BulkLayout {
    std::uint32_t common = 0;
    std::uint32_t folder = 0;
    std::uint32_t file = 0;
};

// What the walker asks for: enough to build an EntryStatus without another call.
inline constexpr BulkLayout walkLayout{bulk::commonReturned | bulk::commonName | bulk::commonError |
                                           bulk::commonDevice | bulk::commonType | bulk::commonOwner |
                                           bulk::commonAccess | bulk::commonFileId,
                                       bulk::folderMountStatus | bulk::folderAllocated, bulk::fileAllocated};

struct BulkEntry {
    std::string name;
    // None when the entry's record lacks what a status needs, carries an error, or is a folder
    // something is mounted on (the listing may describe the folder beneath the mount): the caller
    // then reads that one entry by itself.
    std::optional<EntryStatus> status;
    int error = 0;
};

// A folder listed in bulk: its entries, and the error that broke the listing off part way (0 when
// it ran to the end).
struct BulkFolder {
    std::vector<BulkEntry> entries;
    int error = 0;
};

// Lists the open folder `folder` in bulk where the platform and its file system can; none when
// they cannot, and then nothing of the folder has been read yet.
std::optional<BulkFolder> listFolderInBulk(int folder);

// Decodes `count` entries from `buffer` as packed under `layout` (which must ask for the returned
// set and the name, and for no bit the reader cannot step over). A failure for any malformed entry.
kestrow::Result<std::vector<BulkEntry>> parseBulkEntries(std::span<const std::byte> buffer, std::size_t count,
                                                         const BulkLayout& layout);

}  // namespace brimlet
