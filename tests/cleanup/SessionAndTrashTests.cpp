// Cleanup end to end on this machine: real files in a temporary home, the real Trash, real processes.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "base/Files.hpp"
#include "core/cleanup/CleanupSession.hpp"
#include "core/cleanup/linux/FreedesktopTrash.hpp"
#include "core/common/ByteFormat.hpp"
#include "core/monitoring/SystemSampler.hpp"
#include "tests/cleanup/CleanupTestSupport.hpp"
#include "tests/support/TempFolder.hpp"

extern char** environ;

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;
using kestrow::testing::writeFile;
using testing::readFile;
using testing::ScopedDataHome;

std::vector<std::string> idsOf(const std::vector<CleanupItem>& items) {
    std::vector<std::string> ids;
    for (const auto& item : items) ids.push_back(item.id);
    return ids;
}

TEST(CleanupSession, MeasureScanApproveCleanIntoTheTrash) {
    TempFolder temp;
    const std::string home = temp / "home";
    ScopedDataHome dataHome(home + "/.local/share");
    writeFile(home + "/.npm/_cacache/content-v2/blob", std::string(30000, 'n'));
    writeFile(home + "/code/web app/node_modules/left-pad/index.js", "module.exports = 1;");
    writeFile(home + "/code/web app/package.json", "{}");
    const std::string installer(50000, 'i');
    writeFile(home + "/Downloads/Tool.dmg", installer);
    writeFile(home + "/Desktop/Tool copy.dmg", installer);
    writeFile(home + "/Downloads/Other.dmg", std::string(50000, 'o'));  // same size, other bytes
    writeFile(home + "/.ssh/id_ed25519", "secret");
    ::chmod((home + "/.ssh").c_str(), 0700);
    // The kept copy is the older one.
    const auto old = fs::file_time_type::clock::now() - std::chrono::hours(48);
    fs::last_write_time(home + "/Downloads/Tool.dmg", old);

    LiveFileOperations operations;
    CleanupSession session(home, operations);
    const MeasureResult measured = session.measure().get();
    ASSERT_EQ(idsOf(measured.regenerable), std::vector<std::string>{"npm-cache"});
    EXPECT_GE(*measured.regenerable[0].size, 30000u);
    EXPECT_GT(measured.totalBytes, 0u);

    const auto personal = session.scanPersonal([] { return false; }).get();
    ASSERT_EQ(idsOf(personal),
              (std::vector<std::string>{"node-modules:code/web app/node_modules", "duplicate:Desktop/Tool copy.dmg"}));
    EXPECT_EQ(personal[0].isActive, true);
    EXPECT_EQ(personal[1].requiresExisting, home + "/Downloads/Tool.dmg");
    // Measured before approval, in allocated bytes: at least what the files hold.
    ASSERT_TRUE(personal[0].size && personal[1].size);
    EXPECT_GT(*personal[0].size, 0u);
    EXPECT_GE(*personal[1].size, installer.size());
    // A pass cancelled early still names what it found (the walk polls only now and then) but
    // keeps no figure for any of it.
    const auto cancelled = session.scanPersonal([] { return true; }).get();
    ASSERT_FALSE(cancelled.empty());
    for (const CleanupItem& item : cancelled) EXPECT_FALSE(item.size) << item.id;

    const std::vector<std::string> ids = {"npm-cache", personal[0].id, personal[1].id, "never-seen"};
    const CleanupApproval approval = session.approve(ids).get();
    std::vector<std::string> progress;
    const CleanupReport report =
        session
            .clean(
                ids, approval, DeleteMode::permanent,
                [&](std::size_t, const CleanupItem& item) { progress.push_back(item.id); }, [] { return false; })
            .get();
    EXPECT_FALSE(report.refusal);
    EXPECT_TRUE(report.skipped.empty()) << report.markdown();
    ASSERT_EQ(report.deleted.size(), 3u) << report.markdown();
    EXPECT_EQ(report.deleted[0].mode, DeleteMode(DeleteMode::permanent));  // a cache may go for good
    EXPECT_EQ(report.deleted[1].mode, DeleteMode(DeleteMode::trash));      // personal data never does
    EXPECT_TRUE(report.deleted[1].downgraded);
    EXPECT_TRUE(report.deleted[2].downgraded);
    EXPECT_EQ(progress.size(), 3u);  // the unknown id is neither run nor reported

    EXPECT_FALSE(fs::exists(home + "/.npm/_cacache"));
    EXPECT_FALSE(fs::exists(home + "/code/web app/node_modules"));
    EXPECT_EQ(readFile(home + "/Downloads/Tool.dmg"), installer);
    EXPECT_EQ(readFile(home + "/.ssh/id_ed25519"), "secret");
    const std::string trash = home + "/.local/share/Trash";
    EXPECT_EQ(fs::status(trash).permissions() & fs::perms::all, fs::perms::owner_all);
    EXPECT_EQ(readFile(trash + "/files/Tool copy.dmg"), installer);
    EXPECT_TRUE(fs::exists(trash + "/files/node_modules/left-pad/index.js"));
    const std::regex info(R"(\[Trash Info\]\nPath=(.*)\nDeletionDate=\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\n)" +
                          std::string(FreedesktopTrash::ownMarker) + "\n");
    std::smatch match;
    const std::string nodeInfo = readFile(trash + "/info/node_modules.trashinfo");
    ASSERT_TRUE(std::regex_match(nodeInfo, match, info)) << nodeInfo;
    EXPECT_EQ(match[1].str(), FreedesktopTrash::escapePath(home + "/code/web app/node_modules"));
    EXPECT_NE(match[1].str().find("web%20app"), std::string::npos);
    const std::string copyInfo = readFile(trash + "/info/Tool copy.dmg.trashinfo");
    ASSERT_TRUE(std::regex_match(copyInfo, match, info)) << copyInfo;

    // An approval is good once, and only for the items in the order approved.
    auto refusalOf = [&](std::vector<std::string> cleanIds, const CleanupApproval& a) {
        return session.clean(std::move(cleanIds), a, DeleteMode::trash, nullptr, [] { return false; }).get();
    };
    const CleanupReport again = refusalOf(ids, approval);
    EXPECT_EQ(again.refusal, "The approval was already used.");
    EXPECT_EQ(again.freeBefore, again.freeAfter);
    EXPECT_TRUE(again.deleted.empty() && again.skipped.empty());
    const CleanupApproval ab = session.approve({"a", "b"}).get();
    EXPECT_EQ(refusalOf({"b", "a"}, ab).refusal, "The items differ from the ones approved.");
    EXPECT_EQ(refusalOf({"a", "b"}, ab).refusal, "The approval was already used.");  // spent by the refusal
    LiveFileOperations otherOperations;
    CleanupSession other(home, otherOperations);
    EXPECT_EQ(refusalOf({"a"}, other.approve({"a"}).get()).refusal, "The approval came from another cleanup session.");
}

TEST(CleanupSession, AnEmptyCancelTestMeansNeverCancelled) {
    TempFolder temp;
    writeFile(temp / "code/app/node_modules/x/index.js", "1");
    writeFile(temp / "code/app/package.json", "{}");
    LiveFileOperations operations;
    CleanupSession session(temp.path(), operations);
    EXPECT_EQ(session.scanPersonal(nullptr).get().size(), 1u);
    EXPECT_EQ(session.homeUsage(CancelCheck()).get().size(), 1u);
    const CleanupApproval approval = session.approve({}).get();
    EXPECT_FALSE(session.clean({}, approval, DeleteMode::trash, nullptr, nullptr).get().cancelled);
}

// The home folder on a file system of its own: the figures are that file system's, not "/"'s.
TEST(CleanupSession, FreeSpaceIsTheHomeFoldersFileSystems) {
    KESTROW_REQUIRE_ROOT();
    TempFolder temp;
    const std::string home = fs::canonical(temp.path()).string() + "/home";
    testing::ScopedMount mount = testing::ScopedMount::tmpfs(home, "size=16m");
    ASSERT_TRUE(mount.ok()) << mount.why();
    writeFile(home + "/.npm/_cacache/blob", std::string(3 << 20, 'n'));
    const auto volume = DiskSpace::volume(home);
    const auto root = DiskSpace::volume("/");
    ASSERT_TRUE(volume && root);
    ASSERT_NE(volume->second, root->second);

    LiveFileOperations operations;
    CleanupSession session(home, operations);
    const MeasureResult measured = session.measure().get();
    EXPECT_EQ(measured.totalBytes, 16u << 20);
    EXPECT_EQ(measured.freeBytes, volume->first);  // nothing else writes to this file system
    const std::vector<std::string> ids = {"npm-cache"};
    const CleanupReport report =
        session.clean(ids, session.approve(ids).get(), DeleteMode::permanent, nullptr, nullptr).get();
    ASSERT_EQ(report.deleted.size(), 1u) << report.markdown();
    EXPECT_EQ(report.freeBefore, volume->first);
    EXPECT_EQ(report.freedNow(), static_cast<std::int64_t>(3u << 20));
    EXPECT_NE(report.markdown().find("- Freed now: " + ByteFormat::string(3u << 20)), std::string::npos)
        << report.markdown();
}

TEST(DiskSpace, TheDataVolumeHereIsTheHomeFoldersFileSystem) {
    const std::string home = kestrow::realHomeFolder();
    EXPECT_EQ(DiskSpace::dataVolumeCandidates(), (std::vector<std::string>{home, "/"}));
    const auto data = DiskSpace::dataVolume(), ofHome = DiskSpace::volume(home);
    ASSERT_TRUE(data && ofHome);
    EXPECT_EQ(data->second, ofHome->second);
}

TEST(FreedesktopTrash, NamesNeverCollideAndNothingIsOverwritten) {
    TempFolder temp;
    const FreedesktopTrash trash(temp / "data/Trash");
    for (int i = 0; i < 3; ++i) {
        writeFile(temp / "home/a/report.txt", "version " + std::to_string(i));
        ASSERT_TRUE(trash.trash(temp / "home/a/report.txt").ok());
    }
    EXPECT_EQ(readFile(temp / "data/Trash/files/report.txt"), "version 0");
    EXPECT_EQ(readFile(temp / "data/Trash/files/report.txt.2"), "version 1");
    EXPECT_EQ(readFile(temp / "data/Trash/files/report.txt.3"), "version 2");
    EXPECT_TRUE(fs::exists(temp / "data/Trash/info/report.txt.3.trashinfo"));
    // An orphan in files/ without its info file is skipped, not overwritten.
    writeFile(temp / "data/Trash/files/orphan", "old");
    writeFile(temp / "home/orphan", "new");
    ASSERT_TRUE(trash.trash(temp / "home/orphan").ok());
    EXPECT_EQ(readFile(temp / "data/Trash/files/orphan"), "old");
    EXPECT_EQ(readFile(temp / "data/Trash/files/orphan.2"), "new");
    EXPECT_FALSE(fs::exists(temp / "data/Trash/info/orphan.trashinfo"));
    EXPECT_TRUE(trash.trash(temp / "home/missing").failed());

    EXPECT_EQ(FreedesktopTrash::escapePath("/h/a b/\xC3\xA9%#?x~_-.y"), "/h/a%20b/%C3%A9%25%23%3Fx~_-.y");
    const kestrow::Date date = *kestrow::parseIsoDate("2026-11-23T10:00:00Z");
    EXPECT_EQ(FreedesktopTrash::trashInfo("/h/x", date).substr(0, 26), "[Trash Info]\nPath=/h/x\nDel");
}

}  // namespace
}  // namespace brimlet
