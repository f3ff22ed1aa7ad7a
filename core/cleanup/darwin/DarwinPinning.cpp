// Opening a folder without following a link anywhere on its path, and the mount table, on macOS.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <unistd.h>

#include <cerrno>

#include "../Pinning.hpp"

namespace brimlet {

namespace {

// macOS has no search-only descriptor for folders: the folders on the way are opened for reading.
constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

}  // namespace

int openFolderNoLinks(const std::string& absolutePath, Resolution how) {
    const auto parts = Pinning::components(absolutePath);
    if (!parts) {
        errno = EINVAL;
        return -1;
    }
    if (how == Resolution::fastest) {
        // O_NOFOLLOW_ANY (macOS 11 and later): a link at any component fails the open with ELOOP.
        const int fd = ::open(absolutePath.c_str(), folderFlags | O_NOFOLLOW_ANY);
        if (fd >= 0 || errno != EINVAL) return fd;
    }
    return openFolderPerComponent(*parts, folderFlags);
}

std::vector<std::string> currentMountPoints() {
    std::vector<std::string> points;
    struct statfs* mounts = nullptr;
    const int count = ::getmntinfo(&mounts, MNT_NOWAIT);
    for (int i = 0; i < count; ++i) points.emplace_back(mounts[i].f_mntonname);
    return points;
}

}  // namespace brimlet
