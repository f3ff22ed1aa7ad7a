// The freedesktop.org Trash: what Linux desktops show as the Trash and can restore from. An item
// is described in info/NAME.trashinfo (written first, exclusively) and then renamed into files/NAME.
// Nothing here ever erases: an item that cannot be trashed stays where it is.
#pragma once

#include "base/Status.hpp"

#include <optional>
#include <string>
#include <string_view>

#include "base/IsoDate.hpp"

namespace brimlet {

class FreedesktopTrash {
public:
    // The home trash: $XDG_DATA_HOME/Trash, by default ~/.local/share/Trash.
    static std::string homeTrashPath();

    explicit FreedesktopTrash(std::string homeTrash = homeTrashPath()) : homeTrash_(std::move(homeTrash)) {}

    // Moves the item into the trash of its own file system; an error text when it cannot.
    kestrow::Status trash(const std::string& path) const;

    // The trash that takes items from this mount: the home trash when the item lives on the same
    // device, else $topdir/.Trash/$uid (only below a real, sticky .Trash) or $topdir/.Trash-$uid.
    std::optional<std::string> trashFor(const std::string& path) const;

    // "Path=" value: every byte but unreserved ones and "/" percent-encoded.
    static std::string escapePath(std::string_view path);
    static std::string trashInfo(std::string_view path, kestrow::Date deletedAt);

private:
    std::string homeTrash_;
};

}  // namespace brimlet
