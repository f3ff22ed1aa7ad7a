// The one depth-first walk of a folder tree that measuring, the look before a removal and the
// removal share. Folders are entered only through the descriptor of the folder that lists them,
// never following a link, and each one entered must still be the file its listing saw. The walk
// holds a bounded number of descriptors whatever the depth: above that many levels it closes the
// oldest and comes back up through "..", checking device and inode on the way. It builds no path
// strings while it walks (only a text that needs one asks for it), so its memory grows with the
// depth and the width of the folders on the current path, nothing more.
#pragma once

#include <dirent.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "BulkListing.hpp"
#include "EntryStatus.hpp"
#include "Pinning.hpp"

namespace brimlet {

class TreeWalk {
public:
    enum class Next { skip, descend, stop };
    // Why a folder could not be walked: the system's error, or `changed` when the folder met is
    // not the one listed (swapped, moved away, or "..", on the way back, leads somewhere else).
    struct Trouble {
        int error = 0;
        bool changed = false;
    };

    // Each entry of the folder being listed (. and .. excepted), in listing order or sorted. The
    // status is null when it cannot be read; then `error` says why. `descend` queues a folder.
    std::function<Next(int folder, const char* name, const EntryStatus* status, int error)> entry;
    // Before a queued folder is opened, with its parent folder's descriptor; false stops the walk.
    std::function<bool(int parent, const char* name, const EntryStatus& status)> enter;
    // After all of a folder's entries, with its parent folder's descriptor; false stops the walk.
    std::function<bool(int parent, const char* name, const EntryStatus& status)> leave;
    // A folder that cannot be opened or listed (name null: the one being listed); false stops.
    std::function<bool(const char* name, Trouble trouble)> trouble;

    EntryReader reader = readEntryStatus;  // tests stand a mount in through it
    // Lists a folder with its entries' statuses in one go where the platform can. It stands in for
    // the reader only while the reader is the platform's own, so a reader given in its place
    // still sees every entry.
    std::function<std::optional<BulkFolder>(int folder)> bulkLister = listFolderInBulk;
    // Offered each folder the walk has just opened and checked, before it is listed: true when the
    // hook took the descriptor, and then this walk neither lists nor leaves that folder but goes on
    // with the next one. While it runs, the current folder (its path, status and position) is the
    // one offered. Only for walks whose outcome does not depend on the order entries are met in.
    std::function<bool(DIR* dir)> handOff;
    bool sorted = false;       // list entries in byte order (a removal's fixed order)
    std::size_t maxOpen = 16;  // descriptors held at most, below the caller's own

    // Walks the folder `dir` (taken over; opened with openListedFolder) whose status is `status`;
    // `path` names it in texts. False when a hook stopped the walk.
    bool run(DIR* dir, const EntryStatus& status, const std::string& path);

    // The path of `name` in the folder being walked, for texts.
    std::string pathOf(const char* name) const;
    std::string currentPath() const;
    const EntryStatus& currentStatus() const { return frames_.back().status; }
    std::size_t depth() const { return frames_.size(); }
    // Where the current folder lies below the root: for each folder on the way down, its place
    // among the folders its parent queued. Positions compared as sequences order the folders as
    // one walk meets their entries: a folder's entries before those of any folder inside it.
    std::vector<std::size_t> position() const;
    // Descriptors open now (for the tests of the bound).
    std::size_t openCount() const;

private:
    struct Frame {
        std::string name;
        EntryStatus status;
        DIR* dir = nullptr;  // null while closed to stay under the bound
        std::vector<std::pair<std::string, EntryStatus>> folders;
        std::size_t next = 0;
    };
    bool list(Frame& frame);
    bool listInBulk(Frame& frame, BulkFolder& listed);
    bool usesPlatformReader() const;
    bool reopenParentOfTop();
    void closeFrame(Frame& frame);
    void closeAll();

    std::string rootPath_;
    std::vector<Frame> frames_;
};

// Opens the folder `name` in `folder` for listing without following a link, and checks that it is
// the file `expected` describes; null (errno set, ESTALE when it is another file) when not.
DIR* openListedFolder(int folder, const char* name, const EntryStatus& expected);

}  // namespace brimlet
