// Open and mapped files from /proc: the targets of /proc/PID/fd links and the /proc/PID/maps text.
// Another user's process denies both to us unless we are root; it is then passed over.
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <cerrno>

#include "../OpenFiles.hpp"

namespace brimlet {

namespace {

class LinuxOpenFileReading final : public OpenFileReading {
public:
    std::optional<std::vector<std::string>> openFiles(std::int32_t pid) override {
        const std::string folder = "/proc/" + std::to_string(pid) + "/fd";
        DIR* dir = ::opendir(folder.c_str());
        if (!dir) return std::nullopt;
        std::vector<std::string> paths;
        char target[PATH_MAX];
        while (const dirent* entry = ::readdir(dir)) {
            if (entry->d_name[0] == '.') continue;
            const ssize_t n = ::readlinkat(::dirfd(dir), entry->d_name, target, sizeof target);
            if (n > 0) paths.emplace_back(target, static_cast<std::size_t>(n));
        }
        ::closedir(dir);
        return paths;
    }

    std::optional<std::string> memoryMap(std::int32_t pid) override {
        const std::string path = "/proc/" + std::to_string(pid) + "/maps";
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) return std::nullopt;
        std::string text;
        char buffer[16384];
        for (;;) {
            const ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n > 0) {
                text.append(buffer, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                const bool failed = n < 0;
                ::close(fd);
                if (failed) return std::nullopt;
                return text;
            }
        }
    }
};

}  // namespace

OpenFileReading& liveOpenFileReading() {
    static LinuxOpenFileReading reader;
    return reader;
}

}  // namespace brimlet
