// The freedesktop.org Trash: what Linux desktops show as the Trash and can restore from. An item
// is described in info/NAME.trashinfo (claimed first, exclusively, with its whole text) and then
// renamed into files/NAME. Nothing here ever erases: an item that cannot be trashed stays where it
// is, and the only files this code ever deletes are its own unfinished info files.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "../Pinning.hpp"
#include "base/IsoDate.hpp"
#include "base/Status.hpp"

namespace brimlet {

class FreedesktopTrash {
public:
    // The line that marks an info file as written by this program. Readers of the Trash ignore
    // keys they do not know; it lets the clean-up of orphans tell our files from anyone else's.
    static constexpr const char* ownMarker = "X-Kestrow-Trashed-By=KestrowBrimlet";
    // The name start of the temporary file an info text is written to before it is claimed.
    static constexpr const char* pendingPrefix = ".kestrow-trashinfo-";
    // Unfinished files younger than this may belong to a trash operation still under way.
    static constexpr std::chrono::seconds orphanAge{60};

    // The home trash: $XDG_DATA_HOME/Trash, by default ~/.local/share/Trash.
    static std::string homeTrashPath();

    explicit FreedesktopTrash(std::string homeTrash = homeTrashPath()) : homeTrash_(std::move(homeTrash)) {}

    // Moves the pinned item, through the folder that holds it, into the trash of its own file
    // system, whose files/ and info/ folders are opened without following a link; an error text
    // when it cannot.
    kestrow::Status trash(const PinnedItem& item) const;
    // The same for a path, pinned first (no link anywhere on it).
    kestrow::Status trash(const std::string& path) const;

    // The trash folder (holding files/ and info/) that takes items from this mount: the home trash
    // when the item lives on the same device, else $topdir/.Trash/$uid (only below a real, sticky
    // .Trash) or $topdir/.Trash-$uid. When there is none, what went wrong, with the system's reason.
    [[nodiscard]] kestrow::Result<std::string> trashFor(const std::string& path) const;
    [[nodiscard]] kestrow::Result<std::string> trashFor(const std::string& path, dev_t itemDevice) const;

    // Removes, from a trash folder, info files this program wrote whose item never arrived in
    // files/ (the program was stopped between the two steps) and its own stale temporary files,
    // once they are older than orphanAge. Never a file of another program or another user.
    void removeOrphans(const std::string& trashFolder) const;

    // "Path=" value: every byte but unreserved ones and "/" percent-encoded.
    static std::string escapePath(std::string_view path);
    static std::string trashInfo(std::string_view path, kestrow::Date deletedAt);

    // The device of a path, not following a final link. Tests replace it to stand a mount in.
    std::function<std::optional<dev_t>(const std::string& path)> deviceOf;

private:
    std::optional<dev_t> device(const std::string& path) const;
    std::string mountTop(const std::string& path, dev_t device) const;

    std::string homeTrash_;
};

}  // namespace brimlet
