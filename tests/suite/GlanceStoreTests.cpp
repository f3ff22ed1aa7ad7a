#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <thread>

#include "suite/protocol/SuiteFolder.hpp"
#include "suite/protocol/SuiteState.hpp"
#include "tests/support/TempFolder.hpp"

extern char** environ;

namespace kestrow::suite {
namespace {

using kestrow::testing::TempFolder;
using kestrow::testing::writeFile;

GlanceRecord record(SuiteApp app, double at, double memory = 50) {
    return GlanceRecord(app, false, GlanceState::running, at, 10, GlanceLevel::ok,
                        {{"mem", "Memory", memory, "%", GlanceLevel::ok}});
}

TEST(GlanceStore, WritesAtomicallyAndReadsEveryone) {
    TempFolder temp;
    const SuiteFolder folder(temp.path() + "/Suite/./");
    ASSERT_TRUE(folder.prepare().ok());
    struct stat st {};
    ASSERT_EQ(::stat(folder.glancesURL().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);

    const GlanceStore store{folder};
    ASSERT_TRUE(store.write(record(SuiteApp::brimlet, 100)).ok());
    ASSERT_TRUE(store.write(record(SuiteApp::fennick, 100)).ok());
    writeFile(folder.glanceURL(SuiteApp::garrow), "not json");
    ::mkdir(folder.glanceURL(SuiteApp::jessap).c_str(), 0700);
    ::symlink(folder.glanceURL(SuiteApp::brimlet).c_str(), folder.glanceURL(SuiteApp::corvane).c_str());
    ::mkfifo(folder.glanceURL(SuiteApp::hollin).c_str(), 0600);

    const auto all = store.readAll();
    ASSERT_EQ(all.size(), 6u);  // dismel has no file
    EXPECT_EQ(all.at(SuiteApp::brimlet).value(), record(SuiteApp::brimlet, 100));
    EXPECT_EQ(all.at(SuiteApp::garrow).status().message(), "JSON");
    EXPECT_EQ(all.at(SuiteApp::jessap).status().message(), "not a regular file");
    EXPECT_EQ(all.at(SuiteApp::corvane).status().message(), "unreadable (errno " + std::to_string(ELOOP) + ")");
    EXPECT_EQ(all.at(SuiteApp::hollin).status().message(), "not a regular file");  // and it did not block
    // Bytes that are not a record are damaged; a file the protected read turned away is refused.
    EXPECT_EQ(all.at(SuiteApp::garrow).status().cause(), kestrow::Cause::dataLoss);
    for (SuiteApp app : {SuiteApp::jessap, SuiteApp::corvane, SuiteApp::hollin})
        EXPECT_EQ(all.at(app).status().cause(), kestrow::Cause::permissionDenied) << app.rawValue();
    EXPECT_FALSE(store.read(SuiteApp::dismel));
    EXPECT_EQ(store.write(GlanceRecord(SuiteApp::brimlet, false, GlanceState::running, 1, 99, GlanceLevel::ok, {})),
              kestrow::Status::failure(kestrow::Cause::invalidArgument, "ttl: 3-60"));
}

// Only a missing file is missing: a plain file where the "glances" folder should be makes every
// record unreadable, and says why.
TEST(GlanceStore, APlainFileInPlaceOfTheFolderIsNotMissing) {
    TempFolder temp;
    const SuiteFolder folder(temp.path());
    writeFile(folder.glancesURL(), "not a folder");
    const GlanceStore store{folder};
    const auto all = store.readAll();
    ASSERT_EQ(all.size(), SuiteApp::allCases().size());
    for (const auto& [app, result] : all)
        EXPECT_EQ(result.status(), kestrow::Status::failure(kestrow::Cause::permissionDenied,
                                                            "unreadable (errno " + std::to_string(ENOTDIR) + ")"))
            << app.rawValue();

    // Callers tell the two apart by the cause alone.
    const struct {
        std::string path;
        kestrow::Cause cause;
    } cases[] = {
        {temp / "absent/brimlet.json", kestrow::Cause::notFound},
        {temp / "absent.json", kestrow::Cause::notFound},
        {folder.glanceURL(SuiteApp::brimlet), kestrow::Cause::permissionDenied},
    };
    for (const auto& c : cases) EXPECT_EQ(safeRead(c.path, 10).status().cause(), c.cause) << c.path;
}

TEST(GlanceStore, ProtectedReadLimitsAndOwner) {
    TempFolder temp;
    const std::string big = temp / "big.json";
    writeFile(big, std::string(10 << 20, 'x'));
    const kestrow::Result<std::string> read = safeRead(big, GlanceStore::readLimit);
    ASSERT_TRUE(read.ok()) << read.status().message();
    EXPECT_EQ(read->size(), 2049u);
    EXPECT_EQ(GlanceCodec::decode(*read, "brimlet.json").status().message(), "size: at most 2,048 bytes");

    const std::string foreign = temp / "foreign.json";
    writeFile(foreign, "{}");
    if (::getuid() != 0) GTEST_SKIP() << "changing a file's owner needs root";
    ASSERT_EQ(::chown(foreign.c_str(), 4242, 4242), 0);
    EXPECT_EQ(safeRead(foreign, 100).status(),
              kestrow::Status::failure(kestrow::Cause::permissionDenied, "not owned by this user"));
}

TEST(GlanceStore, ReadersNeverSeeATornRecord) {
    TempFolder temp;
    const SuiteFolder folder(temp.path());
    ASSERT_TRUE(folder.prepare().ok());
    const GlanceStore store{folder};
    ASSERT_TRUE(store.write(record(SuiteApp::brimlet, 0)).ok());
    std::atomic<bool> done{false};
    std::atomic<int> writeFailures{0};
    std::thread writer([&] {
        for (int i = 1; i <= 100; ++i) {
            if (store.write(record(SuiteApp::brimlet, i, i % 2 ? 12.5 : 99.99)).failed()) ++writeFailures;
        }
        done = true;
    });
    int reads = 0, bad = 0;
    while (!done || reads < 5000) {
        auto result = store.read(SuiteApp::brimlet);
        ++reads;
        if (!result || result->failed()) ++bad;
    }
    writer.join();
    EXPECT_EQ(bad, 0) << "of " << reads << " reads";
    EXPECT_EQ(writeFailures, 0);
}

std::set<std::string> names(const std::string& folder) {
    std::set<std::string> found;
    if (DIR* dir = ::opendir(folder.c_str())) {
        while (const dirent* entry = ::readdir(dir))
            if (std::string(entry->d_name) != "." && std::string(entry->d_name) != "..") found.insert(entry->d_name);
        ::closedir(dir);
    }
    return found;
}

void age(const std::string& path, int seconds) {
    const timespec times[2] = {{::time(nullptr) - seconds, 0}, {::time(nullptr) - seconds, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

// Kills a real writer in the middle of replacing `path` and gives the temporary file it left.
std::optional<std::string> killWriterMidWrite(const std::string& path) {
    const std::string folder = path.substr(0, path.rfind('/'));
    const std::string target = path.substr(path.rfind('/') + 1);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        std::string size = "4000000";
        std::vector<char*> argv{const_cast<char*>(KESTROW_ATOMIC_WRITER), const_cast<char*>(path.c_str()), size.data(),
                                nullptr};
        pid_t pid = -1;
        if (posix_spawn(&pid, KESTROW_ATOMIC_WRITER, nullptr, nullptr, argv.data(), environ) != 0) return std::nullopt;
        auto leftover = [&]() -> std::optional<std::string> {
            for (const std::string& name : names(folder))
                if (isAtomicWriteTemporary(name, target)) return (folder + "/").append(name);
            return std::nullopt;
        };
        const auto writing = std::chrono::steady_clock::now() + std::chrono::seconds(2);
        while (!leftover() && std::chrono::steady_clock::now() < writing) std::this_thread::yield();
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        if (auto left = leftover()) return left;  // else it had just renamed: try again
    }
    return std::nullopt;
}

// A member killed while writing leaves its temporary file in the shared folder; preparing the folder
// removes such files once they are a minute old, and nothing that merely looks like one.
TEST(SuiteFolder, PreparingRemovesStaleTemporaryFilesOfKilledWriters) {
    TempFolder temp, outside;
    const SuiteFolder folder(temp / "Suite");
    ASSERT_TRUE(folder.prepare().ok());
    const auto killed = killWriterMidWrite(folder.glanceURL(SuiteApp::brimlet));
    ASSERT_TRUE(killed) << "no writer was caught mid-write";

    ASSERT_TRUE(folder.prepare().ok());
    EXPECT_TRUE(names(folder.glancesURL()).count(killed->substr(killed->rfind('/') + 1)))
        << "a file younger than a minute may still be written";

    const std::string glances = folder.glancesURL() + "/";
    const std::vector<std::string> stale = {*killed, glances + ".corvane.json.Pp0oL1",
                                            folder.url + "/.settings.json.Kk7uI9"};
    const std::vector<std::string> kept = {
        glances + ".jessap.json.Rr4tY6",       // fresh
        glances + ".brimlet.json.Ab3dE",       // five characters
        glances + ".brimlet.json.Ab3dEfG",     // seven
        glances + ".brimlet.json.Ab-dEf",      // not a letter or digit
        glances + "brimlet.json.Ab3dEf",       // no leading dot
        glances + ".notes.txt.Ab3dEf",         // not a file this program writes
        folder.url + "/.brimlet.json.Ab3dEf",  // a record's name, but outside "glances"
        glances + "brimlet.json",
    };
    for (const auto& path : stale) {
        if (path != *killed) writeFile(path, "partial");
        age(path, 61);
    }
    for (const auto& path : kept) {
        writeFile(path, "x");
        if (path != kept[0]) age(path, 3600);
    }
    writeFile(outside / "precious", "keep me");
    ::symlink((outside / "precious").c_str(), (glances + ".fennick.json.Zz9yX8").c_str());
    ::mkdir((glances + ".garrow.json.Qq1wE2").c_str(), 0700);
    age(glances + ".fennick.json.Zz9yX8", 3600);
    age(glances + ".garrow.json.Qq1wE2", 3600);
    if (::getuid() == 0) {
        writeFile(glances + ".hollin.json.Mm5nB4", "theirs");
        ASSERT_EQ(::chown((glances + ".hollin.json.Mm5nB4").c_str(), 4242, 4242), 0);
        age(glances + ".hollin.json.Mm5nB4", 3600);
    }

    ASSERT_TRUE(folder.prepare().ok());
    struct stat st {};
    for (const auto& path : stale) EXPECT_NE(::lstat(path.c_str(), &st), 0) << path;
    for (const auto& path : kept) EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
    EXPECT_EQ(::lstat((glances + ".fennick.json.Zz9yX8").c_str(), &st), 0);
    EXPECT_EQ(::stat((outside / "precious").c_str(), &st), 0);
    EXPECT_EQ(::lstat((glances + ".garrow.json.Qq1wE2").c_str(), &st), 0);
    if (::getuid() == 0) {
        EXPECT_EQ(::lstat((glances + ".hollin.json.Mm5nB4").c_str(), &st), 0);
    }
}

// The suite folder and "glances" must be real folders of this user with mode 0700: a link in either
// place is refused (and nothing is written where it points), a loose mode is fixed, and writes made
// through an opened folder land in that folder even when its path is swapped for a link afterwards.
TEST(SuiteFolder, OnlyPrivateFoldersOfThisUserAreUsedAndWritesGoThroughTheHeldFolder) {
    TempFolder temp, victim;
    struct Case {
        const char* what;
        std::function<void(const SuiteFolder&)> layOut;
        std::optional<kestrow::Cause> fault;
    };
    const Case cases[] = {
        {"glances a link",
         [&](const SuiteFolder& f) {
             ASSERT_EQ(::mkdir(f.url.c_str(), 0700), 0);
             ASSERT_EQ(::symlink(victim.path().c_str(), f.glancesURL().c_str()), 0);
         },
         kestrow::Cause::permissionDenied},
        {"the folder a link",
         [&](const SuiteFolder& f) { ASSERT_EQ(::symlink(victim.path().c_str(), f.url.c_str()), 0); },
         kestrow::Cause::permissionDenied},
        {"loose modes",
         [&](const SuiteFolder& f) {
             ASSERT_EQ(::mkdir(f.url.c_str(), 0700), 0);
             ASSERT_EQ(::mkdir(f.glancesURL().c_str(), 0700), 0);
             ASSERT_EQ(::chmod(f.url.c_str(), 0777), 0);
             ASSERT_EQ(::chmod(f.glancesURL().c_str(), 0755), 0);
         },
         std::nullopt},
        {"a file in the way", [&](const SuiteFolder& f) { writeFile(f.url, "x"); }, kestrow::Cause::unavailable},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const SuiteFolder folder(temp / ("suite" + std::to_string(n++)));
        c.layOut(folder);
        auto opened = OpenSuiteFolder::prepare(folder);
        EXPECT_EQ(folder.prepare().ok(), !c.fault);
        EXPECT_FALSE(GlanceStore{folder}.write(record(SuiteApp::brimlet, 1)).ok() && c.fault);
        SuiteSettings settings;
        EXPECT_FALSE(settings.write(folder).ok() && c.fault);
        EXPECT_TRUE(std::filesystem::is_empty(victim.path()));
        if (c.fault) {
            EXPECT_EQ(opened.status().cause(), *c.fault);
            continue;
        }
        ASSERT_TRUE(opened.ok()) << opened.status().message();
        struct stat st {};
        ASSERT_EQ(::stat(folder.url.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0700u);
        ASSERT_EQ(::stat(folder.glancesURL().c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0700u);

        // The path swapped for a link after the check: the held folder still takes the writes.
        const OpenSuiteFolder& held = *opened;
        std::filesystem::rename(folder.glancesURL(), temp / "moved-glances");
        ASSERT_EQ(::symlink(victim.path().c_str(), folder.glancesURL().c_str()), 0);
        EXPECT_FALSE(held.stillNamed());
        ASSERT_TRUE(held.write(record(SuiteApp::brimlet, 2)).ok());
        EXPECT_TRUE(std::filesystem::is_empty(victim.path()));
        EXPECT_TRUE(std::filesystem::exists(temp / "moved-glances/brimlet.json"));
    }
    if (::getuid() != 0) GTEST_SKIP() << "a folder of another user needs root to make";
    const SuiteFolder foreign(temp / "foreign");
    ASSERT_TRUE(foreign.prepare().ok());
    ASSERT_EQ(::chown(foreign.url.c_str(), 4242, 4242), 0);
    auto opened = OpenSuiteFolder::prepare(foreign);
    EXPECT_EQ(opened.status().cause(), kestrow::Cause::permissionDenied);
}

TEST(SuiteFolder, ReachableFoldersInsideAndOutsideASandbox) {
    ::unsetenv("APP_SANDBOX_CONTAINER_ID");
    const auto plain = SuiteFolder::reachable(std::nullopt);
    ASSERT_EQ(plain.size(), 1u);
    EXPECT_EQ(plain[0].url, SuiteFolder::standard(SuiteFolder::realHome()).url);
    ::setenv("APP_SANDBOX_CONTAINER_ID", "", 1);  // present is enough, whatever its value
    EXPECT_TRUE(SuiteFolder::reachable(std::string("group.kestrow.suite")).empty());  // no group containers here
    ::unsetenv("APP_SANDBOX_CONTAINER_ID");
}

// Off the Mac the suite folder follows the XDG base directories; on the Mac it is `plain`.
TEST(SuiteFolder, TheStandardFolderFollowsThePlatformsDataFolder) {
    if (SuiteFolder::standard("/h").url == SuiteFolder::plain("/h").url) GTEST_SKIP() << "the Mac keeps plain()";
    const char* saved = std::getenv("XDG_DATA_HOME");
    const std::optional<std::string> previous = saved ? std::optional<std::string>(saved) : std::nullopt;
    struct Case {
        std::optional<std::string> xdgDataHome;
        std::string expected;
    };
    const Case cases[] = {
        {std::nullopt, "/home/ann/.local/share/kestrow/suite"},
        {"/data/ann", "/data/ann/kestrow/suite"},
        {"/data/ann/", "/data/ann/kestrow/suite"},
        {"relative/data", "/home/ann/.local/share/kestrow/suite"},  // invalid: ignored
        {"", "/home/ann/.local/share/kestrow/suite"},
    };
    for (const Case& c : cases) {
        if (c.xdgDataHome) ::setenv("XDG_DATA_HOME", c.xdgDataHome->c_str(), 1);
        else ::unsetenv("XDG_DATA_HOME");
        EXPECT_EQ(SuiteFolder::standard("/home/ann").url, c.expected) << c.xdgDataHome.value_or("(unset)");
    }
    if (previous) ::setenv("XDG_DATA_HOME", previous->c_str(), 1);
    else ::unsetenv("XDG_DATA_HOME");
}

// A group container is used when sandboxed (the entitlement makes it real) or when it exists already;
// an unsandboxed process never creates one that the platform merely names.
TEST(SuiteFolder, GroupContainerOnlyWhenSandboxedOrAlreadyThere) {
    struct Case {
        std::optional<std::string> container;
        bool sandboxed, exists;
        std::optional<std::string> used;
    };
    const Case cases[] = {
        {std::nullopt, true, true, std::nullopt},
        {"", true, true, std::nullopt},
        {"relative/group", true, true, std::nullopt},
        {"/Users/a/Library/Group Containers/group.kestrow.suite", false, false, std::nullopt},
        {"/Users/a/Library/Group Containers/group.kestrow.suite", false, true,
         "/Users/a/Library/Group Containers/group.kestrow.suite"},
        {"/Users/a/Library/Group Containers/group.kestrow.suite/", true, false,
         "/Users/a/Library/Group Containers/group.kestrow.suite"},
        {"/Users/a/Library/Group Containers/./group.kestrow.suite", true, true,
         "/Users/a/Library/Group Containers/group.kestrow.suite"},
    };
    for (const Case& c : cases) {
        const auto folder = usableGroupFolder(c.container, c.sandboxed, c.exists);
        EXPECT_EQ(folder ? std::optional(folder->url) : std::nullopt, c.used)
            << c.container.value_or("(none)") << " sandboxed " << c.sandboxed << " exists " << c.exists;
    }
}

TEST(PublishSchedule, ChangedAtOnceUnchangedAtHalfLife) {
    PublishSchedule schedule;
    const GlanceRecord first = record(SuiteApp::brimlet, 1000);
    EXPECT_TRUE(schedule.isDue(first, 1000));
    schedule.didWrite(first);
    EXPECT_FALSE(schedule.isDue(record(SuiteApp::brimlet, 1004.9), 1004.9));
    EXPECT_TRUE(schedule.isDue(record(SuiteApp::brimlet, 1005), 1005));
    EXPECT_TRUE(schedule.isDue(record(SuiteApp::brimlet, 1001, 51), 1001));  // a metric changed
    schedule.forceNext();
    EXPECT_TRUE(schedule.isDue(first, 1000));

    // The clock set back: the last record's `at` lies ahead, and an unchanged readout is due at once.
    schedule.didWrite(first);
    EXPECT_TRUE(schedule.isDue(record(SuiteApp::brimlet, 999.9), 999.9));
    EXPECT_TRUE(schedule.isDue(record(SuiteApp::brimlet, 1000 - 3600), 1000 - 3600));
}

}  // namespace
}  // namespace kestrow::suite
