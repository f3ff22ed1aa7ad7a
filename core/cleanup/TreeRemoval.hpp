// Permanent removal of a file or a whole folder tree through descriptors. Links are removed, never
// followed; nothing on another file system is entered or removed; a folder swapped for something
// else while the removal runs is left alone; the walk holds a bounded number of descriptors however
// deep the tree. A failure names the entry that could not be removed.
#pragma once

#include <functional>
#include <string>

#include "EntryStatus.hpp"
#include "Pinning.hpp"
#include "base/Status.hpp"

namespace brimlet {

struct TreeRemoval {
    // Called with each entry's path just before it is removed, deepest first; tests use it to change
    // the tree while the removal runs.
    using Observer = std::function<void(const std::string& path)>;

    // Removes the pinned item, which must still be the file it was when pinned.
    static kestrow::Status remove(const PinnedItem& item, const Observer& beforeEach = {},
                                  const EntryReader& reader = readEntryStatus);
    // The same for a full path, pinned first (no link anywhere on it).
    static kestrow::Status remove(const std::string& path, const Observer& beforeEach = {},
                                  const EntryReader& reader = readEntryStatus);

    static constexpr const char* changedText = "it changed while it was being removed: ";
};

}  // namespace brimlet
