#include "RemovalCheck.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "SafetyPolicy.hpp"
#include "TreeWalk.hpp"

namespace brimlet {

namespace {

// In a folder with the sticky bit only an entry's owner, the folder's owner or root may remove it.
bool stickyAllows(const EntryStatus& folder, const EntryStatus& entry) {
    if (!(folder.mode & S_ISVTX)) return true;
    const uid_t self = ::geteuid();
    return self == 0 || self == folder.owner || self == entry.owner;
}

kestrow::Status refuse(const char* reason, const std::string& path) {
    return kestrow::Status::failure(std::string(reason) + ": " + path);
}

// The pinned item's own folder, and whether the item is a mount's root: the same test for both looks.
kestrow::Status itemItself(const PinnedItem& item, const EntryReader& reader, std::optional<EntryStatus>& parent) {
    const std::string parentPath = item.parentPath();
    if (item.status.mountRoot) return refuse(RemovalCheck::mountRoot, item.path);
    parent = reader(item.parent.get(), ".");
    if (!parent || crossesFileSystem(item.status, parent->device)) return refuse(RemovalCheck::mountRoot, item.path);
    return kestrow::Status::success();
}

}  // namespace

kestrow::Status RemovalCheck::wholeTree(const PinnedItem& item, const EntryReader& reader) {
    std::optional<EntryStatus> parent;
    if (kestrow::Status own = itemItself(item, reader, parent); own.failed()) return own;
    if (::faccessat(item.parent.get(), ".", W_OK | X_OK, AT_EACCESS) != 0 || !stickyAllows(*parent, item.status))
        return refuse(notRemovable, item.parentPath());
    if (!item.status.isDirectory()) return kestrow::Status::success();

    // Emptying a folder needs all three: list it (read), enter it (search), unlink (write).
    if (::faccessat(item.parent.get(), item.name.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) != 0)
        return refuse(notRemovable, item.path);
    DIR* dir = openListedFolder(item.parent.get(), item.name.c_str(), item.status);
    if (!dir) return refuse(notRemovable, item.path);

    kestrow::Status outcome = kestrow::Status::success();
    TreeWalk walk;
    walk.reader = reader;
    walk.enter = [&](int folder, const char* name, const EntryStatus&) {
        if (::faccessat(folder, name, R_OK | W_OK | X_OK, AT_EACCESS) == 0) return true;
        outcome = refuse(notRemovable, walk.pathOf(name));
        return false;
    };
    walk.entry = [&](int, const char* name, const EntryStatus* entry, int) {
        if (!entry) return TreeWalk::Next::skip;  // vanished while we looked: nothing left to remove there
        if (crossesFileSystem(*entry, item.status.device)) {
            outcome = refuse(mountInside, walk.pathOf(name));
            return TreeWalk::Next::stop;
        }
        if (!stickyAllows(walk.currentStatus(), *entry)) {
            outcome = refuse(notRemovable, walk.pathOf(name));
            return TreeWalk::Next::stop;
        }
        return entry->isDirectory() ? TreeWalk::Next::descend : TreeWalk::Next::skip;
    };
    walk.trouble = [&](const char* name, TreeWalk::Trouble) {
        outcome = refuse(notRemovable, name ? walk.pathOf(name) : walk.currentPath());
        return false;
    };
    walk.run(dir, item.status, item.path);
    return outcome;
}

kestrow::Status RemovalCheck::wholeTree(const std::string& path, const EntryReader& reader) {
    int error = 0;
    const auto item = Pinning::pin(path, error, Resolution::fastest, reader);
    if (!item) {
        if (error == ENOENT) return kestrow::Status::success();  // already gone: the removal reports it as it stands
        return refuse(notRemovable, path);
    }
    return wholeTree(*item, reader);
}

kestrow::Status RemovalCheck::noMountInside(const PinnedItem& item, const std::optional<std::string>& mountSeen,
                                            bool partlyUnread, const std::vector<std::string>& mountPoints,
                                            const EntryReader& reader) {
    std::optional<EntryStatus> parent;
    if (kestrow::Status own = itemItself(item, reader, parent); own.failed()) return own;
    if (mountSeen) return refuse(mountInside, *mountSeen);
    if (partlyUnread) {
        for (const std::string& point : mountPoints)
            if (isInside(point, item.path)) return refuse(mountInside, point);
    }
    return kestrow::Status::success();
}

}  // namespace brimlet
