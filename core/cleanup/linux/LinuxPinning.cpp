// Opening a folder without following a link anywhere on its path, and the mount table, on Linux.
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>

#include "../Pinning.hpp"

namespace brimlet {

namespace {

// Search-only descriptors: enough to be the folder of *at calls, and they need no read permission.
constexpr int searchFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

}  // namespace

int openFolderNoLinks(const std::string& absolutePath, Resolution how) {
    const auto parts = Pinning::components(absolutePath);
    if (!parts) {
        errno = EINVAL;
        return -1;
    }
    if (how == Resolution::fastest && !parts->empty()) {
        const int root = ::open("/", searchFlags);
        if (root < 0) return -1;
        std::string relative;
        for (const std::string_view part : *parts) {
            if (!relative.empty()) relative += '/';
            relative += part;
        }
        open_how request{};
        request.flags = searchFlags;
        request.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
        const long fd = ::syscall(SYS_openat2, root, relative.c_str(), &request, sizeof request);
        const int error = errno;
        ::close(root);
        // Kernels before 5.6 (or a filter that forbids the call) answer ENOSYS or EPERM: walk instead.
        if (fd >= 0) return static_cast<int>(fd);
        if (error != ENOSYS && error != EPERM && error != E2BIG) {
            errno = error;
            return -1;
        }
    }
    return openFolderPerComponent(*parts, searchFlags);
}

namespace {
// mountinfo escapes blanks, tabs, newlines and backslashes as three octal digits.
std::string unescapeMountPath(const std::string& field) {
    std::string out;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            const std::string digits = field.substr(i + 1, 3);
            if (digits.size() == 3 && digits.find_first_not_of("01234567") == std::string::npos) {
                out += static_cast<char>(std::stoi(digits, nullptr, 8));
                i += 3;
                continue;
            }
        }
        out += field[i];
    }
    return out;
}
}  // namespace

std::vector<std::string> currentMountPoints() {
    std::vector<std::string> points;
    std::ifstream in("/proc/self/mountinfo");
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string id, parent, device, root, mountPoint;
        if (fields >> id >> parent >> device >> root >> mountPoint) points.push_back(unescapeMountPath(mountPoint));
    }
    return points;
}

}  // namespace brimlet
