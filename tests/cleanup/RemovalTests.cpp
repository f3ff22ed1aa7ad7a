// Permanent removal against real folders: mounts inside a cache, folders this user cannot empty,
// and a removal that is stopped part way.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "core/cleanup/Cleaner.hpp"
#include "core/cleanup/RemovalCheck.hpp"
#include "core/cleanup/SizeMeasurer.hpp"
#include "core/cleanup/TreeRemoval.hpp"
#include "tests/cleanup/CleanupTestSupport.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;
using kestrow::testing::writeFile;
using testing::readFile;
using testing::ScopedDataHome;
using testing::ScopedMount;

std::uint64_t blocksOf(const std::string& path) {
    struct stat st {};
    ::lstat(path.c_str(), &st);
    return static_cast<std::uint64_t>(st.st_blocks) * 512;
}

std::size_t filesBelow(const std::string& path) {
    std::size_t count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(path)) count += entry.is_regular_file() ? 1 : 0;
    return count;
}

CleanupItem cacheItem(const std::string& path) {
    CleanupItem item;
    item.id = "uv-cache";
    item.title = "uv cache";
    item.url = path;
    return item;
}

// Every test here works without processes in the way.
Cleaner quietCleaner(const std::string& home, FileOperations& operations) {
    Cleaner cleaner(home, operations);
    cleaner.processesUsing = [](const std::string&) { return std::vector<ProcessUse>{}; };
    return cleaner;
}

// A folder of Documents shows inside the uv cache, once through a real bind mount (which keeps the
// device number: only the mount-root mark tells it) and once through a reader that gives the
// folder another device, which is how any other file system looks.
TEST(MountInsideACache, IsNeitherMeasuredNorRemoved) {
    for (const bool realMount : {true, false}) {
        SCOPED_TRACE(realMount ? "bind mount" : "injected device");
        if (realMount && ::geteuid() != 0) {
            std::cout << "bind mount case skipped: needs root\n";
            continue;
        }
        TempFolder temp;
        const std::string home = fs::canonical(temp.path()).string() + "/home";
        const std::string cache = home + "/.cache/uv", mounted = cache + "/mnt";
        writeFile(cache + "/wheels/a.whl", std::string(20000, 'w'));
        writeFile(home + "/Documents/project/precious.txt", std::string(50000, 'p'));
        std::optional<ScopedMount> mount;
        EntryReader reader = readEntryStatus;
        if (realMount) {
            mount.emplace(ScopedMount::bind(home + "/Documents/project", mounted));
            ASSERT_TRUE(mount->ok()) << mount->why();
        } else {
            writeFile(mounted + "/precious.txt", std::string(50000, 'p'));
            reader = [](int folder, const char* name) {
                auto status = readEntryStatus(folder, name);
                if (status && std::string(name) == "mnt") status->device += 1;
                return status;
            };
        }

        EXPECT_EQ(SizeMeasurer::census(cache, CancelCheck(), reader).bytes, blocksOf(cache + "/wheels/a.whl"));
        EXPECT_EQ(RemovalCheck::wholeTree(cache, reader).message(),
                  std::string(RemovalCheck::mountInside) + ": " + mounted);
        // Even without the look first, the removal itself never steps onto the mount.
        EXPECT_EQ(TreeRemoval::remove(cache, {}, reader).message(), "another file system is mounted here: " + mounted);
        EXPECT_EQ(readFile(mounted + "/precious.txt"), std::string(50000, 'p'));

        LiveFileOperations operations;
        Cleaner cleaner = quietCleaner(home, operations);
        cleaner.census = [&](const PinnedItem& item) { return SizeMeasurer::census(item, CancelCheck(), reader); };
        cleaner.removalCheck = [&](const PinnedItem& item) { return RemovalCheck::wholeTree(item, reader); };
        const CleanupReport report = cleaner.run({cacheItem(cache)}, {cache}, DeleteMode::permanent, nullptr, nullptr);
        ASSERT_EQ(report.skipped.size(), 1u);
        EXPECT_EQ(report.skipped[0].reason, std::string(RemovalCheck::mountInside) + ": " + mounted);
        EXPECT_EQ(readFile(cache + "/wheels/a.whl"), std::string(20000, 'w'));  // nothing was removed
        EXPECT_EQ(readFile(home + "/Documents/project/precious.txt"), std::string(50000, 'p'));

        // Nor does the Trash take it: a mount moved into the Trash would be erased with it.
        ScopedDataHome dataHome(home + "/.local/share");
        const CleanupReport trashed = cleaner.run({cacheItem(cache)}, {cache}, DeleteMode::trash, nullptr, nullptr);
        ASSERT_EQ(trashed.skipped.size(), 1u) << trashed.markdown();
        EXPECT_EQ(trashed.skipped[0].reason, std::string(RemovalCheck::mountInside) + ": " + mounted);
        EXPECT_TRUE(trashed.deleted.empty());
        EXPECT_FALSE(fs::exists(home + "/.local/share/Trash/files/uv"));
        EXPECT_EQ(readFile(cache + "/wheels/a.whl"), std::string(20000, 'w'));
        EXPECT_EQ(readFile(mounted + "/precious.txt"), std::string(50000, 'p'));
        EXPECT_EQ(readFile(home + "/Documents/project/precious.txt"), std::string(50000, 'p'));
    }
}

TEST(RemovalCheck, AnItemThatIsItselfAMountIsLeftAlone) {
    KESTROW_REQUIRE_ROOT();
    TempFolder temp;
    const std::string cache = fs::canonical(temp.path()).string() + "/.cache/uv";
    ScopedMount mount = ScopedMount::tmpfs(cache, "size=1m");
    ASSERT_TRUE(mount.ok()) << mount.why();
    writeFile(cache + "/a", "a");
    EXPECT_EQ(RemovalCheck::wholeTree(cache).message(), std::string(RemovalCheck::mountRoot) + ": " + cache);
    EXPECT_TRUE(TreeRemoval::remove(cache).failed());
    EXPECT_EQ(readFile(cache + "/a"), "a");
}

// Builds a cache owned by the unprivileged user: five files and a subfolder with a file.
std::string makeCache(const TempFolder& temp) {
    fs::permissions(temp.path(), fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
    const std::string home = fs::canonical(temp.path()).string() + "/home";
    for (int i = 0; i < 5; ++i) writeFile(home + "/.cache/uv/a" + std::to_string(i), std::string(9000, 'a'));
    writeFile(home + "/.cache/uv/sub/f", "f");
    testing::giveToUnprivileged(home);
    return home;
}

TEST(RemovalCheck, FoldersThisUserCannotEmptyStopTheRemovalBeforeItStarts) {
    struct Case {
        const char* folder;  // relative to home
        fs::perms mode;
        const char* blamed;  // relative to home; empty when removable
    };
    const Case cases[] = {
        {".cache/uv/sub", fs::perms::owner_read | fs::perms::owner_exec, ".cache/uv/sub"},   // not writable
        {".cache/uv/sub", fs::perms::owner_write | fs::perms::owner_exec, ".cache/uv/sub"},  // not readable
        {".cache/uv/sub", fs::perms::owner_read | fs::perms::owner_write, ".cache/uv/sub"},  // not searchable
        {".cache", fs::perms::owner_read | fs::perms::owner_exec, ".cache"},                 // parent keeps it
        {".cache/uv/sub", fs::perms::owner_all, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.folder) + (c.blamed[0] ? " blamed" : " fine"));
        TempFolder temp;
        const std::string home = makeCache(temp), cache = home + "/.cache/uv";
        fs::permissions(home + "/" + c.folder, c.mode);
        LiveFileOperations operations;
        Cleaner cleaner = quietCleaner(home, operations);
        CleanupReport report;
        kestrow::Status check = kestrow::Status::success();
        testing::runUnprivileged([&] {
            check = RemovalCheck::wholeTree(cache);
            report = cleaner.run({cacheItem(cache)}, {cache}, DeleteMode::permanent, nullptr, nullptr);
        });
        if (c.blamed[0] == '\0') {
            EXPECT_TRUE(check.ok()) << check.message();
            EXPECT_EQ(report.deleted.size(), 1u) << report.markdown();
            EXPECT_FALSE(fs::exists(cache));
            continue;
        }
        const std::string expected = std::string(RemovalCheck::notRemovable) + ": " + home + "/" + c.blamed;
        EXPECT_EQ(check.message(), expected);
        ASSERT_EQ(report.skipped.size(), 1u) << report.markdown();
        EXPECT_EQ(report.skipped[0].reason, expected);
        fs::permissions(home + "/" + c.folder, fs::perms::owner_all);
        EXPECT_EQ(filesBelow(cache), 6u);  // untouched
    }
}

// Removal through the real walk, with a hook that changes the tree once the walk has begun.
class ChangingRemoval : public FileOperations {
public:
    explicit ChangingRemoval(TreeRemoval::Observer observer) : observer_(std::move(observer)) {}
    kestrow::Status moveToTrash(const PinnedItem&) override { return kestrow::Status::failure("must not run"); }
    kestrow::Status removePermanently(const PinnedItem& item) override { return TreeRemoval::remove(item, observer_); }

private:
    TreeRemoval::Observer observer_;
};

TEST(TreeRemoval, AFolderLockedPartWayIsNamedAndThePartRemovedIsReported) {
    TempFolder temp;
    const std::string home = makeCache(temp), cache = home + "/.cache/uv";
    fs::rename(cache + "/sub", cache + "/z-locked");  // removed last: the files go first
    bool locked = false;
    ChangingRemoval operations([&](const std::string&) {
        if (!std::exchange(locked, true)) ::chmod((cache + "/z-locked").c_str(), 0);
    });
    Cleaner cleaner = quietCleaner(home, operations);
    CleanupReport report;
    testing::runUnprivileged(
        [&] { report = cleaner.run({cacheItem(cache)}, {cache}, DeleteMode::permanent, nullptr, nullptr); });
    ASSERT_EQ(report.skipped.size(), 1u) << report.markdown();
    const std::string& reason = report.skipped[0].reason;
    EXPECT_EQ(reason.rfind("Error: Permission denied: " + cache + "/z-locked \u2014 part of it was removed (", 0), 0u)
        << reason;
    EXPECT_NE(report.markdown().find("part of it was removed"), std::string::npos);
    EXPECT_FALSE(fs::exists(cache + "/a0"));
    ::chmod((cache + "/z-locked").c_str(), 0700);
    EXPECT_EQ(readFile(cache + "/z-locked/f"), "f");
}

TEST(TreeRemoval, LinksGoNotTheirTargets) {
    TempFolder temp;
    const std::string root = fs::canonical(temp.path()).string();
    writeFile(root + "/elsewhere/keep.txt", "keep");
    writeFile(root + "/cache/deep/er/file", "x");
    fs::create_symlink(root + "/elsewhere", root + "/cache/deep/link");
    fs::create_symlink(root + "/elsewhere/keep.txt", root + "/cache/file-link");
    writeFile(root + "/single", "s");

    EXPECT_TRUE(TreeRemoval::remove(root + "/cache").ok());
    EXPECT_FALSE(fs::exists(root + "/cache"));
    EXPECT_EQ(readFile(root + "/elsewhere/keep.txt"), "keep");
    EXPECT_TRUE(TreeRemoval::remove(root + "/single").ok());
    EXPECT_FALSE(fs::exists(root + "/single"));
    EXPECT_EQ(TreeRemoval::remove(root + "/missing").message(), "No such file or directory: " + root + "/missing");
    EXPECT_TRUE(TreeRemoval::remove("relative/path").failed());
}

}  // namespace
}  // namespace brimlet
