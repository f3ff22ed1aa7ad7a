// A file rewritten every few seconds through a spare that is swapped in: what a reader of the name
// sees, which inodes are reused, and what happens to a spare that someone removed or replaced.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "base/Files.hpp"
#include "tests/support/TempFolder.hpp"

namespace kestrow {
namespace {

using testing::TempFolder;

std::string contents(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

// Everything in the folder but the record itself: the spare, if any, and whatever else is there.
std::set<std::string> othersIn(const std::string& folder, const std::string& record) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (entry.path().filename() != record) names.insert(entry.path().filename().string());
    return names;
}

struct HeldFolder {
    TempFolder temp;
    int fd = ::open(temp.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ~HeldFolder() { ::close(fd); }
};

// Whether the temporary folder's file system swaps names; where it cannot, every write makes a new
// file and only what a reader sees can be checked.
bool canSwapIn(const HeldFolder& folder) {
    testing::writeFile(folder.temp / "a", "a");
    testing::writeFile(folder.temp / "b", "b");
    const bool swapped = exchangeAt(folder.fd, "a", "b") == 0;
    std::filesystem::remove(folder.temp / "a");
    std::filesystem::remove(folder.temp / "b");
    return swapped;
}

TEST(SwappedFile, EveryWriteShowsWholeAndTheTwoFilesTakeTurns) {
    HeldFolder folder;
    const bool swaps = canSwapIn(folder);
    const std::string path = folder.temp / "brimlet.json";
    // Longer, shorter, empty and longer again: a reused file must not keep a tail of older bytes.
    const std::vector<std::string> writes = {std::string(300, 'a'), "short", "", std::string(5000, 'b'), "end"};
    SwappedFile file(folder.fd, "brimlet.json");
    std::vector<ino_t> visible;
    for (const std::string& bytes : writes) {
        SCOPED_TRACE(bytes.size());
        ASSERT_TRUE(file.write(bytes).ok());
        EXPECT_EQ(contents(path), bytes);
        struct stat st {};
        ASSERT_EQ(::stat(path.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0600u);
        visible.push_back(st.st_ino);
        const auto others = othersIn(folder.temp.path(), "brimlet.json");
        ASSERT_LE(others.size(), 1u);
        for (const std::string& spare : others) EXPECT_TRUE(isAtomicWriteTemporary(spare, "brimlet.json")) << spare;
    }
    if (!swaps) GTEST_SKIP() << "the temporary folder's file system cannot swap two names";
    // The second write makes the spare; from the third on no file is made, and the record
    // alternates between the two.
    for (std::size_t i = 2; i < visible.size(); ++i) EXPECT_EQ(visible[i], visible[i - 2]) << i;
    EXPECT_NE(visible[1], visible[0]);
}

TEST(SwappedFile, AReaderThatOpenedTheNameKeepsTheWholeOldBytes) {
    HeldFolder folder;
    const std::string path = folder.temp / "brimlet.json";
    SwappedFile file(folder.fd, "brimlet.json");
    ASSERT_TRUE(file.write("first record").ok());
    ASSERT_TRUE(file.write("second record").ok());
    std::ifstream reader(path, std::ios::binary);  // opened before the next write
    ASSERT_TRUE(file.write("third, and longer than the others").ok());
    std::stringstream seen;
    seen << reader.rdbuf();
    EXPECT_EQ(seen.str(), "second record");
    EXPECT_EQ(contents(path), "third, and longer than the others");
}

TEST(SwappedFile, ASpareTamperedWithIsLetGoAndNothingIsWrittenThroughIt) {
    enum class Tamper { removed, replacedByLink, replacedByFile };
    for (const Tamper tamper : {Tamper::removed, Tamper::replacedByLink, Tamper::replacedByFile}) {
        SCOPED_TRACE(static_cast<int>(tamper));
        HeldFolder folder;
        TempFolder outside;
        const std::string victim = outside / "victim";
        testing::writeFile(victim, "keep me");
        SwappedFile file(folder.fd, "brimlet.json");
        ASSERT_TRUE(file.write("one").ok());
        ASSERT_TRUE(file.write("two").ok());
        const auto spares = othersIn(folder.temp.path(), "brimlet.json");
        ASSERT_EQ(spares.size(), 1u);
        const std::string spare = folder.temp / *spares.begin();
        ASSERT_EQ(::unlink(spare.c_str()), 0);
        if (tamper == Tamper::replacedByLink) {
            ASSERT_EQ(::symlink(victim.c_str(), spare.c_str()), 0);
        }
        if (tamper == Tamper::replacedByFile) testing::writeFile(spare, "someone else's");

        ASSERT_TRUE(file.write("three").ok());
        EXPECT_EQ(contents(folder.temp / "brimlet.json"), "three");
        EXPECT_EQ(contents(victim), "keep me");
        if (tamper == Tamper::replacedByFile) {
            EXPECT_EQ(contents(spare), "someone else's");
        }
        ASSERT_TRUE(file.write("four").ok());
        EXPECT_EQ(contents(folder.temp / "brimlet.json"), "four");
        EXPECT_EQ(contents(victim), "keep me");
    }
}

TEST(SwappedFile, WhatElseTakesTheNameIsReplacedThePlainWayAndNeverWrittenInto) {
    enum class Found { leftByAnEarlierRun, linkedElsewhere, linkToOutside, folder };
    for (const Found found : {Found::leftByAnEarlierRun, Found::linkedElsewhere, Found::linkToOutside, Found::folder}) {
        SCOPED_TRACE(static_cast<int>(found));
        HeldFolder folder;
        TempFolder outside;
        const std::string path = folder.temp / "brimlet.json", other = outside / "other";
        testing::writeFile(other, "not ours to change");
        SwappedFile file(folder.fd, "brimlet.json");
        ASSERT_TRUE(file.write("one").ok());
        ASSERT_TRUE(file.write("two").ok());
        // Someone puts something else under the record's name between two writes.
        ASSERT_EQ(::unlink(path.c_str()), 0);
        switch (found) {
        case Found::leftByAnEarlierRun: testing::writeFile(path, "from the last run"); break;
        case Found::linkedElsewhere: ASSERT_EQ(::link(other.c_str(), path.c_str()), 0); break;
        case Found::linkToOutside: ASSERT_EQ(::symlink(other.c_str(), path.c_str()), 0); break;
        case Found::folder: ASSERT_EQ(::mkdir(path.c_str(), 0700), 0); break;
        }
        const Status three = file.write("three");
        if (found == Found::folder) {
            // As a rename over a folder always failed: the folder stays where it is.
            EXPECT_EQ(three.message(), "cannot replace (errno " + std::to_string(EISDIR) + ")");
            EXPECT_TRUE(std::filesystem::is_directory(path));
        } else {
            ASSERT_TRUE(three.ok());
            EXPECT_EQ(contents(path), "three");
        }
        for (const char* bytes : {"four", "five", "six"}) ASSERT_EQ(file.write(bytes).ok(), found != Found::folder);
        if (found != Found::folder) {
            EXPECT_EQ(contents(path), "six");
        }
        EXPECT_EQ(contents(other), "not ours to change");
    }
}

TEST(SwappedFile, TheSpareGoesWithTheWriterAndTheRecordStays) {
    HeldFolder folder;
    {
        SwappedFile file(folder.fd, "brimlet.json");
        for (const char* bytes : {"one", "two", "three"}) ASSERT_TRUE(file.write(bytes).ok());
    }
    EXPECT_EQ(othersIn(folder.temp.path(), "brimlet.json"), std::set<std::string>{});
    EXPECT_EQ(contents(folder.temp / "brimlet.json"), "three");
}

}  // namespace
}  // namespace kestrow
