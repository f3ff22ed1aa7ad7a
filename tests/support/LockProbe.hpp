// Whether anyone holds a lock file: tests ask it to see that a member let go of hosting. A lock the
// probe itself can take is free; it is let go again at once.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <string>

namespace kestrow::testing {

inline bool lockIsFree(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) return false;
    const bool free = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    ::close(fd);
    return free;
}

}  // namespace kestrow::testing
