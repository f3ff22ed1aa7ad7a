// Small helpers for reading Linux pseudo-files without iostreams.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace brimlet::linuxfs {

// Reads the whole file into buffer (reused across calls to spare allocations); false when it
// cannot be opened or read. Pseudo-files report a size of 0, so this reads until end of file.
bool readFile(const char* path, std::string& buffer);
std::optional<std::string> readFile(const std::string& path);
std::optional<std::string> readLink(const std::string& path);
// CLOCK_MONOTONIC in nanoseconds: the time base of every rate.
std::uint64_t monotonicNanoseconds();

}  // namespace brimlet::linuxfs
