#include "BulkListing.hpp"

#include <sys/stat.h>

#include <cstring>
#include <string_view>

namespace brimlet {

namespace {

using kestrow::Cause;
using kestrow::Status;

constexpr std::uint32_t knownCommon = bulk::commonReturned | bulk::commonError | bulk::commonName | bulk::commonDevice |
                                      bulk::commonType | bulk::commonOwner | bulk::commonAccess | bulk::commonFileId;
constexpr std::size_t setBytes = 5 * sizeof(std::uint32_t);  // attribute_set_t: five groups

Status malformed(std::size_t index, const char* what) {
    return Status::failure(Cause::dataLoss, "bulk listing entry " + std::to_string(index) + ": " + what);
}

// Reads within one entry's bytes only; every read says whether it fitted.
class Cursor {
public:
    Cursor(const std::byte* begin, std::size_t size) : begin_(begin), size_(size) {}

    template <typename T>
    bool read(T& out) {
        if (size_ - at_ < sizeof(T)) return false;
        std::memcpy(&out, begin_ + at_, sizeof(T));  // fields are only 4-byte aligned
        at_ += sizeof(T);
        return true;
    }
    std::size_t at() const { return at_; }
    const std::byte* begin() const { return begin_; }
    std::size_t size() const { return size_; }

private:
    const std::byte* begin_;
    std::size_t size_;
    std::size_t at_ = 0;
};

mode_t typeBits(std::uint32_t type) {
    switch (type) {
    case bulk::regular: return S_IFREG;
    case bulk::folder: return S_IFDIR;
    case bulk::link: return S_IFLNK;
    case bulk::block: return S_IFBLK;
    case bulk::character: return S_IFCHR;
    case bulk::socket: return S_IFSOCK;
    case bulk::fifo: return S_IFIFO;
    default: return 0;
    }
}

// The name an attrreference at `refAt` points to: inside the entry, NUL-terminated, one component.
bool readName(const Cursor& entry, std::size_t refAt, std::int32_t offset, std::uint32_t length, std::string& name) {
    if (length < 2) return false;  // at least one byte and the NUL
    const auto start = static_cast<std::int64_t>(refAt) + offset;
    if (start < 0 || static_cast<std::uint64_t>(start) > entry.size() ||
        entry.size() - static_cast<std::size_t>(start) < length)
        return false;
    const auto* text = reinterpret_cast<const char*>(entry.begin() + start);
    if (text[length - 1] != '\0') return false;
    const std::string_view view(text, length - 1);
    if (view.find('\0') != std::string_view::npos || view.find('/') != std::string_view::npos) return false;
    if (view == "." || view == "..") return false;
    name.assign(view);
    return true;
}

}  // namespace

kestrow::Result<std::vector<BulkEntry>> parseBulkEntries(std::span<const std::byte> buffer, std::size_t count,
                                                         const BulkLayout& layout) {
    if (!(layout.common & bulk::commonReturned) || !(layout.common & bulk::commonName) ||
        (layout.common & ~knownCommon) != 0 ||
        (layout.folder & ~(bulk::folderMountStatus | bulk::folderAllocated)) != 0 ||
        (layout.file & ~bulk::fileAllocated) != 0)
        return Status::failure(Cause::invalidArgument, "bulk listing layout asks for attributes it cannot read");
    // Every entry takes at least its length and the returned set.
    if (count > buffer.size() / (sizeof(std::uint32_t) + setBytes))
        return Status::failure(Cause::dataLoss, "bulk listing counts more entries than its buffer holds");

    std::vector<BulkEntry> entries;
    entries.reserve(count);
    std::size_t at = 0;
    for (std::size_t index = 0; index < count; ++index) {
        std::uint32_t length = 0;
        if (buffer.size() - at < sizeof(length)) return malformed(index, "past the end of the buffer");
        std::memcpy(&length, buffer.data() + at, sizeof(length));
        if (length < sizeof(length) + setBytes) return malformed(index, "too short");
        if (length > buffer.size() - at) return malformed(index, "runs past the end of the buffer");
        Cursor entry(buffer.data() + at, length);
        at += length;
        std::uint32_t skipLength = 0;
        std::uint32_t returned[5] = {};
        if (!entry.read(skipLength)) return malformed(index, "too short");
        for (std::uint32_t& group : returned)
            if (!entry.read(group)) return malformed(index, "too short");
        const BulkLayout answered{returned[0], returned[2], returned[3]};
        // Only what was asked can come back: anything else has a size this reader cannot know.
        if ((answered.common & ~layout.common) != 0 || (answered.folder & ~layout.folder) != 0 ||
            (answered.file & ~layout.file) != 0 || returned[1] != 0 || returned[4] != 0)
            return malformed(index, "answers attributes that were not asked for");
        if (!(answered.common & bulk::commonName)) return malformed(index, "has no name");

        BulkEntry out;
        std::uint32_t error = 0, type = 0, owner = 0, access = 0;
        std::int32_t device = 0;  // dev_t, widened as the per-entry read widens st_dev
        std::uint64_t fileId = 0;
        std::int64_t allocated = 0;
        bool haveAllocated = false;
        const auto has = [&](std::uint32_t bit) { return (answered.common & bit) != 0; };
        bool fits = true;
        if (has(bulk::commonError)) fits = fits && entry.read(error);
        const std::size_t refAt = entry.at();
        std::int32_t nameOffset = 0;
        std::uint32_t nameLength = 0;
        fits = fits && entry.read(nameOffset) && entry.read(nameLength);
        if (fits && !readName(entry, refAt, nameOffset, nameLength, out.name))
            return malformed(index, "has a name outside the entry, empty, unterminated or not one component");
        if (has(bulk::commonDevice)) fits = fits && entry.read(device);
        if (has(bulk::commonType)) fits = fits && entry.read(type);
        if (has(bulk::commonOwner)) fits = fits && entry.read(owner);
        if (has(bulk::commonAccess)) fits = fits && entry.read(access);
        if (has(bulk::commonFileId)) fits = fits && entry.read(fileId);
        std::uint32_t mountStatus = 0;
        const bool haveMountStatus = (answered.folder & bulk::folderMountStatus) != 0;
        if (haveMountStatus) fits = fits && entry.read(mountStatus);
        if (answered.folder & bulk::folderAllocated) {
            fits = fits && entry.read(allocated);
            haveAllocated = true;
        }
        if (answered.file & bulk::fileAllocated) {
            fits = fits && entry.read(allocated);
            haveAllocated = true;
        }
        if (!fits) return malformed(index, "its attributes run past its length");

        out.error = static_cast<int>(error);
        const mode_t kind = typeBits(type);
        const std::uint32_t needed =
            bulk::commonDevice | bulk::commonType | bulk::commonOwner | bulk::commonAccess | bulk::commonFileId;
        const bool plainFolder = kind != S_IFDIR || (haveMountStatus && !(mountStatus & bulk::folderMountPoint));
        if (error == 0 && (answered.common & needed) == needed && kind != 0 && haveAllocated && allocated >= 0 &&
            plainFolder) {
            EntryStatus status;
            status.mode = static_cast<mode_t>(kind | (access & 07777));
            status.allocatedBytes = static_cast<std::uint64_t>(allocated);
            status.device = static_cast<std::uint64_t>(device);
            status.inode = fileId;
            status.owner = static_cast<uid_t>(owner);
            out.status = status;
        }
        entries.push_back(std::move(out));
    }
    return entries;
}

}  // namespace brimlet
