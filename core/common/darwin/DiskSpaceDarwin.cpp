#include <sys/mount.h>

#include "../DiskSpace.hpp"

namespace brimlet::DiskSpace {

// Since macOS 10.15 the user's data sits on its own volume beside the read-only system volume.
std::vector<std::string> dataVolumeCandidates() { return {"/System/Volumes/Data", "/"}; }

std::optional<VolumeBlocks> readBlocks(const std::string& path) {
    struct statfs st {};
    if (::statfs(path.c_str(), &st) != 0) return std::nullopt;
    return VolumeBlocks{st.f_bavail, st.f_blocks, st.f_bsize};
}

}  // namespace brimlet::DiskSpace
