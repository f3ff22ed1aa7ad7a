#include "DiskSpace.hpp"

#include "base/Checked.hpp"

namespace brimlet::DiskSpace {

std::optional<std::pair<std::uint64_t, std::uint64_t>> fromBlocks(const VolumeBlocks& blocks) {
    const char* what = "volume size overflow";
    return std::make_pair(kestrow::checkedMultiply(blocks.availableBlocks, blocks.blockSize, what),
                          kestrow::checkedMultiply(blocks.totalBlocks, blocks.blockSize, what));
}

std::optional<std::pair<std::uint64_t, std::uint64_t>> volume(const std::string& path) {
    auto blocks = readBlocks(path);
    return blocks ? fromBlocks(*blocks) : std::nullopt;
}

std::optional<std::pair<std::uint64_t, std::uint64_t>> dataVolume() {
    for (const std::string& path : dataVolumeCandidates())
        if (auto figures = volume(path)) return figures;
    return std::nullopt;
}

}  // namespace brimlet::DiskSpace
