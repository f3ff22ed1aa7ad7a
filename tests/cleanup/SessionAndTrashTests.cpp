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

#include "core/cleanup/CleanupSession.hpp"
#include "core/cleanup/linux/FreedesktopTrash.hpp"
#include "tests/support/TempFolder.hpp"

extern char** environ;

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;
using kestrow::testing::writeFile;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// Points the home Trash into the temporary home for the length of a test.
class ScopedDataHome {
public:
    explicit ScopedDataHome(const std::string& path) {
        if (const char* old = std::getenv("XDG_DATA_HOME")) old_ = old;
        ::setenv("XDG_DATA_HOME", path.c_str(), 1);
    }
    ~ScopedDataHome() {
        if (old_) ::setenv("XDG_DATA_HOME", old_->c_str(), 1);
        else ::unsetenv("XDG_DATA_HOME");
    }

private:
    std::optional<std::string> old_;
};

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
    ASSERT_EQ(idsOf(personal), (std::vector<std::string>{"node-modules:code/web app/node_modules",
                                                         "duplicate:Desktop/Tool copy.dmg"}));
    EXPECT_EQ(personal[0].isActive, true);
    EXPECT_EQ(personal[1].requiresExisting, home + "/Downloads/Tool.dmg");

    const std::vector<std::string> ids = {"npm-cache", personal[0].id, personal[1].id, "never-seen"};
    const CleanupApproval approval = session.approve(ids).get();
    std::vector<std::string> progress;
    const CleanupReport report =
        session.clean(ids, approval, DeleteMode::permanent,
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
    const std::regex info(R"(\[Trash Info\]\nPath=(.*)\nDeletionDate=\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\n)");
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

// Children that work inside a folder, started for real.
class Children {
public:
    pid_t start(const std::string& folder, std::vector<std::string> args) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        pid_t pid = 0;
        EXPECT_EQ(posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        pids_.push_back(pid);
        return pid;
    }
    ~Children() {
        for (pid_t pid : pids_) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
    }

private:
    std::vector<pid_t> pids_;
};

TEST(CleanerInUse, RealProcessesKeepTheirFoldersFromDeletion) {
    TempFolder temp;
    const std::string home = temp / "home";
    writeFile(home + "/work/busy/node_modules/pkg/a.js", "1");
    writeFile(home + "/work/named/node_modules/pkg/a.js", "1");
    Children children;
    std::vector<pid_t> sleepers;
    for (int i = 0; i < 5; ++i) sleepers.push_back(children.start(home + "/work/busy/node_modules/pkg", {"/bin/sleep", "30"}));
    // A shell whose argument is "node_modules", working in the project folder; the trailing command
    // keeps it from replacing itself with sleep.
    const pid_t shell = children.start(home + "/work/named", {"/bin/sh", "-c", "sleep 30; true", "node_modules"});
    std::this_thread::sleep_for(std::chrono::milliseconds(200));

    class NoOperations : public FileOperations {
    public:
        kestrow::Status moveToTrash(const std::string&) override { return kestrow::Status::failure("must not run"); }
        kestrow::Status removePermanently(const std::string&) override { return kestrow::Status::failure("must not run"); }
    } operations;
    Cleaner cleaner(home, operations);
    auto item = [&](const std::string& relative) {
        CleanupItem i;
        i.id = relative;
        i.title = relative;
        i.url = home + "/" + relative;
        i.kind = CleanupKind::personal;
        return i;
    };
    const std::vector<CleanupItem> items = {item("work/busy/node_modules"), item("work/named/node_modules")};
    const CleanupReport report =
        cleaner.run(items, {items[0].url, items[1].url}, DeleteMode::trash, nullptr, [] { return false; });
    ASSERT_EQ(report.skipped.size(), 2u);
    EXPECT_EQ(report.skipped[0].reason, "In use by sleep (pid " + std::to_string(sleepers[0]) + "), sleep (pid " +
                                            std::to_string(sleepers[1]) + "), sleep (pid " +
                                            std::to_string(sleepers[2]) + ") and 2 more");
    EXPECT_EQ(report.skipped[1].reason, "In use by sh (pid " + std::to_string(shell) + ")");
    EXPECT_TRUE(fs::exists(home + "/work/busy/node_modules/pkg/a.js"));
}

}  // namespace
}  // namespace brimlet
