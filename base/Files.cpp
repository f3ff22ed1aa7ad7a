#include "Files.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

namespace kestrow {

namespace {

Status refused(std::string reason) { return Status::failure(Cause::permissionDenied, std::move(reason)); }

Result<std::string> safeReadOpened(int fd, std::size_t limit) {
    if (fd < 0) {
        const int error = errno;
        // Only a missing entry is missing: a plain file where a folder should be (ENOTDIR) is a fault
        // someone must see, not an empty folder.
        if (error == ENOENT) return Status::failure(Cause::notFound, "missing");
        return refused("unreadable (errno " + std::to_string(error) + ")");
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        ::close(fd);
        return refused("unreadable");
    }
    if (!S_ISREG(st.st_mode)) {
        ::close(fd);
        return refused("not a regular file");
    }
    if (st.st_uid != ::getuid()) {
        ::close(fd);
        return refused("not owned by this user");
    }
    std::string bytes;
    char buffer[4096];
    while (bytes.size() < limit) {
        const std::size_t want = std::min(sizeof buffer, limit - bytes.size());
        const ssize_t n = ::read(fd, buffer, want);
        if (n < 0) {
            if (errno == EINTR) continue;
            ::close(fd);
            return refused("unreadable");
        }
        if (n == 0) break;
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return bytes;
}

constexpr int safeReadFlags = O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC;

}  // namespace

Result<std::string> safeRead(const std::string& path, std::size_t limit) {
    return safeReadOpened(::open(path.c_str(), safeReadFlags), limit);
}

Result<std::string> safeReadAt(int folderFd, const std::string& name, std::size_t limit) {
    return safeReadOpened(::openat(folderFd, name.c_str(), safeReadFlags), limit);
}

namespace {
// mkstemp replaces six X with letters and digits.
constexpr std::string_view temporarySuffix = ".XXXXXX";
}  // namespace

Status writeAtomically(const std::string& path, std::string_view bytes, unsigned mode, Durability durability) {
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string temporary = folder + "/." + name + std::string(temporarySuffix);
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) return Status::failure("cannot create a temporary file (errno " + std::to_string(errno) + ")");
    auto fail = [&](const char* what) {
        const int error = errno;
        ::close(fd);
        ::unlink(temporary.c_str());
        return Status::failure(std::string(what) + " (errno " + std::to_string(error) + ")");
    };
    if (::fchmod(fd, static_cast<mode_t>(mode)) != 0) return fail("cannot set permissions");
    for (std::string_view rest = bytes; !rest.empty();) {
        const ssize_t n = ::write(fd, rest.data(), rest.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            return fail("cannot write");
        }
        rest.remove_prefix(static_cast<std::size_t>(n));
    }
    if (durability == Durability::flushed && ::fsync(fd) != 0) return fail("cannot flush");
    if (::close(fd) != 0) {
        ::unlink(temporary.c_str());
        return Status::failure("cannot close (errno " + std::to_string(errno) + ")");
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        return Status::failure("cannot replace (errno " + std::to_string(error) + ")");
    }
    return Status::success();
}

namespace {

// A new file for writing beside `name`, named "." + name + "." + six letters or digits (the same
// names as mkstemp's, which has no folder-relative form; a clash just draws again), mode 0600.
int createTemporaryAt(int folderFd, const std::string& name, std::string& temporary) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    thread_local std::mt19937_64 random{std::random_device{}()};
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        temporary = "." + name + ".";
        std::uint64_t bits = random();
        for (int i = 0; i < 6; ++i, bits /= 62) temporary += alphabet[bits % 62];
        fd = ::openat(folderFd, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno != EEXIST) break;
    }
    return fd;
}

bool writeAllAt(int fd, std::string_view bytes, off_t offset) {
    for (std::string_view rest = bytes; !rest.empty();) {
        const ssize_t n = ::pwrite(fd, rest.data(), rest.size(), offset);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        rest.remove_prefix(static_cast<std::size_t>(n));
        offset += n;
    }
    return true;
}

Status errnoFailure(const char* what, int error) {
    return Status::failure(std::string(what) + " (errno " + std::to_string(error) + ")");
}

}  // namespace

Status writeAtomicallyAt(int folderFd, const std::string& name, std::string_view bytes, unsigned mode,
                         Durability durability) {
    std::string temporary;
    const int fd = createTemporaryAt(folderFd, name, temporary);
    if (fd < 0) return errnoFailure("cannot create a temporary file", errno);
    auto fail = [&](const char* what) {
        const int error = errno;
        ::close(fd);
        ::unlinkat(folderFd, temporary.c_str(), 0);
        return errnoFailure(what, error);
    };
    if (::fchmod(fd, static_cast<mode_t>(mode)) != 0) return fail("cannot set permissions");
    if (!writeAllAt(fd, bytes, 0)) return fail("cannot write");
    if (durability == Durability::flushed && ::fsync(fd) != 0) return fail("cannot flush");
    if (::close(fd) != 0) {
        const int error = errno;
        ::unlinkat(folderFd, temporary.c_str(), 0);
        return Status::failure("cannot close (errno " + std::to_string(error) + ")");
    }
    if (::renameat(folderFd, temporary.c_str(), folderFd, name.c_str()) != 0) {
        const int error = errno;
        ::unlinkat(folderFd, temporary.c_str(), 0);
        return Status::failure("cannot replace (errno " + std::to_string(error) + ")");
    }
    return Status::success();
}

SwappedFile::SwappedFile(int folderFd, std::string name, unsigned mode)
    : folderFd_(folderFd),
      name_(std::move(name)),
      mode_(mode) {}

SwappedFile::~SwappedFile() {
    dropSpare(true);
    if (visible_ >= 0) ::close(visible_);
}

void SwappedFile::dropSpare(bool unlinkName) {
    if (spare_ < 0) return;
    // Only the file this holds goes: an entry someone put in its place stays.
    if (unlinkName && spareStillNamed()) ::unlinkat(folderFd_, spareName_.c_str(), 0);
    ::close(spare_);
    spare_ = -1;
}

bool SwappedFile::spareStillNamed(off_t* size) const {
    // The name's status is the file's own when it is the spare, size included: no look at the
    // descriptor is needed.
    struct stat named {};
    const bool same = spare_ >= 0 && ::fstatat(folderFd_, spareName_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
                      named.st_dev == spareIdentity_.device && named.st_ino == spareIdentity_.inode;
    if (same && size) *size = named.st_size;
    return same;
}

bool SwappedFile::visibleStillNamed() const {
    struct stat named {};
    return visible_ >= 0 && ::fstatat(folderFd_, name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           named.st_dev == visibleIdentity_.device && named.st_ino == visibleIdentity_.inode;
}

Status SwappedFile::write(std::string_view bytes) {
    if (!canSwap_) return writeAtomicallyAt(folderFd_, name_, bytes, mode_, Durability::transient);
    Status written = writeThroughSpare(bytes);
    if (written.ok() || canSwap_) return written;
    // The file system refused the swap: this write, and every later one, makes a new file.
    return writeAtomicallyAt(folderFd_, name_, bytes, mode_, Durability::transient);
}

Status SwappedFile::writeThroughSpare(std::string_view bytes) {
    // A spare that was removed or replaced behind our back is let go, not written through its name.
    off_t spareSize = 0;
    if (spare_ >= 0 && !spareStillNamed(&spareSize)) dropSpare(false);
    if (spare_ < 0) {
        spareSize = 0;
        spare_ = createTemporaryAt(folderFd_, name_, spareName_);
        if (spare_ < 0) return errnoFailure("cannot create a temporary file", errno);
        struct stat held {};
        if (::fchmod(spare_, static_cast<mode_t>(mode_)) != 0 || ::fstat(spare_, &held) != 0) {
            const int error = errno;
            dropSpare(true);
            return errnoFailure("cannot set permissions", error);
        }
        spareIdentity_ = {held.st_dev, held.st_ino};
    }
    // Written over in place and cut only where the old record was longer: emptying the file first
    // would have the file system give its block back and take one again on every write.
    const auto length = static_cast<off_t>(bytes.size());
    if (!writeAllAt(spare_, bytes, 0) || (spareSize > length && ::ftruncate(spare_, length) != 0)) {
        const int error = errno;
        dropSpare(true);
        return errnoFailure("cannot write", error);
    }
    // Swapped only with the file this put there: whatever else took the name (a folder, a link, a
    // file of someone else's) is replaced the plain way, which refuses a folder as it always did.
    if (visibleStillNamed()) {
        const int swapped = exchangeAt(folderFd_, spareName_.c_str(), name_.c_str());
        if (swapped == 0) {
            std::swap(spare_, visible_);  // the spare's name now holds what was visible
            std::swap(spareIdentity_, visibleIdentity_);
            return Status::success();
        }
        if (swapped != ENOENT) canSwap_ = false;
    }
    if (::renameat(folderFd_, spareName_.c_str(), folderFd_, name_.c_str()) != 0) {
        const int error = errno;
        dropSpare(true);
        return errnoFailure("cannot replace", error);
    }
    if (visible_ >= 0) ::close(visible_);
    visible_ = std::exchange(spare_, -1);
    visibleIdentity_ = spareIdentity_;
    if (!canSwap_) {
        ::close(visible_);
        visible_ = -1;
    }
    return Status::success();
}

bool isAtomicWriteTemporary(std::string_view fileName, std::string_view target) {
    const std::size_t randomLength = temporarySuffix.size() - 1;
    if (target.empty() || fileName.size() != 1 + target.size() + 1 + randomLength) return false;
    if (fileName.front() != '.' || fileName.substr(1, target.size()) != target || fileName[1 + target.size()] != '.')
        return false;
    for (const char c : fileName.substr(fileName.size() - randomLength)) {
        const bool alphanumeric = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (!alphanumeric) return false;
    }
    return true;
}

std::size_t removeStaleAtomicWriteTemporaries(const std::string& folder, const std::vector<std::string>& targets,
                                              std::chrono::seconds olderThan) {
    const int folderFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folderFd < 0) return 0;
    const std::size_t removed = removeStaleAtomicWriteTemporariesAt(folderFd, targets, olderThan);
    ::close(folderFd);
    return removed;
}

std::size_t removeStaleAtomicWriteTemporariesAt(int heldFd, const std::vector<std::string>& targets,
                                                std::chrono::seconds olderThan) {
    // A listing of its own: the held descriptor's position stays where it was.
    const int folderFd = ::openat(heldFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folderFd < 0) return 0;
    DIR* listing = ::fdopendir(folderFd);
    if (!listing) {
        ::close(folderFd);
        return 0;
    }
    const auto now = std::chrono::system_clock::now();
    std::size_t removed = 0;
    while (const dirent* entry = ::readdir(listing)) {
        const std::string_view name = entry->d_name;
        bool ours = false;
        for (const std::string& target : targets) ours = ours || isAtomicWriteTemporary(name, target);
        if (!ours) continue;
        struct stat st {};
        if (::fstatat(folderFd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (!S_ISREG(st.st_mode) || st.st_uid != ::getuid()) continue;
        const auto changed = std::chrono::system_clock::from_time_t(st.st_mtime);
        if (now - changed <= olderThan) continue;
        // unlinkat never follows a link, should the entry have been swapped for one since.
        if (::unlinkat(folderFd, entry->d_name, 0) == 0) ++removed;
    }
    ::closedir(listing);  // closes folderFd too
    return removed;
}

namespace {

void appendComponent(std::vector<std::string>& parts, std::string_view component) {
    if (component.empty() || component == ".") return;
    if (component == "..") {
        if (!parts.empty()) parts.pop_back();
        return;
    }
    parts.emplace_back(component);
}

std::string joinAbsolute(const std::vector<std::string>& parts) {
    if (parts.empty()) return "/";
    std::string out;
    for (const auto& p : parts) out += "/" + p;
    return out;
}

std::vector<std::string> components(std::string_view path) {
    std::vector<std::string> parts;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        appendComponent(parts, path.substr(0, slash));
        if (slash == std::string_view::npos) break;
        path.remove_prefix(slash + 1);
    }
    return parts;
}

}  // namespace

std::string standardizePath(std::string_view path) {
    if (path.empty()) return std::string();
    const bool absolute = path.front() == '/';
    const auto parts = components(path);
    if (absolute) return joinAbsolute(parts);
    std::string out;
    for (const auto& p : parts) out += (out.empty() ? "" : "/") + p;
    return out.empty() ? "." : out;
}

std::optional<std::string> canonicalizePath(const std::string& path) {
    if (path == "/") return path;
    std::string current = path;
    std::vector<std::string> missing;  // innermost last
    struct stat st {};
    while (::lstat(current.c_str(), &st) != 0) {
        const std::size_t slash = current.find_last_of('/');
        if (slash == std::string::npos) return std::nullopt;
        missing.push_back(current.substr(slash + 1));
        current = slash == 0 ? "/" : current.substr(0, slash);
        while (current.size() > 1 && current.back() == '/') current.pop_back();
        if (current == "/") break;
    }
    char resolved[PATH_MAX];
    if (!::realpath(current.c_str(), resolved)) return std::nullopt;
    std::vector<std::string> parts = components(resolved);
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) appendComponent(parts, *it);
    return joinAbsolute(parts);
}

std::string realHomeFolder() {
    if (const passwd* entry = ::getpwuid(::getuid()); entry && entry->pw_dir && *entry->pw_dir) return entry->pw_dir;
    if (const char* home = std::getenv("HOME")) return home;
    return "/";
}

}  // namespace kestrow
