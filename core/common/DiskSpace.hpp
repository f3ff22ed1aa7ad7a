// Free and total bytes of a volume, and which volume holds the user's data. Both the monitor (free
// space in the snapshot) and the cleanup (free space before and after a run) read them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace brimlet {

struct VolumeBlocks {
    std::uint64_t availableBlocks = 0;  // to unprivileged users
    std::uint64_t totalBlocks = 0;
    std::uint64_t blockSize = 0;
};

namespace DiskSpace {
// The platform's part. Where the data volume is looked for, in order: on a Mac its data volume
// "/System/Volumes/Data", then "/"; on Linux the file system that holds the user's home folder,
// which is where the user's files and caches live even when it is not "/", then "/".
std::vector<std::string> dataVolumeCandidates();
// The file system's block counts for a path (statfs on a Mac, statvfs on Linux).
std::optional<VolumeBlocks> readBlocks(const std::string& path);

// Free and total bytes; a size that overflows 64 bits is a fatal programming error.
std::optional<std::pair<std::uint64_t, std::uint64_t>> fromBlocks(const VolumeBlocks& blocks);
std::optional<std::pair<std::uint64_t, std::uint64_t>> volume(const std::string& path);
std::optional<std::pair<std::uint64_t, std::uint64_t>> dataVolume();
}  // namespace DiskSpace

}  // namespace brimlet
