#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "core/cleanup/ApprovalScanner.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;
using kestrow::testing::writeFile;

const auto never = [] { return false; };

TEST(ApprovalScanner, NodeModulesDepthActivityAndProtectedRoots) {
    TempFolder home;
    const auto now = std::chrono::system_clock::now();
    writeFile(home / "a/node_modules/x/node_modules/y/i.js", "1");  // nested: reported once
    writeFile(home / "a/package.json", "{}");
    writeFile(home / "b/c/d/e/f/node_modules/i.js", "1");    // node_modules at depth 6
    writeFile(home / "b/c/d/e/f/g/node_modules/i.js", "1");  // depth 7: beyond the scan
    writeFile(home / "old/node_modules/i.js", "1");
    writeFile(home / ".hidden/node_modules/i.js", "1");
    writeFile(home / "Pictures/site/node_modules/i.js", "1");
    writeFile(home / "Library/app/node_modules/i.js", "1");
    const auto stale = fs::file_time_type::clock::now() - std::chrono::hours(24 * 40);
    fs::last_write_time(home / "old/node_modules/i.js", stale);
    fs::last_write_time(home / "old/node_modules", stale);

    ApprovalScanner scanner(home.path());
    scanner.now = [now] { return std::chrono::time_point_cast<std::chrono::microseconds>(now); };
    const auto items = scanner.nodeModulesItems(never);
    std::vector<std::string> ids;
    for (const auto& item : items) ids.push_back(item.id);
    EXPECT_EQ(ids, (std::vector<std::string>{"node-modules:a/node_modules", "node-modules:b/c/d/e/f/node_modules",
                                             "node-modules:old/node_modules"}));
    EXPECT_EQ(items[0].title, "node_modules in a");
    EXPECT_EQ(items[0].detail, "node_modules \u2014 reinstall with your package manager.");
    EXPECT_EQ(items[0].kind, CleanupKind(CleanupKind::personal));
    EXPECT_EQ(items[0].isActive, true);
    EXPECT_EQ(items[2].isActive, false);
    EXPECT_EQ(items[2].note, "Not used in the last 30 days");

    EXPECT_EQ(scanner.isActive(home / "nothing/node_modules"), std::nullopt);
    int polls = 0;
    scanner.nodeModulesItems([&] { return ++polls, true; });
    EXPECT_EQ(polls, 0);  // a tiny tree finishes before the first poll
}

TEST(ApprovalScanner, VirtualMachinesBlockedWhileTheyRun) {
    TempFolder home;
    fs::create_directories(home / "Library/Containers/com.docker.docker/Data/vms/0");
    fs::create_directories(home / ".colima/default");
    ApprovalScanner scanner(home.path());
    scanner.runningProcessNames = [] { return std::vector<std::string>{"bash", "com.docker.back"}; };
    auto items = scanner.virtualMachineItems();
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].id, "docker-vm");
    EXPECT_EQ(items[0].title, "Docker Desktop VM");
    EXPECT_EQ(items[0].blockedReason, "Docker Desktop VM is running \u2014 quit it first");  // 15-character name
    EXPECT_EQ(items[1].id, "colima-vm");
    EXPECT_EQ(items[1].url, home / ".colima");
    EXPECT_FALSE(items[1].blockedReason);
    scanner.runningProcessNames = [] { return std::vector<std::string>{"limactl"}; };
    EXPECT_TRUE(scanner.virtualMachineItems()[1].blockedReason);
    EXPECT_FALSE(scanner.virtualMachineItems()[0].blockedReason);
}

TEST(ApprovalScanner, DuplicateInstallersByContent) {
    TempFolder home;
    const std::string bytes(70000, 'q');
    writeFile(home / "Downloads/App.dmg", bytes);
    writeFile(home / "Downloads/App (1).dmg", bytes);
    writeFile(home / "Desktop/App.DMG", bytes);
    writeFile(home / "Downloads/Same size.zip", std::string(69999, 'q') + "r");
    writeFile(home / "Downloads/notes.txt", bytes);  // not an installer
    fs::create_symlink(home / "Downloads/App.dmg", home / "Desktop/link.dmg");
    const auto old = fs::file_time_type::clock::now() - std::chrono::hours(5);
    fs::last_write_time(home / "Downloads/App (1).dmg", old);  // the oldest copy is kept

    ApprovalScanner scanner(home.path());
    const auto items = scanner.duplicateInstallerItems(never);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].id, "duplicate:Desktop/App.DMG");
    EXPECT_EQ(items[1].id, "duplicate:Downloads/App.dmg");
    for (const auto& item : items) {
        EXPECT_EQ(item.requiresExisting, home / "Downloads/App (1).dmg");
        EXPECT_EQ(item.detail, "Same bytes as App (1).dmg in Downloads, which is kept.");
    }
}

}  // namespace
}  // namespace brimlet
