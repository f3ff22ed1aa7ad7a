// The application's main menu: the application, Edit and Window menus a menu-bar app still needs
// while one of its windows is in front, so that Close, Quit and the text commands (copy, paste,
// select all, in the report and the save panel's name field) answer their usual keys. The front end
// maps each command to the system's own action.
#pragma once

#include <string>
#include <vector>

namespace brimlet {

enum class MenuCommand {
    separator,
    about,
    settings,
    hide,
    hideOthers,
    showAll,
    quit,
    undo,
    redo,
    cut,
    copy,
    paste,
    selectAll,
    minimize,
    zoom,
    close,
    bringAllToFront,
};

struct MenuEntry {
    std::string title;
    MenuCommand command = MenuCommand::separator;
    std::string key;      // the key equivalent, lower case; empty: none
    bool shift = false;   // with Shift besides Command
    bool option = false;  // with Option besides Command
    bool operator==(const MenuEntry&) const = default;
};

struct Menu {
    std::string title;
    std::vector<MenuEntry> entries;
    bool isWindowsMenu = false;  // the system lists the open windows in it
    bool operator==(const Menu&) const = default;
};

namespace MainMenu {
std::vector<Menu> menus();
}

}  // namespace brimlet
