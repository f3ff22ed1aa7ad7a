// Acting on exactly what was checked. The safety policy judges a path; between its answer and the
// removal another process may swap a folder on that path for a link or mount something over it.
// So an item is resolved once, component by component, never following a link, and from then on
// reached only through the descriptor of the folder that holds it: every later step (measuring,
// the look before a removal, the removal, the move to the Trash) acts through that descriptor and
// compares device and inode with what was judged and measured.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "EntryStatus.hpp"

namespace brimlet {

// Which file an entry is, whatever it is called: two names with one identity are one file.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    static FileIdentity of(const EntryStatus& status) { return {status.device, status.inode}; }
    bool operator==(const FileIdentity&) const = default;
};

// An open descriptor, closed when it goes.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    void reset() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

// An item held by the folder that contains it.
struct PinnedItem {
    Descriptor parent;   // the containing folder, opened without following a link anywhere
    std::string name;    // the item's name in that folder
    std::string path;    // where it was found; for texts and the Trash's record only
    EntryStatus status;  // read through `parent` when it was pinned
    FileIdentity identity() const { return FileIdentity::of(status); }
    std::string parentPath() const;
};

// How a folder is opened without following links: the kernel's one-call resolution where it has
// one, or one component at a time (the fallback, also what tests force to cover it).
enum class Resolution { fastest, perComponent };

namespace Pinning {
// The reasons a pinned action gives up; nothing was touched when either is given.
inline constexpr const char* changedSinceMeasured = "Changed since it was measured \u2014 nothing was removed";
inline constexpr const char* linkOnPath =
    "A folder on its path is a symbolic link; links are never followed for deletion";

// Pins an absolute path made only of real names (no ".", no "..", no link anywhere); none, with
// the system's error in `error`, when it cannot.
std::optional<PinnedItem> pin(const std::string& path, int& error, Resolution how = Resolution::fastest,
                              const EntryReader& reader = readEntryStatus);

// Whether the item still sits under its name in its pinned folder as the same file.
bool unchanged(const PinnedItem& item, const EntryReader& reader = readEntryStatus);

// The components of an absolute path; none when it has "." or ".." or is not absolute.
std::optional<std::vector<std::string_view>> components(std::string_view path);

// Where an item given under the home folder as spelled (`home`) lies when nothing on the way
// is a link: the same path under the home folder's real path.
std::string expectedRealPath(const std::string& itemPath, const std::string& home, const std::string& realHome);
}  // namespace Pinning

// The platform's part. Opens the folder at an absolute path without following a link at any
// component, for use as the folder of *at calls: -1 with errno when it cannot.
int openFolderNoLinks(const std::string& absolutePath, Resolution how);
// The portable way to the same: from "/", one `openat` with O_NOFOLLOW per component, each folder
// opened with `folderFlags`; -1 with errno set when a component is missing or is a link.
int openFolderPerComponent(const std::vector<std::string_view>& parts, int folderFlags);
// The mount points the system lists now, as paths.
std::vector<std::string> currentMountPoints();

}  // namespace brimlet
