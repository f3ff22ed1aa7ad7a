// How much disk each candidate really occupies (allocated blocks, not logical lengths), and which
// folders of the home folder are largest.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "CleanupItem.hpp"

namespace brimlet {

struct MeasuredSize {
    std::uint64_t bytes = 0;
    std::int64_t unreadable = 0;
    bool operator==(const MeasuredSize&) const = default;
};

struct FolderUsage {
    std::string name;
    std::string url;
    std::uint64_t bytes = 0;
    std::int64_t unreadable = 0;
    const std::string& id() const { return url; }
    bool operator==(const FolderUsage&) const = default;
};

struct MeasureResult {
    std::uint64_t freeBytes = 0;
    std::uint64_t totalBytes = 0;
    std::vector<CleanupItem> regenerable;

    std::uint64_t regenerableBytes() const;  // absent sizes count as 0; overflow is fatal
    bool operator==(const MeasureResult&) const = default;
};

using CancelTest = std::function<bool()>;

struct SizeMeasurer {
    // Entries between two cancel tests: the test stays out of the hot loop.
    static constexpr std::uint64_t cancelInterval = 2048;

    // Sums allocated bytes below a path: hidden files included, every depth, links never followed
    // (a link counts for its own blocks). Folders that cannot be listed count as unreadable.
    static MeasuredSize allocatedSize(const std::string& path, const CancelTest& isCancelled);

    // The home folder's direct child folders (links excluded), measured concurrently, largest first.
    static std::vector<FolderUsage> homeUsage(const std::string& home, const CancelTest& isCancelled);
};

struct FullDiskAccess {
    // The Privacy & Security pane's Full Disk Access list.
    static constexpr const char* settingsURL =
        "x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles";
    // Whether protected folders can be read: none when this home has no folder to tell by.
    static std::optional<bool> isGranted(const std::string& home);
};

}  // namespace brimlet
