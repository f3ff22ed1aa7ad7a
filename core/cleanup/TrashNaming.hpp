// Names for the Trash that every platform's mover shares: the name an item takes in a Trash
// folder, and the private holding folder an item is moved into before the system's Trash is asked
// to take it by path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace brimlet {

namespace TrashNaming {
// The longest name most file systems allow, in bytes.
inline constexpr std::size_t nameMax = 255;
// An item and its info file (NAME.trashinfo) must both fit.
inline constexpr std::size_t itemNameMax = nameMax - 10;

// The name for the attempt'th try (1 = the item's own name, then NAME.2, NAME.3 ...). A name
// too long to fit keeps its start and its extension, joined by "~", cut on a character
// boundary; the info file keeps the original path, so nothing of the name is lost.
std::string trashName(std::string_view name, int attempt, std::size_t maxBytes = itemNameMax);

// The holding folder: on the home folder's volume, in the user's own caches; on any other
// volume, at the top of that volume. Always a name of ours carrying the user id.
std::string holdingFolder(const std::string& realHome, bool onHomeVolume, const std::string& volumeTop,
                          std::uint32_t uid);
// The per-move folder inside it, from a random value: each move gets a folder of its own, so
// the item keeps its name (the Trash shows that name) and no two moves meet.
std::string holdingEntry(std::uint64_t random);
}  // namespace TrashNaming

}  // namespace brimlet
