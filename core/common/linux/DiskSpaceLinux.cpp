#include <sys/statvfs.h>

#include "../DiskSpace.hpp"
#include "base/Files.hpp"

namespace brimlet::DiskSpace {

// No separate data volume on Linux: the user's files and caches live on the home folder's file
// system, which need not be "/".
std::vector<std::string> dataVolumeCandidates() {
    // Asked on every glance; the account's home does not move while the process runs.
    static const std::string home = kestrow::realHomeFolder();
    std::vector<std::string> candidates;
    if (!home.empty() && home.front() == '/') candidates.push_back(home);
    candidates.push_back("/");
    return candidates;
}

std::optional<VolumeBlocks> readBlocks(const std::string& path) {
    struct statvfs st {};
    if (::statvfs(path.c_str(), &st) != 0) return std::nullopt;
    return VolumeBlocks{st.f_bavail, st.f_blocks, st.f_frsize};
}

}  // namespace brimlet::DiskSpace
