#include "SizeMeasurer.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <system_error>
#include <thread>

#include "ParallelWalk.hpp"
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

// Where a census starts: the path's own status (none when it cannot be read, or is no longer the
// pinned file) and, for a folder, its descriptor, opened and checked.
struct Start {
    std::optional<EntryStatus> status;
    DIR* dir = nullptr;
    std::string path;
};

Start startAt(const std::string& path, const EntryReader& reader) {
    Start start{reader(AT_FDCWD, path.c_str()), nullptr, path};
    if (start.status && start.status->isDirectory())
        start.dir = openListedFolder(AT_FDCWD, path.c_str(), *start.status);
    return start;
}

Start startAt(const PinnedItem& item, const EntryReader& reader) {
    Start start{reader(item.parent.get(), item.name.c_str()), nullptr, item.path};
    if (start.status && !(FileIdentity::of(*start.status) == item.identity())) start.status.reset();
    if (start.status && start.status->isDirectory())
        start.dir = openListedFolder(item.parent.get(), item.name.c_str(), *start.status);
    return start;
}

// What a census knows before any walk: the path itself. True when a folder is left to walk.
bool begin(const Start& start, TreeCensus& census) {
    if (!start.status) {
        census = {0, 1, 0, false, std::nullopt, std::nullopt};
        return false;
    }
    census.exists = true;
    census.identity = FileIdentity::of(*start.status);
    if (!start.status->isDirectory()) {
        census.bytes = start.status->allocatedBytes;
        return false;
    }
    if (!start.dir) {
        census.unreadable = 1;
        return false;
    }
    return true;
}

// One thread's entries since it last asked whether to stop; apart from the others' so that no two
// threads write to one cache line.
struct alignas(64) Listed {
    std::uint64_t count = 0;
};

// What the walk of one folder (a whole tree, or a part handed over) adds up.
struct Part {
    TreeCensus census;
    std::vector<std::size_t> mountAt;  // where the mount noted lies, to keep the one met first
};

// Folds a part into its tree's census. Of two mounts, the one a lone walk meets first is kept, so
// the text names the same mount however the tree was shared out.
void fold(TreeCensus& into, std::optional<std::vector<std::size_t>>& mountAt, Part& part) {
    into.bytes = kestrow::checkedAdd(into.bytes, part.census.bytes, "measured size overflow");
    into.unreadable += part.census.unreadable;
    into.entries += part.census.entries;
    if (part.census.mountInside && (!mountAt || part.mountAt < *mountAt)) {
        into.mountInside = std::move(part.census.mountInside);
        mountAt = std::move(part.mountAt);
    }
}

// Measures each start's tree (each entry costs one status read; mounts inside are noted, neither
// entered nor counted) on `threads` threads sharing the walks.
std::vector<TreeCensus> measure(unsigned threads, std::size_t count, const std::function<Start(std::size_t)>& startOf,
                                const CancelCheck& isCancelled, const SizeMeasurer::Measured& onMeasured,
                                const EntryReader& reader) {
    if (count == 0) return {};
    std::vector<TreeCensus> results(count);
    std::vector<std::optional<std::vector<std::size_t>>> mountsAt(count);
    std::mutex resultsMutex;
    ParallelWalk crew(threads, threads * SizeMeasurer::waitingPerThread);
    std::vector<Listed> listed(crew.threads());
    std::atomic<std::size_t> measured{0};

    const auto open = [&](std::size_t tree) -> std::optional<ParallelWalk::Folder> {
        const Start start = startOf(tree);
        TreeCensus begun;
        const bool walk = begin(start, begun);
        std::lock_guard lock(resultsMutex);
        results[tree] = std::move(begun);
        if (!walk) return std::nullopt;
        return ParallelWalk::Folder{start.dir, *start.status, start.path, {}, tree};
    };
    const auto walkFolder = [&](unsigned thread, ParallelWalk::Folder& folder) {
        Part part;
        TreeWalk walk;
        walk.reader = reader;
        crew.share(walk, folder);
        std::uint64_t& sinceAsked = listed[thread].count;
        walk.entry = [&](int, const char* name, const EntryStatus* entry, int) {
            if (crew.stopped()) return TreeWalk::Next::stop;
            if (++sinceAsked % SizeMeasurer::cancelInterval == 0 && isCancelled()) {
                crew.stop();
                return TreeWalk::Next::stop;
            }
            if (!entry) return TreeWalk::Next::skip;  // vanished: skip
            if (crossesFileSystem(*entry, folder.status.device)) {
                if (!part.census.mountInside) {
                    part.census.mountInside = walk.pathOf(name);
                    part.mountAt = folder.position;
                    for (std::size_t place : walk.position()) part.mountAt.push_back(place);
                }
                return TreeWalk::Next::skip;
            }
            ++part.census.entries;
            if (entry->isDirectory()) return TreeWalk::Next::descend;
            part.census.bytes = kestrow::checkedAdd(part.census.bytes, entry->allocatedBytes, "measured size overflow");
            return TreeWalk::Next::skip;
        };
        // A folder that cannot be entered or listed (or that changed on the way) is not summed.
        walk.trouble = [&](const char*, TreeWalk::Trouble) {
            ++part.census.unreadable;
            return true;
        };
        walk.run(folder.dir, folder.status, folder.path);
        std::lock_guard lock(resultsMutex);
        fold(results[folder.tree], mountsAt[folder.tree], part);
    };
    const auto finished = [&](std::size_t) {
        const std::size_t done = ++measured;
        if (onMeasured) onMeasured(done, count);
    };
    crew.run(count, open, walkFolder, finished);
    return results;
}

}  // namespace

unsigned SizeMeasurer::walkThreads() { return std::clamp(std::thread::hardware_concurrency(), 1u, maxThreads); }

std::vector<TreeCensus> SizeMeasurer::censusOn(unsigned threads, const std::vector<std::string>& paths,
                                               const CancelCheck& isCancelled, const Measured& onMeasured,
                                               const EntryReader& reader) {
    return measure(
        threads, paths.size(), [&](std::size_t i) { return startAt(paths[i], reader); }, isCancelled, onMeasured,
        reader);
}

TreeCensus SizeMeasurer::census(const std::string& path, const CancelCheck& isCancelled, const EntryReader& reader) {
    return censusOn(walkThreads(), {path}, isCancelled, {}, reader).front();
}

TreeCensus SizeMeasurer::census(const PinnedItem& item, const CancelCheck& isCancelled, const EntryReader& reader) {
    return measure(
               walkThreads(), 1, [&](std::size_t) { return startAt(item, reader); }, isCancelled, {}, reader)
        .front();
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
    const unsigned sharing = walkThreads();
    if (sharing > 1) {
        const auto threads =
            static_cast<unsigned>(std::min<std::size_t>(maxThreads, std::max<std::size_t>(paths.size(), sharing)));
        return censusOn(threads, paths, isCancelled, onMeasured);
    }
    // One processor: the threads only overlap their waits on the disk, each tree walked alone.
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
        folders.push_back({name, (home + "/").append(name), 0, 0});
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
