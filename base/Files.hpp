// File access for files other processes share with us: a protected read that refuses links,
// special files and other users' files and never reads more than asked; an atomic replace; and a
// canonical form for paths that may not exist yet.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Status.hpp"

namespace kestrow {

// Opens without following a final link, non-blocking (a FIFO cannot stall us), close-on-exec; then
// requires a regular file owned by our real user, and reads at most `limit` bytes. The bytes, or
// `Cause::notFound` when nothing is there (a missing file, or a missing folder on its path), or
// `Cause::permissionDenied` with the reason when something is there but refused or unreadable: a
// link, a special or foreign file, or any other error, which someone must see rather than take for
// an absent file.
[[nodiscard]] Result<std::string> safeRead(const std::string& path, std::size_t limit);
// The same for the entry `name` of a folder held open as `folderFd`: the entry is looked up in that
// folder, whatever its path names by now, and a link in its place is refused.
[[nodiscard]] Result<std::string> safeReadAt(int folderFd, const std::string& name, std::size_t limit);

// How far a write goes before the rename. `flushed` waits until the bytes are on the disk, so even
// a power cut leaves the old or the new file; `transient` skips that wait, for files rewritten
// every few seconds whose loss in a crash costs nothing (the next write mends them).
enum class Durability { flushed, transient };

// Writes to a temporary file beside the target, flushes it, then renames it over the target, so a
// reader sees the old or the new bytes and never a mix. The temporary file is named "." + the
// target's name + "." + six letters or digits; a writer killed in between leaves it behind.
Status writeAtomically(const std::string& path, std::string_view bytes, unsigned mode = 0600,
                       Durability durability = Durability::flushed);

// The same inside a folder held open as `folderFd`: the temporary file is made, and renamed over
// `name`, in that folder only, so a folder swapped for a link since it was opened and checked never
// receives the bytes.
Status writeAtomicallyAt(int folderFd, const std::string& name, std::string_view bytes, unsigned mode = 0600,
                         Durability durability = Durability::flushed);

// Swaps two entries of a folder held open as `folderFd` in one step, so that each name then holds
// what the other held. Returns 0, or the errno: ENOENT when either is missing, and EINVAL, ENOSYS or
// ENOTSUP where the file system or the platform cannot swap.
[[nodiscard]] int exchangeAt(int folderFd, const char* first, const char* second);

// A small file that is replaced every few seconds for as long as the program runs, inside a folder
// held open as `folderFd`, with the same guarantee as writeAtomicallyAt: whoever opens the name gets
// the old or the new bytes, never a mix. Instead of a new file each time it keeps a spare, named as
// writeAtomically's temporary file, fills it and swaps it with the visible one, which then becomes the
// next spare. That spares the file system an inode made and freed per write and, on ext4, the flush
// it starts when a fresh file is renamed over an old one.
// Only a file this wrote is ever swapped and written again: anything else found under the name (a
// folder, a link, a file left by an earlier run or linked elsewhere) is replaced the way
// writeAtomicallyAt replaces it, and so is everything where swapping is not possible. The spare is
// removed when this is destroyed. A reader that keeps the file open across the next write may see
// that write's bytes.
class SwappedFile {
public:
    SwappedFile(int folderFd, std::string name, unsigned mode = 0600);
    SwappedFile(const SwappedFile&) = delete;
    SwappedFile& operator=(const SwappedFile&) = delete;
    ~SwappedFile();

    const std::string& name() const { return name_; }
    Status write(std::string_view bytes);

private:
    Status writeThroughSpare(std::string_view bytes);
    // Whether the spare's name still holds the spare; its size, when so and size is given.
    bool spareStillNamed(off_t* size = nullptr) const;
    bool visibleStillNamed() const;
    void dropSpare(bool unlinkName);

    // A descriptor's file stays the same file: its identity is taken once, not on every write.
    struct Identity {
        dev_t device = 0;
        ino_t inode = 0;
    };

    int folderFd_;
    std::string name_;
    unsigned mode_;
    bool canSwap_ = true;
    std::string spareName_;
    int spare_ = -1;    // the spare's descriptor, open for writing
    int visible_ = -1;  // the visible file's, when this wrote it
    Identity visibleIdentity_;
    Identity spareIdentity_;
};

// Whether a file name is that of writeAtomically's temporary file for a target named `target`.
[[nodiscard]] bool isAtomicWriteTemporary(std::string_view fileName, std::string_view target);

// Removes from `folder` what writers that were killed left behind: regular files owned by this user,
// named as writeAtomically's temporary files for one of `targets`, last changed more than `olderThan`
// ago (no write takes that long, so no writer still uses them). Links, folders, other names and other
// users' files stay. Gives how many files were removed.
std::size_t removeStaleAtomicWriteTemporaries(const std::string& folder, const std::vector<std::string>& targets,
                                              std::chrono::seconds olderThan);
// The same in a folder held open as `folderFd`.
std::size_t removeStaleAtomicWriteTemporariesAt(int folderFd, const std::vector<std::string>& targets,
                                                std::chrono::seconds olderThan);

// "/a/./b//c/../d/" → "/a/b/d": lexical only, no file system access.
[[nodiscard]] std::string standardizePath(std::string_view path);

// The real path of the deepest existing ancestor, with the missing components appended ("." and
// empty ones dropped, ".." removing one). None when the existing part cannot be resolved.
[[nodiscard]] std::optional<std::string> canonicalizePath(const std::string& path);

// The home folder from the user database entry of the real user id, else $HOME.
[[nodiscard]] std::string realHomeFolder();

}  // namespace kestrow
