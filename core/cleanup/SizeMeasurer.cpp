#include "SizeMeasurer.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>

#include "TreeWalk.hpp"
#include "base/Checked.hpp"

namespace brimlet {

std::uint64_t MeasureResult::regenerableBytes() const {
    std::uint64_t sum = 0;
    for (const CleanupItem& item : regenerable)
        sum = kestrow::checkedAdd(sum, item.size.value_or(0), "size sum overflow");
    return sum;
}

namespace {

// Measures the folder behind `dir` (taken over): each entry costs one status read; mounts inside
// are noted, neither entered nor counted.
void measureFolder(DIR* dir, const EntryStatus& status, const std::string& path, const CancelCheck& isCancelled,
                   const EntryReader& reader, TreeCensus& census) {
    TreeWalk walk;
    walk.reader = reader;
    std::uint64_t listed = 0;
    walk.entry = [&](int, const char* name, const EntryStatus* entry, int) {
        if (++listed % SizeMeasurer::cancelInterval == 0 && isCancelled()) return TreeWalk::Next::stop;
        if (!entry) return TreeWalk::Next::skip;  // vanished: skip
        if (crossesFileSystem(*entry, status.device)) {
            if (!census.mountInside) census.mountInside = walk.pathOf(name);
            return TreeWalk::Next::skip;
        }
        ++census.entries;
        if (entry->isDirectory()) return TreeWalk::Next::descend;
        census.bytes = kestrow::checkedAdd(census.bytes, entry->allocatedBytes, "measured size overflow");
        return TreeWalk::Next::skip;
    };
    // A folder that cannot be entered or listed (or that changed on the way) is not summed.
    walk.trouble = [&](const char*, TreeWalk::Trouble) {
        ++census.unreadable;
        return true;
    };
    walk.run(dir, status, path);
}

TreeCensus censusOf(const EntryStatus& status, DIR* dir, const std::string& path, const CancelCheck& isCancelled,
                    const EntryReader& reader) {
    TreeCensus census;
    census.exists = true;
    census.identity = FileIdentity::of(status);
    if (!status.isDirectory()) {
        census.bytes = status.allocatedBytes;
        return census;
    }
    if (!dir) {
        census.unreadable = 1;
        return census;
    }
    measureFolder(dir, status, path, isCancelled, reader, census);
    return census;
}

}  // namespace

TreeCensus SizeMeasurer::census(const std::string& path, const CancelCheck& isCancelled, const EntryReader& reader) {
    const auto status = reader(AT_FDCWD, path.c_str());
    if (!status) return {0, 1, 0, false, std::nullopt, std::nullopt};
    DIR* dir = status->isDirectory() ? openListedFolder(AT_FDCWD, path.c_str(), *status) : nullptr;
    return censusOf(*status, dir, path, isCancelled, reader);
}

TreeCensus SizeMeasurer::census(const PinnedItem& item, const CancelCheck& isCancelled, const EntryReader& reader) {
    const auto status = reader(item.parent.get(), item.name.c_str());
    if (!status || !(FileIdentity::of(*status) == item.identity())) return {0, 1, 0, false, std::nullopt, std::nullopt};
    DIR* dir = status->isDirectory() ? openListedFolder(item.parent.get(), item.name.c_str(), *status) : nullptr;
    return censusOf(*status, dir, item.path, isCancelled, reader);
}

MeasuredSize SizeMeasurer::allocatedSize(const std::string& path, const CancelCheck& isCancelled,
                                         const EntryReader& reader) {
    const TreeCensus counted = census(path, isCancelled, reader);
    return {counted.bytes, counted.unreadable};
}

void SizeMeasurer::concurrently(std::size_t count, const std::function<void(std::size_t)>& task) {
    std::atomic<std::size_t> next{0};
    auto worker = [&] {
        for (std::size_t i = next++; i < count; i = next++) task(i);
    };
    const std::size_t helpers = std::min<std::size_t>(count, maxThreads) - (count > 0 ? 1 : 0);
    std::vector<std::thread> threads;
    threads.reserve(helpers);
    for (std::size_t i = 0; i < helpers; ++i) {
        try {
            threads.emplace_back(worker);
        } catch (const std::system_error&) {
            break;  // no thread to be had: the ones running (and this one) take the rest
        }
    }
    worker();
    for (std::thread& thread : threads) thread.join();
}

std::vector<TreeCensus> SizeMeasurer::censusAll(const std::vector<std::string>& paths, const CancelCheck& isCancelled,
                                                const Measured& onMeasured) {
    std::vector<TreeCensus> results(paths.size());
    std::atomic<std::size_t> measured{0};
    concurrently(paths.size(), [&](std::size_t i) {
        results[i] = census(paths[i], isCancelled);
        const std::size_t done = ++measured;
        if (onMeasured) onMeasured(done, paths.size());
    });
    return results;
}

std::vector<MeasuredSize> SizeMeasurer::measureAll(const std::vector<std::string>& paths,
                                                   const CancelCheck& isCancelled, const Measured& onMeasured) {
    std::vector<MeasuredSize> sizes;
    for (const TreeCensus& counted : censusAll(paths, isCancelled, onMeasured))
        sizes.push_back({counted.bytes, counted.unreadable});
    return sizes;
}

std::vector<FolderUsage> SizeMeasurer::homeUsage(const std::string& home, const CancelCheck& isCancelled) {
    std::vector<FolderUsage> folders;
    DIR* dir = ::opendir(home.c_str());
    if (!dir) return folders;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        struct stat st {};
        if (::fstatat(::dirfd(dir), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(st.st_mode)) continue;
        folders.push_back({name, home + "/" + name, 0, 0});
    }
    ::closedir(dir);

    std::vector<std::string> paths;
    for (const FolderUsage& folder : folders) paths.push_back(folder.url);
    const std::vector<MeasuredSize> sizes = measureAll(paths, isCancelled);
    for (std::size_t i = 0; i < folders.size(); ++i) {
        folders[i].bytes = sizes[i].bytes;
        folders[i].unreadable = sizes[i].unreadable;
    }
    std::stable_sort(folders.begin(), folders.end(),
                     [](const FolderUsage& a, const FolderUsage& b) { return a.bytes > b.bytes; });
    return folders;
}

std::optional<bool> FullDiskAccess::canList(const std::string& protectedFolder) {
    struct stat st {};
    if (::stat(protectedFolder.c_str(), &st) != 0) return std::nullopt;
    DIR* dir = ::opendir(protectedFolder.c_str());
    if (!dir) return false;
    ::closedir(dir);
    return true;
}

}  // namespace brimlet
