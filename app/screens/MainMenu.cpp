#include "MainMenu.hpp"

#include "app/screens/MonitorReadout.hpp"

namespace brimlet::MainMenu {

namespace {

MenuEntry entry(std::string title, MenuCommand command, std::string key = {}, bool shift = false, bool option = false) {
    return MenuEntry{std::move(title), command, std::move(key), shift, option};
}

const MenuEntry line{};

}  // namespace

std::vector<Menu> menus() {
    const std::string product(MonitorReadout::productName);
    Menu application{product, {}, false};
    application.entries = {
        entry("About " + product, MenuCommand::about),
        line,
        entry(std::string(MonitorReadout::settingsTitle) + "\u2026", MenuCommand::settings, ","),
        line,
        entry("Hide " + product, MenuCommand::hide, "h"),
        entry("Hide Others", MenuCommand::hideOthers, "h", false, true),
        entry("Show All", MenuCommand::showAll),
        line,
        entry("Quit " + product, MenuCommand::quit, "q"),
    };
    Menu edit{"Edit", {}, false};
    edit.entries = {
        entry("Undo", MenuCommand::undo, "z"),
        entry("Redo", MenuCommand::redo, "z", true),
        line,
        entry("Cut", MenuCommand::cut, "x"),
        entry("Copy", MenuCommand::copy, "c"),
        entry("Paste", MenuCommand::paste, "v"),
        entry("Select All", MenuCommand::selectAll, "a"),
    };
    Menu window{"Window", {}, true};
    window.entries = {
        entry("Minimize", MenuCommand::minimize, "m"),
        entry("Zoom", MenuCommand::zoom),
        entry("Close", MenuCommand::close, "w"),
        line,
        entry("Bring All to Front", MenuCommand::bringAllToFront),
    };
    return {application, edit, window};
}

}  // namespace brimlet::MainMenu
