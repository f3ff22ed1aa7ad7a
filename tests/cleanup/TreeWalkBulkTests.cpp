// The walk over folders listed in bulk sees what the walk over entries read one by one sees. The
// bulk listing here is a stand-in that lists the real folder and leaves some statuses out, the way
// the Mac listing leaves out mount points and entries it could not read.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "core/cleanup/ParallelWalk.hpp"
#include "core/cleanup/TreeWalk.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;

using Seen = std::tuple<std::string, mode_t, std::uint64_t, std::uint64_t, int>;

std::optional<BulkFolder> listByHand(int folder, int brokenWith) {
    const int fd = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* dir = fd >= 0 ? ::fdopendir(fd) : nullptr;
    if (!dir) return std::nullopt;
    BulkFolder listed;
    listed.error = brokenWith;
    std::size_t index = 0;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        BulkEntry bulkEntry{name, std::nullopt, 0};
        if (index++ % 2 == 0) bulkEntry.status = readEntryStatus(folder, name.c_str());
        listed.entries.push_back(bulkEntry);
    }
    ::closedir(dir);
    return listed;
}

struct Walked {
    std::vector<Seen> seen;
    std::vector<int> troubles;
    bool finished = false;
};

Walked walkTree(const std::string& root, const std::function<std::optional<BulkFolder>(int)>& lister) {
    const auto status = readEntryStatus(AT_FDCWD, root.c_str());
    Walked walked;
    if (!status) return walked;
    TreeWalk walk;
    walk.sorted = true;
    walk.bulkLister = lister;
    walk.entry = [&](int, const char* name, const EntryStatus* entry, int error) {
        walked.seen.emplace_back(walk.pathOf(name), entry ? entry->mode : 0, entry ? entry->inode : 0,
                                 entry ? entry->allocatedBytes : 0, error);
        return entry && entry->isDirectory() ? TreeWalk::Next::descend : TreeWalk::Next::skip;
    };
    walk.trouble = [&](const char*, TreeWalk::Trouble trouble) {
        walked.troubles.push_back(trouble.error);
        return true;
    };
    walked.finished = walk.run(openListedFolder(AT_FDCWD, root.c_str(), *status), *status, root);
    return walked;
}

void buildTree(const std::string& root) {
    fs::create_directories(root + "/a/b/c");
    fs::create_directories(root + "/other");
    for (const char* file : {"/one", "/a/two", "/a/b/three", "/a/b/c/four", "/other/five"})
        std::ofstream(root + file) << std::string(5000, 'k');
    fs::create_directory_symlink(root + "/a", root + "/a/b/link-to-a");
    fs::create_symlink("nowhere", root + "/dangling");
}

TEST(TreeWalkInBulk, SeesWhatTheEntryByEntryWalkSees) {
    TempFolder temp;
    const std::string root = temp.path() + "/tree";
    buildTree(root);
    const Walked plain = walkTree(root, nullptr);
    ASSERT_TRUE(plain.finished);
    const Walked bulk = walkTree(root, [](int folder) { return listByHand(folder, 0); });
    ASSERT_TRUE(bulk.finished);
    EXPECT_EQ(bulk.seen, plain.seen);
    EXPECT_TRUE(bulk.troubles.empty());
    // The link is reported as a link and never entered.
    const auto link = std::find_if(bulk.seen.begin(), bulk.seen.end(),
                                   [&](const Seen& s) { return std::get<0>(s) == root + "/a/b/link-to-a"; });
    ASSERT_NE(link, bulk.seen.end());
    EXPECT_TRUE(S_ISLNK(std::get<1>(*link)));
    EXPECT_EQ(std::count_if(bulk.seen.begin(), bulk.seen.end(),
                            [&](const Seen& s) { return std::get<0>(s).find("link-to-a/") != std::string::npos; }),
              0);
}

TEST(TreeWalkInBulk, AListingBrokenOffIsReportedAndWhatWasListedStillWalked) {
    TempFolder temp;
    const std::string root = temp.path() + "/tree";
    buildTree(root);
    const Walked plain = walkTree(root, nullptr);
    const Walked broken = walkTree(root, [](int folder) { return listByHand(folder, EIO); });
    EXPECT_TRUE(broken.finished);
    EXPECT_EQ(broken.seen, plain.seen);
    EXPECT_FALSE(broken.troubles.empty());
    EXPECT_TRUE(std::all_of(broken.troubles.begin(), broken.troubles.end(), [](int e) { return e == EIO; }));
}

// A reader given in the platform's place (tests stand mounts in through one) sees every entry: the
// bulk listing, which would bypass it, is not asked.
TEST(TreeWalkInBulk, AGivenReaderTurnsTheBulkListingOff) {
    TempFolder temp;
    const std::string root = temp.path() + "/tree";
    buildTree(root);
    const auto status = readEntryStatus(AT_FDCWD, root.c_str());
    ASSERT_TRUE(status);
    std::size_t read = 0, bulkCalls = 0;
    TreeWalk walk;
    walk.reader = [&](int folder, const char* name) {
        ++read;
        return readEntryStatus(folder, name);
    };
    walk.bulkLister = [&](int folder) {
        ++bulkCalls;
        return listByHand(folder, 0);
    };
    walk.entry = [&](int, const char*, const EntryStatus* entry, int) {
        return entry && entry->isDirectory() ? TreeWalk::Next::descend : TreeWalk::Next::skip;
    };
    EXPECT_TRUE(walk.run(openListedFolder(AT_FDCWD, root.c_str(), *status), *status, root));
    EXPECT_EQ(bulkCalls, 0u);
    EXPECT_EQ(read, walkTree(root, nullptr).seen.size());
}

// The same walk shared among threads, each folder listed in bulk by whichever thread took it: every
// entry is seen once, by exactly one thread, and the folders waiting never exceed the room.
TEST(TreeWalkInBulk, SharedAmongThreadsEachEntryIsSeenOnce) {
    TempFolder temp;
    const std::string root = temp.path() + "/tree";
    buildTree(root);
    for (int i = 0; i < 40; ++i) buildTree(root + "/more/m" + std::to_string(i));
    const auto lister = [](int folder) { return listByHand(folder, 0); };
    Walked alone = walkTree(root, lister);
    ASSERT_TRUE(alone.finished);
    std::sort(alone.seen.begin(), alone.seen.end());
    const auto status = readEntryStatus(AT_FDCWD, root.c_str());
    ASSERT_TRUE(status);
    for (const unsigned threads : {2u, 4u}) {
        ParallelWalk crew(threads, 3);
        std::mutex mutex;
        std::vector<Seen> seen;
        crew.run(
            1,
            [&](std::size_t) {
                return std::optional<ParallelWalk::Folder>(
                    {openListedFolder(AT_FDCWD, root.c_str(), *status), *status, root, {}, 0});
            },
            [&](unsigned, ParallelWalk::Folder& folder) {
                TreeWalk walk;
                walk.bulkLister = lister;
                crew.share(walk, folder);
                std::vector<Seen> mine;
                walk.entry = [&](int, const char* name, const EntryStatus* entry, int error) {
                    mine.emplace_back(walk.pathOf(name), entry ? entry->mode : 0, entry ? entry->inode : 0,
                                      entry ? entry->allocatedBytes : 0, error);
                    return entry && entry->isDirectory() ? TreeWalk::Next::descend : TreeWalk::Next::skip;
                };
                walk.run(folder.dir, folder.status, folder.path);
                std::lock_guard lock(mutex);
                seen.insert(seen.end(), mine.begin(), mine.end());
            });
        std::sort(seen.begin(), seen.end());
        EXPECT_EQ(seen, alone.seen) << threads;
        EXPECT_GT(crew.handedOver(), 0u) << threads;
        EXPECT_LE(crew.peakWaiting(), 3u) << threads;
    }
}

}  // namespace
}  // namespace brimlet
