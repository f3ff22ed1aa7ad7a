#include "ProcFiles.hpp"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace brimlet::linuxfs {

bool readFile(const char* path, std::string& buffer) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    if (buffer.capacity() < 4096) buffer.reserve(4096);
    buffer.resize(buffer.capacity());
    std::size_t used = 0;
    bool ok = true;
    for (;;) {
        if (used == buffer.size()) buffer.resize(buffer.size() * 2);
        const ssize_t n = ::read(fd, buffer.data() + used, buffer.size() - used);
        if (n < 0) {
            if (errno == EINTR) continue;
            ok = false;
            break;
        }
        if (n == 0) break;
        used += static_cast<std::size_t>(n);
    }
    ::close(fd);
    buffer.resize(ok ? used : 0);
    return ok;
}

std::optional<std::string> readFile(const std::string& path) {
    std::string buffer;
    if (!readFile(path.c_str(), buffer)) return std::nullopt;
    return buffer;
}

std::optional<std::string> readLink(const std::string& path) {
    std::string target(4096, '\0');
    const ssize_t n = ::readlink(path.c_str(), target.data(), target.size());
    if (n < 1) return std::nullopt;
    target.resize(static_cast<std::size_t>(n));
    return target;
}

std::uint64_t monotonicNanoseconds() {
    timespec ts{};
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::uint64_t>(ts.tv_sec) * 1'000'000'000ULL + static_cast<std::uint64_t>(ts.tv_nsec);
}

}  // namespace brimlet::linuxfs
