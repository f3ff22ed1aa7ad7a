// Processes that use a folder, found for real: by working folder, by argument, by an open file
// and by a mapped file.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>

#include <filesystem>

#include "core/cleanup/Cleaner.hpp"
#include "tests/cleanup/CleanupTestSupport.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;
using kestrow::testing::writeFile;
using testing::Children;
using testing::readFile;
using testing::waitUntil;

class NoOperations : public FileOperations {
public:
    kestrow::Status moveToTrash(const PinnedItem&) override { return kestrow::Status::failure("must not run"); }
    kestrow::Status removePermanently(const PinnedItem&) override { return kestrow::Status::failure("must not run"); }
};

CleanupItem personalItem(const std::string& home, const std::string& relative) {
    CleanupItem item;
    item.id = relative;
    item.title = relative;
    item.url = home + "/" + relative;
    item.kind = CleanupKind::personal;
    return item;
}

std::string linkTarget(const std::string& path) {
    std::error_code error;
    return fs::read_symlink(path, error).string();
}

std::string pidText(pid_t pid) { return std::to_string(pid); }

TEST(CleanerInUse, WorkingFoldersAndArgumentsKeepFoldersFromDeletion) {
    TempFolder temp;
    const std::string home = fs::canonical(temp.path()).string() + "/home";
    writeFile(home + "/work/busy/node_modules/pkg/a.js", "1");
    writeFile(home + "/work/named/node_modules/pkg/a.js", "1");
    Children children;
    std::vector<pid_t> readers;
    const std::string busy = home + "/work/busy/node_modules/pkg";
    for (int i = 0; i < 5; ++i) readers.push_back(children.start({busy, {"/bin/cat"}, "", {}}));
    // A shell whose argument is "node_modules", working in the project folder.
    const pid_t shell = children.start({home + "/work/named", {"/bin/sh", "-c", "read line", "node_modules"}, "", {}});
    for (const pid_t pid : readers) {
        ASSERT_TRUE(waitUntil([&] { return linkTarget("/proc/" + pidText(pid) + "/cwd") == busy; }));
    }
    ASSERT_TRUE(waitUntil(
        [&] { return readFile("/proc/" + pidText(shell) + "/cmdline").find("read line") != std::string::npos; }));

    NoOperations operations;
    Cleaner cleaner(home, operations);
    const std::vector<CleanupItem> items = {personalItem(home, "work/busy/node_modules"),
                                            personalItem(home, "work/named/node_modules")};
    const CleanupReport report = cleaner.run(items, {items[0].url, items[1].url}, DeleteMode::trash, nullptr, nullptr);
    ASSERT_EQ(report.skipped.size(), 2u);
    EXPECT_EQ(report.skipped[0].reason, "In use by cat (pid " + pidText(readers[0]) + "), cat (pid " +
                                            pidText(readers[1]) + "), cat (pid " + pidText(readers[2]) +
                                            ") and 2 more");
    EXPECT_EQ(report.skipped[1].reason, "In use by sh (pid " + pidText(shell) + ")");
    EXPECT_TRUE(fs::exists(home + "/work/busy/node_modules/pkg/a.js"));
}

// The path of a shared library this test program has loaded, for a child to map a copy of.
std::string loadedLibrary(const char* name) {
    std::string found;
    std::pair<const char*, std::string*> query(name, &found);
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) {
            auto* result = static_cast<std::pair<const char*, std::string*>*>(data);
            const std::string path = info->dlpi_name ? info->dlpi_name : "";
            if (result->second->empty() && path.find(result->first) != std::string::npos) *result->second = path;
            return 0;
        },
        &query);
    return found;
}

TEST(CleanerInUse, OpenAndMappedFilesKeepFoldersFromDeletion) {
    TempFolder temp;
    const std::string home = fs::canonical(temp.path()).string();
    writeFile(home + "/.cache/db/store.sqlite", "SQLite format 3");
    const std::string library = loadedLibrary("libm.so");
    if (library.empty()) GTEST_SKIP() << "no libm loaded to copy";
    fs::create_directories(home + "/.cache/libs");
    fs::copy_file(library, home + "/.cache/libs/libcopy.so");

    Children children;
    // Working in "/", with no arguments: only the open descriptor ties it to the cache.
    const pid_t holder = children.start({"/", {"/bin/cat"}, home + "/.cache/db/store.sqlite", {}});
    // Only the mapping ties this one: the loader closes a library's descriptor once it is mapped.
    const pid_t mapper = children.start({"/", {"/bin/cat"}, "", {"LD_PRELOAD=" + home + "/.cache/libs/libcopy.so"}});
    ASSERT_TRUE(waitUntil(
        [&] { return linkTarget("/proc/" + pidText(holder) + "/fd/3") == home + "/.cache/db/store.sqlite"; }));
    ASSERT_TRUE(waitUntil(
        [&] { return readFile("/proc/" + pidText(mapper) + "/maps").find("libcopy.so") != std::string::npos; }));

    EXPECT_EQ(InUseChecker::processesUsing(home + "/.cache/db"), (std::vector<ProcessUse>{{holder, "cat"}}));
    EXPECT_EQ(InUseChecker::processesUsing(home + "/.cache/libs"), (std::vector<ProcessUse>{{mapper, "cat"}}));
    EXPECT_TRUE(InUseChecker::processesUsing(home + "/.cache/other").empty());

    NoOperations operations;
    Cleaner cleaner(home, operations);
    CleanupItem cache = personalItem(home, ".cache/db");
    cache.kind = CleanupKind::regenerable;
    const CleanupReport report = cleaner.run({cache}, {cache.url}, DeleteMode::permanent, nullptr, nullptr);
    ASSERT_EQ(report.skipped.size(), 1u);
    EXPECT_EQ(report.skipped[0].reason, "In use by cat (pid " + pidText(holder) + ")");
}

TEST(OpenFiles, MapsTextAndHeldPaths) {
    const std::string maps =
        "55d0c0a00000-55d0c0a02000 r--p 00000000 08:01 1234                       /usr/bin/cat\n"
        "55d0c0a02000-55d0c0a06000 r-xp 00002000 08:01 1234                       /usr/bin/cat\n"
        "55d0c1000000-55d0c1021000 rw-p 00000000 00:00 0                          [heap]\n"
        "7f0000000000-7f0000001000 rw-p 00000000 00:00 0 \n"
        "7f0000001000-7f0000002000 r--p 00000000 08:01 99                         /h/.cache/a b/x.db\n"
        "7f0000002000-7f0000003000 r--p 00000000 08:01 98                         /h/.cache/odd\\012name\n"
        "7f0000003000-7f0000004000 r--p 00000000 08:01 97                         /h/.cache/gone.so (deleted)\n"
        "garbage without fields\n"
        "7ffd00000000-7ffd00001000 r-xp 00000000 00:00 0                          [vdso]";
    EXPECT_EQ(OpenFiles::mappedPaths(maps),
              (std::vector<std::string>{"/usr/bin/cat", "/h/.cache/a b/x.db", "/h/.cache/odd\nname",
                                        "/h/.cache/gone.so (deleted)"}));
    EXPECT_TRUE(OpenFiles::mappedPaths("").empty());

    struct Case {
        const char* path;
        bool held;
    };
    const Case cases[] = {
        {"/h/.cache", true},
        {"/h/.cache/a b/x.db", true},
        {"/h/.cache/gone.so (deleted)", true},
        {"/h/.cache2/x", false},
        {"/h", false},
        {"socket:[123]", false},
        {"/h/.cache-other (deleted)", false},
    };
    for (const Case& c : cases) EXPECT_EQ(OpenFiles::holds(c.path, "/h/.cache"), c.held) << c.path;
}

}  // namespace
}  // namespace brimlet
