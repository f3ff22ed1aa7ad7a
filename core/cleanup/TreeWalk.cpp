#include "TreeWalk.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace brimlet {

DIR* openListedFolder(int folder, const char* name, const EntryStatus& expected) {
    const int fd = ::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return nullptr;
    struct stat opened {};
    if (::fstat(fd, &opened) != 0 || static_cast<std::uint64_t>(opened.st_dev) != expected.device ||
        static_cast<std::uint64_t>(opened.st_ino) != expected.inode) {
        ::close(fd);
        errno = ESTALE;
        return nullptr;
    }
    DIR* dir = ::fdopendir(fd);
    if (!dir) {
        const int error = errno;
        ::close(fd);
        errno = error;
    }
    return dir;
}

std::string TreeWalk::currentPath() const {
    std::string path = rootPath_;
    for (std::size_t i = 1; i < frames_.size(); ++i) path += "/" + frames_[i].name;
    return path;
}

std::string TreeWalk::pathOf(const char* name) const { return currentPath() + "/" + name; }

std::vector<std::size_t> TreeWalk::position() const {
    std::vector<std::size_t> places;
    // A folder on the path was taken from its parent's list just before it was entered.
    for (std::size_t i = 1; i < frames_.size(); ++i) places.push_back(frames_[i - 1].next - 1);
    return places;
}

std::size_t TreeWalk::openCount() const {
    return static_cast<std::size_t>(
        std::count_if(frames_.begin(), frames_.end(), [](const Frame& frame) { return frame.dir != nullptr; }));
}

void TreeWalk::closeFrame(Frame& frame) {
    if (frame.dir) ::closedir(frame.dir);
    frame.dir = nullptr;
}

void TreeWalk::closeAll() {
    for (Frame& frame : frames_) closeFrame(frame);
    frames_.clear();
}

bool TreeWalk::usesPlatformReader() const {
    using Read = std::optional<EntryStatus> (*)(int, const char*);
    const Read* target = reader.target<Read>();
    return target && *target == &readEntryStatus;
}

// The same walk over a folder listed in bulk: entries whose status the listing could not give are
// read one by one, as the plain listing reads them all.
bool TreeWalk::listInBulk(Frame& frame, BulkFolder& listed) {
    if (listed.error != 0) {
        if (trouble && !trouble(nullptr, {listed.error, false})) return false;
    }
    if (sorted)
        std::sort(listed.entries.begin(), listed.entries.end(),
                  [](const BulkEntry& a, const BulkEntry& b) { return a.name < b.name; });
    const int fd = ::dirfd(frame.dir);
    for (BulkEntry& listedEntry : listed.entries) {
        const char* name = listedEntry.name.c_str();
        int error = 0;
        if (!listedEntry.status) {
            errno = 0;
            listedEntry.status = reader(fd, name);
            error = listedEntry.status ? 0 : (errno != 0 ? errno : ENOENT);
        }
        const auto& status = listedEntry.status;
        const Next next = entry ? entry(fd, name, status ? &*status : nullptr, error) : Next::skip;
        if (next == Next::stop) return false;
        if (next == Next::descend && status) frame.folders.emplace_back(listedEntry.name, *status);
    }
    return true;
}

bool TreeWalk::list(Frame& frame) {
    if (bulkLister && usesPlatformReader()) {
        if (auto listed = bulkLister(::dirfd(frame.dir))) return listInBulk(frame, *listed);
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = ::readdir(frame.dir)) {
        const char* name = entry->d_name;
        if (!(name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))) names.emplace_back(name);
        errno = 0;
    }
    if (errno != 0) {
        // The listing broke off part way: what was listed is still walked after the report.
        if (trouble && !trouble(nullptr, {errno, false})) return false;
    }
    if (sorted) std::sort(names.begin(), names.end());
    const int fd = ::dirfd(frame.dir);
    for (const std::string& name : names) {
        errno = 0;
        const auto status = reader(fd, name.c_str());
        const int error = status ? 0 : (errno != 0 ? errno : ENOENT);
        const Next next = entry ? entry(fd, name.c_str(), status ? &*status : nullptr, error) : Next::skip;
        if (next == Next::stop) return false;
        if (next == Next::descend && status) frame.folders.emplace_back(name, *status);
    }
    return true;
}

// The folder above the top one was closed to stay under the bound: it is reached again through
// the top folder's "..", and must be the very folder that was left.
bool TreeWalk::reopenParentOfTop() {
    Frame& top = frames_.back();
    Frame& parent = frames_[frames_.size() - 2];
    parent.dir = openListedFolder(::dirfd(top.dir), "..", parent.status);
    return parent.dir != nullptr;
}

bool TreeWalk::run(DIR* dir, const EntryStatus& status, const std::string& path) {
    closeAll();
    rootPath_ = path;
    frames_.push_back({std::string(), status, dir, {}, 0});
    if (!list(frames_.back())) {
        closeAll();
        return false;
    }
    while (!frames_.empty()) {
        Frame& top = frames_.back();
        if (top.next < top.folders.size()) {
            const std::pair<std::string, EntryStatus> child = top.folders[top.next++];
            if (enter && !enter(::dirfd(top.dir), child.first.c_str(), child.second)) {
                closeAll();
                return false;
            }
            DIR* childDir = openListedFolder(::dirfd(top.dir), child.first.c_str(), child.second);
            if (!childDir) {
                const Trouble why{errno, errno == ESTALE};
                if (trouble && !trouble(child.first.c_str(), why)) {
                    closeAll();
                    return false;
                }
                continue;
            }
            frames_.push_back({child.first, child.second, childDir, {}, 0});
            if (handOff && handOff(childDir)) {
                frames_.pop_back();  // the descriptor is no longer this walk's to close
                continue;
            }
            // Over the bound: let go of the oldest folder still held; it is reopened through "..".
            if (frames_.size() > maxOpen) closeFrame(frames_[frames_.size() - 1 - maxOpen]);
            if (!list(frames_.back())) {
                closeAll();
                return false;
            }
            continue;
        }
        if (frames_.size() == 1) {
            closeAll();
            return true;
        }
        if (!frames_[frames_.size() - 2].dir && !reopenParentOfTop()) {
            if (trouble) trouble(nullptr, {errno, true});
            closeAll();
            return false;
        }
        Frame done = std::move(frames_.back());
        closeFrame(done);
        frames_.pop_back();
        if (leave && !leave(::dirfd(frames_.back().dir), done.name.c_str(), done.status)) {
            closeAll();
            return false;
        }
    }
    return true;
}

}  // namespace brimlet
