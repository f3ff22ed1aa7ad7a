#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "core/cleanup/Cleaner.hpp"
#include "core/monitoring/SystemSampler.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;
using kestrow::testing::writeFile;

class RecordingOperations : public FileOperations {
public:
    std::vector<std::string> calls;
    bool throwOnTrash = false;
    kestrow::Status moveToTrash(const PinnedItem& item) override {
        calls.push_back("trash " + item.path);
        if (throwOnTrash) throw std::runtime_error("The volume is read-only.");
        return kestrow::Status::success();
    }
    kestrow::Status removePermanently(const PinnedItem& item) override {
        calls.push_back("remove " + item.path);
        return kestrow::Status::success();
    }
};

struct CleanerFixture : ::testing::Test {
    TempFolder temp;
    std::string home = temp.path();
    RecordingOperations operations;
    Cleaner cleaner{home, operations};
    std::uint64_t freeReads = 0;
    std::vector<std::vector<std::string>> volumesAsked;
    std::vector<std::string> roots;

    void SetUp() override {
        cleaner.processesUsing = [](const std::string&) { return std::vector<ProcessUse>{}; };
        cleaner.freeSpace = [this](const std::vector<std::string>& paths) {
            volumesAsked.push_back(paths);
            return 1000 + 10 * freeReads++;
        };
        cleaner.deleteUnavailableSimulators = [] { return std::make_pair(72, std::string("No devices are booted.")); };
        cleaner.runningVirtualMachineIDs = [](const std::string&) { return std::set<std::string>{"docker-vm"}; };
        cleaner.census = [](const PinnedItem&) { return TreeCensus{4096, 0, 1, true, std::nullopt, std::nullopt}; };
        cleaner.removalCheck = [](const PinnedItem&) { return kestrow::Status::success(); };
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
    const CleanupReport trashRun = cleaner.run(
        items, roots, DeleteMode::trash, [&](std::size_t i, const CleanupItem&) { seen.push_back(i); },
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
    EXPECT_EQ(permanent.deleted[0],
              (CleanupReport::Deleted{"npm-cache title", cache.url, 4096, DeleteMode::permanent, false, std::nullopt}));
    EXPECT_EQ(permanent.deleted[1], (CleanupReport::Deleted{"node-modules:p/node_modules title", personal.url, 4096,
                                                            DeleteMode::trash, true, std::nullopt}));
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

TEST_F(CleanerFixture, KeptCopyIsJudgedThroughLinks) {
    writeFile(home + "/Downloads/a.dmg", "kept");
    fs::create_symlink(home + "/Downloads/a.dmg", home + "/Downloads/link-to-kept");
    fs::create_symlink(home + "/Downloads/nothing-here", home + "/Downloads/dangling");
    struct Case {
        std::string kept;
        bool gone;
    };
    const Case cases[] = {{"a.dmg", false}, {"link-to-kept", false}, {"dangling", true}, {"missing.dmg", true}};
    for (const Case& c : cases) {
        CleanupItem copy = item("duplicate:" + c.kept, "Downloads/copies/" + c.kept, CleanupKind::personal);
        copy.requiresExisting = home + "/Downloads/" + c.kept;
        const CleanupReport report = cleaner.run({copy}, roots, DeleteMode::trash, nullptr, nullptr);
        ASSERT_EQ(report.skipped.size(), c.gone ? 1u : 0u) << c.kept;
        if (c.gone) {
            EXPECT_EQ(report.skipped[0].reason, "The copy that was going to be kept (" + c.kept + ") is gone");
        }
    }
    EXPECT_EQ(operations.calls.size(), 2u);  // only the copies whose kept copy is really there
}

TEST_F(CleanerFixture, ATreeThatCannotGoWholeIsLeftUntouched) {
    const CleanupItem cache = item("uv-cache", ".cache/uv");
    std::vector<std::string> checked;
    const std::string refusal = "It holds a folder you cannot remove \u2014 nothing was removed: " + cache.url + "/x";
    cleaner.removalCheck = [&](const PinnedItem& pinned) {
        checked.push_back(pinned.path);
        return kestrow::Status::failure(refusal);
    };
    const CleanupReport permanent = cleaner.run({cache}, roots, DeleteMode::permanent, nullptr, nullptr);
    EXPECT_EQ(reasons(permanent), "uv-cache title: " + refusal + "\n");
    EXPECT_TRUE(operations.calls.empty());
    // A move to the Trash renames the folder whole: no look inside is needed.
    const CleanupReport trash = cleaner.run({cache}, roots, DeleteMode::trash, nullptr, nullptr);
    EXPECT_EQ(trash.deleted.size(), 1u);
    EXPECT_EQ(checked, std::vector<std::string>{cache.url});
}

// Removes the first `count` files (sorted), then fails, as a removal that stops part way; with
// everyFile it removes the whole tree and still reports a failure.
class PartialRemoval : public FileOperations {
public:
    static constexpr std::size_t everyFile = SIZE_MAX;
    explicit PartialRemoval(std::size_t count) : count_(count) {}
    kestrow::Status moveToTrash(const PinnedItem&) override { return kestrow::Status::failure("must not run"); }
    kestrow::Status removePermanently(const PinnedItem& item) override {
        const std::string& path = item.path;
        if (count_ == everyFile) {
            fs::remove_all(path);
            return kestrow::Status::failure("Directory not empty: " + path);
        }
        std::vector<std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(path))
            if (entry.is_regular_file()) files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        for (std::size_t i = 0; i < count_ && i < files.size(); ++i) fs::remove(files[i]);
        return kestrow::Status::failure("Permission denied: " + path + "/locked");
    }

private:
    std::size_t count_;
};

TEST(CleanerPartialRemoval, TheReportSaysWhatWent) {
    for (const std::size_t removed : {std::size_t{0}, std::size_t{3}, PartialRemoval::everyFile}) {
        TempFolder temp;
        const std::string home = temp.path();
        for (int i = 0; i < 8; ++i) writeFile(home + "/.cache/uv/f" + std::to_string(i), std::string(9000, 'u'));
        PartialRemoval operations(removed);
        Cleaner cleaner(home, operations);
        cleaner.processesUsing = [](const std::string&) { return std::vector<ProcessUse>{}; };
        CleanupItem cache;
        cache.id = "uv-cache";
        cache.title = "uv cache";
        cache.url = home + "/.cache/uv";
        const CleanupReport report = cleaner.run({cache}, {cache.url}, DeleteMode::permanent, nullptr, nullptr);
        if (removed == PartialRemoval::everyFile) {  // gone whole despite the error: it was deleted
            ASSERT_EQ(report.deleted.size(), 1u) << report.markdown();
            EXPECT_GE(report.deleted[0].bytes, 8u * 9000);
            continue;
        }
        ASSERT_EQ(report.skipped.size(), 1u) << report.markdown();
        const std::string& reason = report.skipped[0].reason;
        const std::string error = "Error: Permission denied: " + cache.url + "/locked";
        if (removed == 0) {
            EXPECT_EQ(reason, error);
        } else {
            EXPECT_EQ(reason.rfind(error + " \u2014 part of it was removed (", 0), 0u) << reason;
            EXPECT_EQ(reason.back(), ')') << reason;
        }
    }
}

TEST_F(CleanerFixture, FreeSpaceIsReadOnTheItemsVolumes) {
    const CleanupItem a = item("a-cache", ".a/cache"), b = item("b-cache", ".b/cache");
    cleaner.run({a, b}, roots, DeleteMode::trash, nullptr, nullptr);
    cleaner.run({}, roots, DeleteMode::trash, nullptr, nullptr);
    const std::vector<std::string> itemPaths = {a.url, b.url}, homeOnly = {home};
    EXPECT_EQ(volumesAsked, (std::vector<std::vector<std::string>>{itemPaths, itemPaths, homeOnly, homeOnly}));

    // The live reading counts each file system once, and a removed path for the folder above it.
    TempFolder temp;
    fs::create_directories(temp / "x/y");
    const auto volume = DiskSpace::volume(temp.path());
    ASSERT_TRUE(volume);
    const double once = static_cast<double>(freeBytesHolding({temp.path()}));
    EXPECT_NEAR(static_cast<double>(freeBytesHolding({temp / "x", temp / "x/y", temp / "gone/long/ago"})), once,
                1 << 20);
    EXPECT_NEAR(once, static_cast<double>(volume->first), 1 << 20);
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
