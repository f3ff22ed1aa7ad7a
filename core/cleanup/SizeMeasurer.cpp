#include "SizeMeasurer.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <future>

#include "base/Checked.hpp"

namespace brimlet {

std::uint64_t MeasureResult::regenerableBytes() const {
    std::uint64_t sum = 0;
    for (const CleanupItem& item : regenerable) sum = kestrow::checkedAdd(sum, item.size.value_or(0), "size sum overflow");
    return sum;
}

namespace {

std::uint64_t allocatedBytes(const struct stat& st) { return static_cast<std::uint64_t>(st.st_blocks) * 512; }

// A depth-first walk over open folder descriptors: each entry costs one fstatat, no path strings.
class Walk {
public:
    explicit Walk(const CancelTest& isCancelled) : isCancelled_(isCancelled) {}

    // Walks the folder behind fd (taking ownership of it).
    void folder(int fd) {
        DIR* dir = ::fdopendir(fd);
        if (!dir) {
            ::close(fd);
            ++unreadable;
            return;
        }
        while (!stopped_) {
            errno = 0;
            const dirent* entry = ::readdir(dir);
            if (!entry) {
                if (errno != 0) ++unreadable;  // the listing broke off part way
                break;
            }
            const char* name = entry->d_name;
            if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
            if (++entries % SizeMeasurer::cancelInterval == 0 && isCancelled_ && isCancelled_()) {
                stopped_ = true;
                break;
            }
            if (entry->d_type == DT_DIR) {
                descend(::dirfd(dir), name);
                continue;
            }
            struct stat st{};
            if (::fstatat(::dirfd(dir), name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;  // vanished: skip
            if (S_ISDIR(st.st_mode)) {
                descend(::dirfd(dir), name);
                continue;
            }
            bytes = kestrow::checkedAdd(bytes, allocatedBytes(st), "measured size overflow");
        }
        ::closedir(dir);
    }

    std::uint64_t bytes = 0;
    std::int64_t unreadable = 0;
    std::uint64_t entries = 0;

private:
    void descend(int parent, const char* name) {
        // O_NOFOLLOW: a folder swapped for a link mid-walk is not followed out of the tree.
        const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) {
            ++unreadable;
            return;
        }
        folder(fd);
    }

    const CancelTest& isCancelled_;
    bool stopped_ = false;
};

}  // namespace

MeasuredSize SizeMeasurer::allocatedSize(const std::string& path, const CancelTest& isCancelled) {
    struct stat st{};
    if (::lstat(path.c_str(), &st) != 0) return {0, 1};
    if (!S_ISDIR(st.st_mode)) return {allocatedBytes(st), 0};
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return {0, 1};
    Walk walk(isCancelled);
    walk.folder(fd);
    return {walk.bytes, walk.unreadable};
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

    std::vector<std::future<MeasuredSize>> sizes;
    sizes.reserve(folders.size());
    for (const FolderUsage& folder : folders)
        sizes.push_back(std::async(std::launch::async, [&isCancelled, url = folder.url] {
            return allocatedSize(url, isCancelled);
        }));
    for (std::size_t i = 0; i < folders.size(); ++i) {
        const MeasuredSize size = sizes[i].get();
        folders[i].bytes = size.bytes;
        folders[i].unreadable = size.unreadable;
    }
    std::stable_sort(folders.begin(), folders.end(),
                     [](const FolderUsage& a, const FolderUsage& b) { return a.bytes > b.bytes; });
    return folders;
}

std::optional<bool> FullDiskAccess::isGranted(const std::string& home) {
    const std::string safari = home + "/Library/Safari";
    struct stat st{};
    if (::stat(safari.c_str(), &st) != 0) return std::nullopt;
    DIR* dir = ::opendir(safari.c_str());
    if (!dir) return false;
    ::closedir(dir);
    return true;
}

}  // namespace brimlet
