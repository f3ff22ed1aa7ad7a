// Which files a process holds open or has mapped into memory: a database, a log being written, a
// library loaded from a cache. The platform readers return raw answers; the rules are shared.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimlet {

class OpenFileReading {
public:
    virtual ~OpenFileReading() = default;
    // Paths of the files the process holds open (descriptors that are not files read as whatever
    // the platform writes for them); none when the process cannot be inspected.
    virtual std::optional<std::vector<std::string>> openFiles(std::int32_t pid) = 0;
    // The memory map in the kernel's text form (Linux /proc/PID/maps); none where unreadable or
    // where the platform has no such text.
    virtual std::optional<std::string> memoryMap(std::int32_t pid) = 0;
};

// The reader of this platform: /proc/PID/fd and /proc/PID/maps on Linux, libproc's descriptor list
// and vnode paths on macOS.
OpenFileReading& liveOpenFileReading();

namespace OpenFiles {
// The file paths of a /proc/PID/maps text, in order, without repeats of the line before. Lines
// without a path (anonymous memory) and pseudo-paths such as "[heap]" are left out; the kernel's
// "\012" for a line feed in a name is turned back into the line feed.
std::vector<std::string> mappedPaths(std::string_view maps);
// True when the path the kernel reports for an open or mapped file lies at or below `realPath`.
// These paths are already real, so no resolution is done; a " (deleted)" suffix, which the kernel
// adds for a file removed while open, is also tried without it.
bool holds(std::string_view path, std::string_view realPath);
}  // namespace OpenFiles

}  // namespace brimlet
