#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "core/cleanup/Cleaner.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;

class RecordingOperations : public FileOperations {
public:
    std::vector<std::string> calls;
    bool throwOnTrash = false;
    kestrow::Status moveToTrash(const std::string& path) override {
        calls.push_back("trash " + path);
        if (throwOnTrash) throw std::runtime_error("The volume is read-only.");
        return kestrow::Status::success();
    }
    kestrow::Status removePermanently(const std::string& path) override {
        calls.push_back("remove " + path);
        return kestrow::Status::success();
    }
};

struct CleanerFixture : ::testing::Test {
    TempFolder temp;
    std::string home = temp.path();
    RecordingOperations operations;
    Cleaner cleaner{home, operations};
    std::uint64_t freeReads = 0;
    std::vector<std::string> roots;

    void SetUp() override {
        cleaner.processesUsing = [](const std::string&) { return std::vector<ProcessUse>{}; };
        cleaner.freeSpace = [this] { return 1000 + 10 * freeReads++; };
        cleaner.deleteUnavailableSimulators = [] { return std::make_pair(72, std::string("No devices are booted.")); };
        cleaner.runningVirtualMachineIDs = [](const std::string&) { return std::set<std::string>{"docker-vm"}; };
        cleaner.measure = [](const std::string&) { return std::uint64_t{4096}; };
    }

    CleanupItem item(const std::string& id, const std::string& relative, CleanupKind kind = CleanupKind::regenerable) {
        fs::create_directories(home + "/" + relative);
        roots.push_back(home + "/" + relative);
        CleanupItem i;
        i.id = id;
        i.title = id + " title";
        i.url = home + "/" + relative;
        i.kind = kind;
        return i;
    }

    std::string reasons(const CleanupReport& report) {
        std::string s;
        for (const auto& skip : report.skipped) s += skip.title + ": " + skip.reason + "\n";
        return s;
    }
};

TEST_F(CleanerFixture, EverySkipReasonInOrder) {
    CleanupItem blocked = item("blocked", ".x/blocked");
    blocked.blockedReason = "Colima VM is running \u2014 quit it first";
    CleanupItem vm = item("docker-vm", "Library/Containers/com.docker.docker/Data/vms", CleanupKind::personal);
    CleanupItem simulators = item("simulators-unavailable", "Library/Developer/CoreSimulator/Devices");
    simulators.action = CleanupAction::deleteUnavailableSimulators;
    CleanupItem copy = item("duplicate:Downloads/a 2.dmg", "Downloads/sub", CleanupKind::personal);
    copy.requiresExisting = home + "/Downloads/a.dmg";
    CleanupItem notAllowed = item("stray", "Documents/stray");
    roots.pop_back();
    const std::vector<CleanupItem> items = {blocked, vm, simulators, copy, notAllowed};

    std::vector<std::size_t> seen;
    const CleanupReport trashRun = cleaner.run(items, roots, DeleteMode::trash,
                                               [&](std::size_t i, const CleanupItem&) { seen.push_back(i); },
                                               [] { return false; });
    EXPECT_EQ(reasons(trashRun),
              "blocked title: Colima VM is running \u2014 quit it first\n"
              "docker-vm title: docker-vm title is running \u2014 quit it first\n"
              "simulators-unavailable title: Simulators can only be deleted permanently \u2014 choose Delete "
              "permanently to include them\n"
              "duplicate:Downloads/a 2.dmg title: The copy that was going to be kept (a.dmg) is gone\n"
              "stray title: Not on the cleanup allowlist\n");
    EXPECT_EQ(seen, (std::vector<std::size_t>{0, 1, 2, 3, 4}));
    EXPECT_TRUE(operations.calls.empty());  // the copy to delete was not touched
    EXPECT_EQ(trashRun.skipped[3].path, copy.url);

    const CleanupReport permanentRun =
        cleaner.run({simulators}, roots, DeleteMode::permanent, nullptr, [] { return false; });
    EXPECT_EQ(reasons(permanentRun), "simulators-unavailable title: simctl failed: No devices are booted.\n");
}

TEST_F(CleanerFixture, ModesDowngradeAndErrors) {
    const CleanupItem cache = item("npm-cache", ".npm/_cacache");
    const CleanupItem personal = item("node-modules:p/node_modules", "p/node_modules", CleanupKind::personal);
    const CleanupReport permanent =
        cleaner.run({cache, personal}, roots, DeleteMode::permanent, nullptr, [] { return false; });
    ASSERT_EQ(permanent.deleted.size(), 2u);
    EXPECT_EQ(permanent.deleted[0], (CleanupReport::Deleted{"npm-cache title", cache.url, 4096, DeleteMode::permanent, false}));
    EXPECT_EQ(permanent.deleted[1], (CleanupReport::Deleted{"node-modules:p/node_modules title", personal.url, 4096,
                                                            DeleteMode::trash, true}));
    EXPECT_EQ(operations.calls, (std::vector<std::string>{"remove " + cache.url, "trash " + personal.url}));

    const CleanupReport trash = cleaner.run({cache, personal}, roots, DeleteMode::trash, nullptr, [] { return false; });
    for (const auto& d : trash.deleted) EXPECT_FALSE(d.downgraded);

    operations.throwOnTrash = true;
    const CleanupReport failed = cleaner.run({personal}, roots, DeleteMode::trash, nullptr, [] { return false; });
    EXPECT_EQ(reasons(failed), "node-modules:p/node_modules title: Error: The volume is read-only.\n");
}

TEST_F(CleanerFixture, CancellingStopsBeforeTheNextItem) {
    const CleanupItem a = item("a-cache", ".a/cache"), b = item("b-cache", ".b/cache");
    int polls = 0;
    const CleanupReport report = cleaner.run({a, b}, roots, DeleteMode::trash, nullptr, [&] { return ++polls > 1; });
    EXPECT_TRUE(report.cancelled);
    EXPECT_EQ(report.deleted.size(), 1u);
    EXPECT_TRUE(report.skipped.empty());
    EXPECT_EQ(report.freeBefore, 1000u);
    EXPECT_EQ(report.freeAfter, 1010u);  // read again at the end

    const CleanupReport none = cleaner.run({a, b}, roots, DeleteMode::trash, nullptr, [] { return true; });
    EXPECT_TRUE(none.cancelled);
    EXPECT_TRUE(none.deleted.empty() && none.skipped.empty());
    EXPECT_EQ(none.freeAfter, 1030u);
}

TEST(CleanerReason, InUseListsThreeThenCounts) {
    std::vector<ProcessUse> users = {{11, "node"}, {12, "vite"}, {13, "esbuild"}, {14, "node"}, {15, "tsc"}};
    EXPECT_EQ(Cleaner::inUseReason(users), "In use by node (pid 11), vite (pid 12), esbuild (pid 13) and 2 more");
    users.resize(3);
    EXPECT_EQ(Cleaner::inUseReason(users), "In use by node (pid 11), vite (pid 12), esbuild (pid 13)");
}

TEST(SimulatorTool, CapturesBothStreamsAndTheStatus) {
    const auto output = SimulatorTool::run("/bin/sh", {"-c", "printf out; printf ' err \n' >&2; exit 3"});
    EXPECT_EQ(output.status, 3);
    EXPECT_EQ(output.out, "out");
    EXPECT_EQ(output.err, " err \n");
    EXPECT_EQ(SimulatorTool::run("/no/such/tool", {}).status, -1);
#if !defined(__APPLE__)
    EXPECT_FALSE(SimulatorTool::developerDirectory());  // no Xcode: the simulator item is never offered
#endif
}

TEST(InUseChecker, TouchesStandardisedAndResolvedPaths) {
    TempFolder temp;
    fs::create_directories(temp / "proj/node_modules/x");
    fs::create_symlink(temp / "proj", temp / "alias");
    const std::string real = temp / "proj/node_modules";
    struct Case {
        std::string path;
        bool touches;
    };
    const Case cases[] = {
        {real, true},
        {real + "/x/../x", true},
        {temp / "alias/node_modules/x", true},  // resolved through the link
        {temp / "proj/node_modules2", false},
        {temp / "proj", false},
        {"node_modules", false},  // relative paths never touch
    };
    for (const Case& c : cases) EXPECT_EQ(InUseChecker::touches(c.path, real), c.touches) << c.path;
    EXPECT_TRUE(InUseChecker::touches(real + "/x", real + "/"));
}

}  // namespace
}  // namespace brimlet
