// Before a tree is removed for good, one look at all of it: removal must neither cross onto another
// file system (as `rm --one-file-system` never does) nor stop half way on a folder this user cannot
// empty. An item that fails the look is left exactly as it was.
#pragma once

#include <string>

#include "EntryStatus.hpp"
#include "Pinning.hpp"
#include "base/Status.hpp"

namespace brimlet {

namespace RemovalCheck {
// The reasons, each followed by ": " and the entry that decided it.
inline constexpr const char* mountInside = "Another file system is mounted inside it \u2014 nothing was removed";
inline constexpr const char* mountRoot = "It is the root of a mounted file system \u2014 nothing was removed";
inline constexpr const char* notRemovable = "It holds a folder you cannot remove \u2014 nothing was removed";

// Success when every folder of the tree is readable, writable and searchable by this user, its
// parent folder lets this user remove it, and no entry lies on another file system. The reader
// is the seam through which tests stand a mount in without mounting anything.
kestrow::Status wholeTree(const PinnedItem& item, const EntryReader& reader = readEntryStatus);
// The same for a path, pinned first.
kestrow::Status wholeTree(const std::string& path, const EntryReader& reader = readEntryStatus);

// The part of the look that a move to the Trash needs as much as a removal: the item is not
// itself a mount's root, and no other file system is mounted anywhere inside it. `census` is the
// measuring pass just made through the same pinned item; where it could not read every folder,
// the system's mount table answers for the parts it could not see.
kestrow::Status noMountInside(const PinnedItem& item, const std::optional<std::string>& mountSeen, bool partlyUnread,
                              const std::vector<std::string>& mountPoints, const EntryReader& reader = readEntryStatus);
}  // namespace RemovalCheck

}  // namespace brimlet
