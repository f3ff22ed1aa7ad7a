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

#include "base/Checked.hpp"

namespace brimlet {

std::uint64_t MeasureResult::regenerableBytes() const {
    std::uint64_t sum = 0;
    for (const CleanupItem& item : regenerable) sum = kestrow::checkedAdd(sum, item.size.value_or(0), "size sum overflow");
    return sum;
}

namespace {

// A depth-first walk over open folder descriptors: each entry costs one status read, no path strings.
class Walk {
public:
    Walk(const CancelTest& isCancelled, const EntryReader& reader, std::uint64_t device)
        : isCancelled_(isCancelled), reader_(reader), device_(device) {}

    // Walks the folder behind fd (taking ownership of it).
    void folder(int fd) {
        DIR* dir = ::fdopendir(fd);
        if (!dir) {
            ::close(fd);
            ++census.unreadable;
            return;
        }
        while (!stopped_) {
            errno = 0;
            const dirent* entry = ::readdir(dir);
            if (!entry) {
                if (errno != 0) ++census.unreadable;  // the listing broke off part way
                break;
            }
            const char* name = entry->d_name;
            if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
            if (++listed_ % SizeMeasurer::cancelInterval == 0 && isCancelled_()) {
                stopped_ = true;
                break;
            }
            const auto status = reader_(::dirfd(dir), name);
            if (!status) continue;                               // vanished: skip
            if (crossesFileSystem(*status, device_)) continue;  // a mount inside: not ours to count
            ++census.entries;
            if (status->isDirectory()) {
                descend(::dirfd(dir), name);
                continue;
            }
            census.bytes = kestrow::checkedAdd(census.bytes, status->allocatedBytes, "measured size overflow");
        }
        ::closedir(dir);
    }

    TreeCensus census;

private:
    void descend(int parent, const char* name) {
        // O_NOFOLLOW: a folder swapped for a link mid-walk is not followed out of the tree.
        const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) {
            ++census.unreadable;
            return;
        }
        folder(fd);
    }

    const CancelTest& isCancelled_;
    const EntryReader& reader_;
    std::uint64_t device_;
    std::uint64_t listed_ = 0;
    bool stopped_ = false;
};

}  // namespace

TreeCensus SizeMeasurer::census(const std::string& path, const CancelTest& isCancelled, const EntryReader& reader) {
    const auto status = reader(AT_FDCWD, path.c_str());
    if (!status) return {0, 1, 0, false};
    if (!status->isDirectory()) return {status->allocatedBytes, 0, 0, true};
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return {0, 1, 0, true};
    Walk walk(isCancelled, reader, status->device);
    walk.folder(fd);
    walk.census.exists = true;
    return walk.census;
}

MeasuredSize SizeMeasurer::allocatedSize(const std::string& path, const CancelTest& isCancelled,
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

std::vector<MeasuredSize> SizeMeasurer::measureAll(const std::vector<std::string>& paths,
                                                   const CancelTest& isCancelled, const Measured& onMeasured) {
    std::vector<MeasuredSize> sizes(paths.size());
    std::atomic<std::size_t> measured{0};
    concurrently(paths.size(), [&](std::size_t i) {
        sizes[i] = allocatedSize(paths[i], isCancelled);
        const std::size_t done = ++measured;
        if (onMeasured) onMeasured(done, paths.size());
    });
    return sizes;
}

std::vector<FolderUsage> SizeMeasurer::homeUsage(const std::string& home, const CancelTest& isCancelled) {
    std::vector<FolderUsage> folders;
    DIR* dir = ::opendir(home.c_str());
    if (!dir) return folders;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        struct stat st{};
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
    struct stat st{};
    if (::stat(protectedFolder.c_str(), &st) != 0) return std::nullopt;
    DIR* dir = ::opendir(protectedFolder.c_str());
    if (!dir) return false;
    ::closedir(dir);
    return true;
}

}  // namespace brimlet
