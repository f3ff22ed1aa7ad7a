// The main menu a menu-bar app still needs while one of its windows is in front: the keys people
// press without looking (⌘W, ⌘Q, ⌘C, ⌘V, ⌘A) each lead to their command, and no key is taken twice.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <tuple>

#include "app/screens/MainMenu.hpp"

namespace brimlet {
namespace {

TEST(MainMenu, TheUsualKeysLeadToTheirCommandsAndNoKeyIsTakenTwice) {
    const std::vector<Menu> menus = MainMenu::menus();
    ASSERT_EQ(menus.size(), 3u);
    EXPECT_EQ(menus[0].title, "Kestrow Brimlet");
    EXPECT_EQ(menus[1].title, "Edit");
    EXPECT_EQ(menus[2].title, "Window");
    EXPECT_TRUE(menus[2].isWindowsMenu);

    std::map<std::string, MenuCommand> plainKeys;
    std::set<std::tuple<std::string, bool, bool>> taken;
    for (const Menu& menu : menus)
        for (const MenuEntry& entry : menu.entries) {
            if (entry.command == MenuCommand::separator) {
                EXPECT_TRUE(entry.title.empty() && entry.key.empty());
                continue;
            }
            EXPECT_FALSE(entry.title.empty());
            if (entry.key.empty()) continue;
            EXPECT_TRUE(taken.emplace(entry.key, entry.shift, entry.option).second) << entry.title;
            if (!entry.shift && !entry.option) plainKeys[entry.key] = entry.command;
        }
    const std::pair<std::string, MenuCommand> expected[] = {
        {"w", MenuCommand::close}, {"q", MenuCommand::quit},      {"c", MenuCommand::copy},
        {"v", MenuCommand::paste}, {"a", MenuCommand::selectAll}, {"x", MenuCommand::cut},
        {"z", MenuCommand::undo},  {",", MenuCommand::settings},  {"m", MenuCommand::minimize},
    };
    for (const auto& [key, command] : expected) {
        ASSERT_TRUE(plainKeys.count(key)) << key;
        EXPECT_EQ(plainKeys[key], command) << key;
    }
    EXPECT_EQ(menus[0].entries.back().title, "Quit Kestrow Brimlet");
}

}  // namespace
}  // namespace brimlet
