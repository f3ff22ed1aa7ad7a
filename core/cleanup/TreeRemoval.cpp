#include "TreeRemoval.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Cleaner.hpp"
#include "TreeWalk.hpp"

namespace brimlet {

namespace {

kestrow::Status failure(int error, const std::string& path) {
    return kestrow::Status::failure(std::string(std::strerror(error)) + ": " + path);
}

}  // namespace

kestrow::Status TreeRemoval::remove(const PinnedItem& item, const Observer& beforeEach, const EntryReader& reader) {
    const auto now = reader(item.parent.get(), item.name.c_str());
    if (!now) return failure(errno != 0 ? errno : ENOENT, item.path);
    if (!(FileIdentity::of(*now) == item.identity())) return kestrow::Status::failure(changedText + item.path);
    const int parent = item.parent.get();
    const auto folder = reader(parent, ".");
    if (now->mountRoot || !folder || folder->device != now->device)
        return kestrow::Status::failure("another file system is mounted here: " + item.path);
    if (!now->isDirectory()) {
        if (beforeEach) beforeEach(item.path);
        if (::unlinkat(parent, item.name.c_str(), 0) != 0 && errno != ENOENT) return failure(errno, item.path);
        return kestrow::Status::success();
    }
    DIR* dir = openListedFolder(parent, item.name.c_str(), *now);
    if (!dir) return errno == ESTALE ? kestrow::Status::failure(changedText + item.path) : failure(errno, item.path);

    kestrow::Status outcome = kestrow::Status::success();
    TreeWalk walk;
    walk.reader = reader;
    // The names are read first and removed in sorted order: listing a folder while entries vanish
    // from it is allowed but unpredictable, and a fixed order is easier to reason about.
    walk.sorted = true;
    walk.entry = [&](int folder, const char* name, const EntryStatus* entry, int error) {
        if (!entry) {
            if (error == ENOENT) return TreeWalk::Next::skip;
            outcome = failure(error, walk.pathOf(name));
            return TreeWalk::Next::stop;
        }
        if (crossesFileSystem(*entry, now->device)) {
            outcome = kestrow::Status::failure("another file system is mounted here: " + walk.pathOf(name));
            return TreeWalk::Next::stop;
        }
        if (entry->isDirectory()) return TreeWalk::Next::descend;
        if (beforeEach) beforeEach(walk.pathOf(name));
        if (::unlinkat(folder, name, 0) != 0 && errno != ENOENT) {
            outcome = failure(errno, walk.pathOf(name));
            return TreeWalk::Next::stop;
        }
        return TreeWalk::Next::skip;
    };
    walk.trouble = [&](const char* name, TreeWalk::Trouble trouble) {
        const std::string where = name ? walk.pathOf(name) : walk.currentPath();
        outcome = trouble.changed ? kestrow::Status::failure(changedText + where) : failure(trouble.error, where);
        return false;
    };
    walk.leave = [&](int folder, const char* name, const EntryStatus&) {
        if (beforeEach) beforeEach(walk.pathOf(name));
        if (::unlinkat(folder, name, AT_REMOVEDIR) != 0 && errno != ENOENT) {
            outcome = failure(errno, walk.pathOf(name));
            return false;
        }
        return true;
    };
    walk.run(dir, *now, item.path);
    if (outcome.failed()) return outcome;
    if (beforeEach) beforeEach(item.path);
    if (::unlinkat(parent, item.name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) return failure(errno, item.path);
    return kestrow::Status::success();
}

kestrow::Status TreeRemoval::remove(const std::string& path, const Observer& beforeEach, const EntryReader& reader) {
    if (path.empty() || path.front() != '/' || path.back() == '/')
        return kestrow::Status::failure("not a full path: " + path);
    int error = 0;
    const auto item = Pinning::pin(path, error, Resolution::fastest, reader);
    if (!item) return failure(error, path);
    return remove(*item, beforeEach, reader);
}

kestrow::Status LiveFileOperations::removePermanently(const PinnedItem& item) { return TreeRemoval::remove(item); }

}  // namespace brimlet
