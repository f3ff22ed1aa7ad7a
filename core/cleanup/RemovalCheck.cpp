#include "RemovalCheck.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace brimlet {

namespace {

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

// In a folder with the sticky bit only an entry's owner, the folder's owner or root may remove it.
bool stickyAllows(const EntryStatus& folder, const EntryStatus& entry) {
    if (!(folder.mode & S_ISVTX)) return true;
    const uid_t self = ::geteuid();
    return self == 0 || self == folder.owner || self == entry.owner;
}

class Look {
public:
    Look(const EntryReader& reader, std::uint64_t device) : reader_(reader), device_(device) {}

    // Looks at the folder `name` in `parent`; `path` is its full path, for the reason only.
    kestrow::Status folder(int parent, const char* name, const std::string& path, const EntryStatus& status) {
        // Emptying a folder needs all three: list it (read), enter it (search), unlink (write).
        if (::faccessat(parent, name, R_OK | W_OK | X_OK, AT_EACCESS) != 0) return refuse(RemovalCheck::notRemovable, path);
        const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) return refuse(RemovalCheck::notRemovable, path);
        DIR* dir = ::fdopendir(fd);
        if (!dir) {
            ::close(fd);
            return refuse(RemovalCheck::notRemovable, path);
        }
        std::vector<std::pair<std::string, EntryStatus>> folders;
        kestrow::Status outcome = kestrow::Status::success();
        while (outcome.ok()) {
            errno = 0;
            const dirent* entry = ::readdir(dir);
            if (!entry) {
                if (errno != 0) outcome = refuse(RemovalCheck::notRemovable, path);
                break;
            }
            const std::string entryName = entry->d_name;
            if (entryName == "." || entryName == "..") continue;
            const auto child = reader_(::dirfd(dir), entryName.c_str());
            if (!child) continue;  // vanished while we looked: nothing left to remove there
            if (crossesFileSystem(*child, device_)) outcome = refuse(RemovalCheck::mountInside, path + "/" + entryName);
            else if (!stickyAllows(status, *child)) outcome = refuse(RemovalCheck::notRemovable, path + "/" + entryName);
            else if (child->isDirectory()) folders.emplace_back(entryName, *child);
        }
        for (std::size_t i = 0; i < folders.size() && outcome.ok(); ++i)
            outcome = folder(::dirfd(dir), folders[i].first.c_str(), path + "/" + folders[i].first, folders[i].second);
        ::closedir(dir);
        return outcome;
    }

private:
    static kestrow::Status refuse(const char* reason, const std::string& path) {
        return kestrow::Status::failure(std::string(reason) + ": " + path);
    }

    const EntryReader& reader_;
    std::uint64_t device_;
};

}  // namespace

kestrow::Status RemovalCheck::wholeTree(const std::string& path, const EntryReader& reader) {
    const auto status = reader(AT_FDCWD, path.c_str());
    if (!status) return kestrow::Status::success();  // already gone: the removal reports it as it stands
    if (status->mountRoot) return kestrow::Status::failure(std::string(mountRoot) + ": " + path);
    const std::string parent = parentOf(path);
    const auto parentStatus = reader(AT_FDCWD, parent.c_str());
    if (!parentStatus || crossesFileSystem(*status, parentStatus->device))
        return kestrow::Status::failure(std::string(mountRoot) + ": " + path);
    if (::faccessat(AT_FDCWD, parent.c_str(), W_OK | X_OK, AT_EACCESS) != 0 || !stickyAllows(*parentStatus, *status))
        return kestrow::Status::failure(std::string(notRemovable) + ": " + parent);
    if (!status->isDirectory()) return kestrow::Status::success();
    const int parentFd = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (parentFd < 0) return kestrow::Status::failure(std::string(notRemovable) + ": " + parent);
    const std::string name = path.substr(path.rfind('/') + 1);
    kestrow::Status outcome = Look(reader, status->device).folder(parentFd, name.c_str(), path, *status);
    ::close(parentFd);
    return outcome;
}

}  // namespace brimlet
