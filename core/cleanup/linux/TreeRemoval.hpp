// Permanent removal of a file or a whole folder tree on Linux. Links are removed, never followed;
// nothing on another file system is entered or removed; a folder swapped for something else while
// the removal runs is left alone. A failure names the entry that could not be removed.
#pragma once

#include <functional>
#include <string>

#include "../EntryStatus.hpp"
#include "base/Status.hpp"

namespace brimlet {

struct TreeRemoval {
    // Called with each entry's path just before it is removed, deepest first; tests use it to change
    // the tree while the removal runs.
    using Observer = std::function<void(const std::string& path)>;

    static kestrow::Status remove(const std::string& path, const Observer& beforeEach = {},
                                  const EntryReader& reader = readEntryStatus);
};

}  // namespace brimlet
