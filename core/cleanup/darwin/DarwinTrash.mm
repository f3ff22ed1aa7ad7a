// The user's Trash through the file manager, which knows every volume's Trash. The file manager
// takes a URL, that is a path, which another process could swap between any check and the move.
// So the item is first renamed, through the descriptor of the folder that holds it, into a private
// holding folder of ours on the same volume (created and opened without following links, owned by
// this user, mode 0700), in a folder of its own there; only that name, which no one else can
// change, is handed to the file manager. If the Trash refuses, the item is renamed back.
#import <Foundation/Foundation.h>

#include <fcntl.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "../Cleaner.hpp"
#include "../TrashNaming.hpp"
#include "DarwinFileURL.hpp"
#include "base/Files.hpp"

namespace brimlet {

namespace {

kestrow::Status failed(const std::string& what, int error) {
    return kestrow::Status::failure(what + ": " + std::strerror(error));
}

bool sameFile(int a, int b) {
    struct stat sa {
    }, sb{};
    return ::fstat(a, &sa) == 0 && ::fstat(b, &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

// Creates (when missing) and opens the holding folder; it must be a real folder of this user that
// no one else may enter, on the item's volume.
Descriptor openHoldingFolder(const std::string& path, std::uint64_t device, int& error) {
    const std::size_t slash = path.rfind('/');
    const std::string parent = slash == 0 ? "/" : path.substr(0, slash), name = path.substr(slash + 1);
    Descriptor above(openFolderNoLinks(parent, Resolution::fastest));
    if (!above.valid()) {
        error = errno;
        return Descriptor();
    }
    if (::mkdirat(above.get(), name.c_str(), 0700) != 0 && errno != EEXIST) {
        error = errno;
        return Descriptor();
    }
    Descriptor holding(::openat(above.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st {};
    if (!holding.valid() || ::fstat(holding.get(), &st) != 0) {
        error = errno;
        return Descriptor();
    }
    if (st.st_uid != ::getuid() || (st.st_mode & 077) != 0 || static_cast<std::uint64_t>(st.st_dev) != device) {
        error = EPERM;
        return Descriptor();
    }
    return holding;
}

} // namespace

kestrow::Status LiveFileOperations::moveToTrash(const PinnedItem& item) {
    const std::string home = kestrow::realHomeFolder();
    struct stat homeStatus {};
    struct statfs volume {};
    if (::stat(home.c_str(), &homeStatus) != 0 || ::fstatfs(item.parent.get(), &volume) != 0)
        return failed("cannot find the holding folder", errno);
    const bool onHomeVolume = static_cast<std::uint64_t>(homeStatus.st_dev) == item.status.device;
    const std::string holdingPath = TrashNaming::holdingFolder(home, onHomeVolume, volume.f_mntonname, ::getuid());
    int error = 0;
    const Descriptor holding = openHoldingFolder(holdingPath, item.status.device, error);
    if (!holding.valid()) return failed("cannot prepare the holding folder", error);

    std::uint64_t random = 0;
    if (::getentropy(&random, sizeof random) != 0) return failed("cannot prepare the holding folder", errno);
    const std::string entry = TrashNaming::holdingEntry(random);
    if (::mkdirat(holding.get(), entry.c_str(), 0700) != 0) return failed("cannot prepare the holding folder", errno);
    const Descriptor place(::openat(holding.get(), entry.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!place.valid()) {
        error = errno;
        ::unlinkat(holding.get(), entry.c_str(), AT_REMOVEDIR);
        return failed("cannot prepare the holding folder", error);
    }
    // Moved only while the name still holds the pinned item.
    if (!Pinning::unchanged(item)) {
        ::unlinkat(holding.get(), entry.c_str(), AT_REMOVEDIR);
        return kestrow::Status::failure("cannot move to the Trash: it changed since it was checked");
    }
    if (::renameatx_np(item.parent.get(), item.name.c_str(), place.get(), item.name.c_str(), RENAME_EXCL) != 0) {
        error = errno;
        ::unlinkat(holding.get(), entry.c_str(), AT_REMOVEDIR);
        return failed("cannot move to the Trash", error);
    }
    const std::string heldPath = holdingPath + "/" + entry + "/" + item.name;
    auto putBack = [&](const std::string& why) {
        if (::renameatx_np(place.get(), item.name.c_str(), item.parent.get(), item.name.c_str(), RENAME_EXCL) == 0) {
            ::unlinkat(holding.get(), entry.c_str(), AT_REMOVEDIR);
            return kestrow::Status::failure(why);
        }
        return kestrow::Status::failure(why + " \u2014 the item is kept at " + heldPath);
    };
    // The path handed over must lead, with no link on the way, to the folder we hold.
    const Descriptor check(openFolderNoLinks(holdingPath + "/" + entry, Resolution::fastest));
    if (!check.valid() || !sameFile(check.get(), place.get()))
        return putBack("cannot move to the Trash: the holding folder changed");
    @autoreleasepool {
        NSURL* url = fileURLForPath(heldPath);
        if (url == nil) return putBack("cannot form a file URL for the path");
        NSError* nsError = nil;
        if (![[NSFileManager defaultManager] trashItemAtURL:url resultingItemURL:nil error:&nsError])
            return putBack(describe(nsError, "cannot move to the Trash"));
    }
    ::unlinkat(holding.get(), entry.c_str(), AT_REMOVEDIR);
    return kestrow::Status::success();
}

} // namespace brimlet
