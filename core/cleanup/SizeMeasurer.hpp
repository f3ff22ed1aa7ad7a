// How much disk each candidate really occupies (allocated blocks, not logical lengths), and which
// folders of the home folder are largest.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "CancelCheck.hpp"
#include "CleanupItem.hpp"
#include "EntryStatus.hpp"
#include "Pinning.hpp"

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

// One measuring pass in full: what MeasuredSize reports, plus how many entries the walk met.
struct TreeCensus {
    std::uint64_t bytes = 0;
    std::int64_t unreadable = 0;
    std::uint64_t entries = 0;               // entries below the path on its own file system
    bool exists = false;                     // the path itself could be read
    std::optional<FileIdentity> identity;    // of the path itself, when it could be read
    std::optional<std::string> mountInside;  // the first entry found on another file system
    bool operator==(const TreeCensus&) const = default;
};

namespace SizeMeasurer {
// Entries between two cancel tests: the test stays out of the hot loop.
inline constexpr std::uint64_t cancelInterval = 2048;
// Measuring runs on at most this many threads however many folders it is given: the disk, not
// the processor, is what the threads wait on.
inline constexpr unsigned maxThreads = 4;
// Folders that may wait for a free thread, per thread sharing the walks.
inline constexpr std::size_t waitingPerThread = 2;
// Threads that may share the walk of one tree: as many as the processor runs at once, within
// maxThreads. At one, each tree is walked by one thread, exactly as a lone walk.
unsigned walkThreads();

// Sums allocated bytes below a path: hidden files included, every depth, links never followed
// (a link counts for its own blocks). Folders that cannot be listed count as unreadable. Like
// `du -x`, it stays on the path's own file system: a mount inside is neither entered nor counted.
// Up to walkThreads() threads share the walk; the reader is called from all of them.
MeasuredSize allocatedSize(const std::string& path, const CancelCheck& isCancelled,
                           const EntryReader& reader = readEntryStatus);
TreeCensus census(const std::string& path, const CancelCheck& isCancelled, const EntryReader& reader = readEntryStatus);
// The same through a pinned item: what is measured is what would be removed.
TreeCensus census(const PinnedItem& item, const CancelCheck& isCancelled, const EntryReader& reader = readEntryStatus);

// The home folder's direct child folders (links excluded), measured concurrently, largest first.
std::vector<FolderUsage> homeUsage(const std::string& home, const CancelCheck& isCancelled);

// Called once a path's size is known, with how many are known so far; from any of the threads.
using Measured = std::function<void(std::size_t measured, std::size_t total)>;
// Each path measured, on at most maxThreads threads, results in the order given. With more than
// one walk thread, the threads share the trees' walks, so the last big tree is not walked alone.
std::vector<MeasuredSize> measureAll(const std::vector<std::string>& paths, const CancelCheck& isCancelled,
                                     const Measured& onMeasured = {});
// The same, each path's census in full (its identity included).
std::vector<TreeCensus> censusAll(const std::vector<std::string>& paths, const CancelCheck& isCancelled,
                                  const Measured& onMeasured = {});

// The census of each path, `threads` threads sharing the walks (the caller's included): a
// folder met while another thread is free is handed to it. With one thread, each tree is walked
// by the caller alone, as a lone walk does. The reader is called from all of them.
std::vector<TreeCensus> censusOn(unsigned threads, const std::vector<std::string>& paths,
                                 const CancelCheck& isCancelled, const Measured& onMeasured = {},
                                 const EntryReader& reader = readEntryStatus);

// Runs task(0) ... task(count − 1) on at most maxThreads threads (the caller's included) and
// returns when all have run.
void concurrently(std::size_t count, const std::function<void(std::size_t)>& task);
}  // namespace SizeMeasurer

namespace FullDiskAccess {
// The Privacy & Security pane's Full Disk Access list.
inline constexpr const char* settingsURL = "x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles";
// Whether protected folders can be read: none when this home has no folder to tell by. Only a
// Mac gates them; elsewhere the answer is always yes.
std::optional<bool> isGranted(const std::string& home);
// Whether a folder that the system protects can be listed: none when it does not exist.
std::optional<bool> canList(const std::string& protectedFolder);
}  // namespace FullDiskAccess

}  // namespace brimlet
