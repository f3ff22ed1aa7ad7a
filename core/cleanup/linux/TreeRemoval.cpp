#include "TreeRemoval.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "../Cleaner.hpp"

namespace brimlet {

namespace {

kestrow::Status failure(int error, const std::string& path) {
    return kestrow::Status::failure(std::string(std::strerror(error)) + ": " + path);
}

class Removal {
public:
    Removal(const TreeRemoval::Observer& observer, const EntryReader& reader, std::uint64_t device)
        : observer_(observer), reader_(reader), device_(device) {}

    // Empties and removes the folder `name` in `parent`, which must still be the one `expected` saw.
    kestrow::Status folder(int parent, const std::string& name, const std::string& path, const EntryStatus& expected) {
        const int fd = ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) return failure(errno, path);
        struct stat opened{};
        if (::fstat(fd, &opened) != 0 || static_cast<std::uint64_t>(opened.st_dev) != expected.device ||
            static_cast<std::uint64_t>(opened.st_ino) != expected.inode) {
            ::close(fd);
            return kestrow::Status::failure("it changed while it was being removed: " + path);
        }
        DIR* dir = ::fdopendir(fd);
        if (!dir) {
            const int error = errno;
            ::close(fd);
            return failure(error, path);
        }
        // The names are read first and removed in sorted order: listing a folder while entries
        // vanish from it is allowed but unpredictable, and a fixed order is easier to reason about.
        std::vector<std::string> names;
        errno = 0;
        while (const dirent* entry = ::readdir(dir)) {
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                names.emplace_back(entry->d_name);
            errno = 0;
        }
        kestrow::Status outcome = errno != 0 ? failure(errno, path) : kestrow::Status::success();
        std::sort(names.begin(), names.end());
        for (std::size_t i = 0; i < names.size() && outcome.ok(); ++i)
            outcome = entry(::dirfd(dir), names[i], path + "/" + names[i]);
        ::closedir(dir);
        if (outcome.failed()) return outcome;
        if (observer_) observer_(path);
        if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) return failure(errno, path);
        return kestrow::Status::success();
    }

    kestrow::Status entry(int parent, const std::string& name, const std::string& path) {
        const auto status = reader_(parent, name.c_str());
        if (!status) return errno == ENOENT ? kestrow::Status::success() : failure(errno, path);
        if (crossesFileSystem(*status, device_))
            return kestrow::Status::failure("another file system is mounted here: " + path);
        if (status->isDirectory()) return folder(parent, name, path, *status);
        if (observer_) observer_(path);
        if (::unlinkat(parent, name.c_str(), 0) != 0 && errno != ENOENT) return failure(errno, path);
        return kestrow::Status::success();
    }

private:
    const TreeRemoval::Observer& observer_;
    const EntryReader& reader_;
    std::uint64_t device_;
};

}  // namespace

kestrow::Status TreeRemoval::remove(const std::string& path, const Observer& beforeEach, const EntryReader& reader) {
    const std::size_t slash = path.rfind('/');
    if (path.empty() || path.front() != '/' || slash + 1 == path.size())
        return kestrow::Status::failure("not a full path: " + path);
    const std::string parent = slash == 0 ? "/" : path.substr(0, slash);
    const int parentFd = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (parentFd < 0) return failure(errno, parent);
    const std::string name = path.substr(slash + 1);
    kestrow::Status outcome = kestrow::Status::success();
    if (const auto status = reader(parentFd, name.c_str()); !status) {
        outcome = failure(errno, path);
    } else {
        outcome = Removal(beforeEach, reader, status->device).entry(parentFd, name, path);
    }
    ::close(parentFd);
    return outcome;
}

kestrow::Status LiveFileOperations::removePermanently(const std::string& path) { return TreeRemoval::remove(path); }

}  // namespace brimlet
