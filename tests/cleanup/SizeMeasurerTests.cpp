#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "core/cleanup/SizeMeasurer.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;

std::uint64_t blocksOf(const std::string& path) {
    struct stat st {};
    ::lstat(path.c_str(), &st);
    return static_cast<std::uint64_t>(st.st_blocks) * 512;
}

void writeBytes(const std::string& path, std::size_t size) { std::ofstream(path) << std::string(size, 'k'); }

const CancelCheck never = [] { return false; };

TEST(SizeMeasurer, FilesFoldersLinksAndMissingPaths) {
    TempFolder temp;
    writeBytes(temp / "plain", 10000);
    EXPECT_EQ(SizeMeasurer::allocatedSize(temp / "plain", never), (MeasuredSize{blocksOf(temp / "plain"), 0}));
    EXPECT_EQ(SizeMeasurer::allocatedSize(temp / "missing", never), (MeasuredSize{0, 1}));

    fs::create_directories(temp / "tree/.hidden/deep/deeper");
    writeBytes(temp / "tree/.hidden/deep/deeper/f", 70000);
    writeBytes(temp / "tree/g", 5);
    TempFolder elsewhere;
    writeBytes(elsewhere / "huge", 1 << 20);
    fs::create_symlink(elsewhere.path(), temp / "tree/link");  // never followed
    const std::uint64_t expected =
        blocksOf(temp / "tree/.hidden/deep/deeper/f") + blocksOf(temp / "tree/g") + blocksOf(temp / "tree/link");
    EXPECT_EQ(SizeMeasurer::allocatedSize(temp / "tree", never), (MeasuredSize{expected, 0}));
    // Sparse files count for what they occupy, not their length.
    {
        std::ofstream sparse(temp / "sparse");
        sparse.seekp(50 << 20);
        sparse << 'x';
    }
    EXPECT_LT(SizeMeasurer::allocatedSize(temp / "sparse", never).bytes, 1u << 20);
}

TEST(SizeMeasurer, CancelTestIsAskedEvery2048Entries) {
    TempFolder temp;
    for (int i = 0; i < 2047; ++i) std::ofstream(temp / ("f" + std::to_string(i)));
    std::atomic<int> asked{0};
    const CancelCheck counting = [&] { return ++asked, false; };
    SizeMeasurer::allocatedSize(temp.path(), counting);
    EXPECT_EQ(asked.load(), 0);
    fs::create_directory(temp / "the-2048th");
    SizeMeasurer::allocatedSize(temp.path(), counting);
    EXPECT_EQ(asked.load(), 1);

    for (int i = 0; i < 600; ++i) writeBytes(temp / ("g" + std::to_string(i)), 100);
    const MeasuredSize full = SizeMeasurer::allocatedSize(temp.path(), never);
    const MeasuredSize cut = SizeMeasurer::allocatedSize(temp.path(), [] { return true; });
    EXPECT_LT(cut.bytes, full.bytes);  // a cancelled walk returns what it summed so far
    EXPECT_EQ(SizeMeasurer::allocatedSize(temp.path(), nullptr), full);  // an empty test is never asked to stop
}

// Reading permissions do not stop root, so the unreadable cases run in a child that drops to nobody.
MeasuredSize measureAsNobody(const std::string& path) {
    if (::getuid() != 0) return SizeMeasurer::allocatedSize(path, never);
    return kestrow::testing::runAsNobody<MeasuredSize>([&] { return SizeMeasurer::allocatedSize(path, never); });
}

TEST(SizeMeasurer, UnreadableFoldersAreCountedNotSummed) {
    TempFolder temp;
    ::chmod(temp.path().c_str(), 0755);
    fs::create_directories(temp / "tree/open");
    fs::create_directories(temp / "tree/locked/inner");
    fs::create_directories(temp / "tree/locked2");
    writeBytes(temp / "tree/open/a", 9000);
    writeBytes(temp / "tree/locked/inner/b", 9000);
    ::chmod((temp / "tree/locked").c_str(), 0);
    ::chmod((temp / "tree/locked2").c_str(), 0);
    ::chmod((temp / "tree/open/a").c_str(), 0644);
    EXPECT_EQ(measureAsNobody(temp / "tree"), (MeasuredSize{blocksOf(temp / "tree/open/a"), 2}));
    EXPECT_EQ(measureAsNobody(temp / "tree/locked"), (MeasuredSize{0, 1}));
}

TEST(CancelCheck, EmptyMeansNeverCancelledEverywhere) {
    const std::function<bool()> emptyFunction;
    const CancelCheck nevers[] = {CancelCheck(), nullptr, emptyFunction, [] { return false; }};
    for (const CancelCheck& test : nevers) EXPECT_FALSE(test());
    EXPECT_TRUE(CancelCheck([] { return true; })());

    TempFolder home;
    fs::create_directories(home / "Folder");
    fs::create_directories(home / "Other");
    std::ofstream(home / "Other/a") << "a";
    EXPECT_EQ(SizeMeasurer::homeUsage(home.path(), CancelCheck()).size(), 2u);
}

TEST(SizeMeasurer, MeasuringStartsABoundedNumberOfThreads) {
    // Each task waits until as many tasks run as the bound allows (or all have started), so the
    // peak shows how many ran at once; unbounded, all 64 would.
    for (const std::size_t count : {std::size_t{64}, std::size_t{2}, std::size_t{0}}) {
        std::mutex mutex;
        std::condition_variable changed;
        std::size_t running = 0, started = 0, peak = 0;
        std::vector<int> runs(count, 0);
        SizeMeasurer::concurrently(count, [&](std::size_t i) {
            std::unique_lock lock(mutex);
            ++runs[i];
            ++started;
            peak = std::max(peak, ++running);
            changed.notify_all();
            const bool full = changed.wait_for(lock, std::chrono::seconds(5), [&] {
                return running >= SizeMeasurer::maxThreads || started == count || started > SizeMeasurer::maxThreads;
            });
            EXPECT_TRUE(full);
            --running;
        });
        EXPECT_EQ(peak, std::min<std::size_t>(count, SizeMeasurer::maxThreads)) << count;
        EXPECT_EQ(runs, std::vector<int>(count, 1)) << count;
    }
}

TEST(SizeMeasurer, HomeUsageListsRealFoldersLargestFirst) {
    TempFolder home;
    fs::create_directories(home / "Small");
    fs::create_directories(home / ".Hidden");
    fs::create_directories(home / "EmptyA");
    fs::create_directories(home / "EmptyB");
    writeBytes(home / "Small/x", 5000);
    writeBytes(home / ".Hidden/y", 200000);
    writeBytes(home / "file-in-home", 900000);
    TempFolder big;
    writeBytes(big / "z", 4 << 20);
    fs::create_symlink(big.path(), home / "Linked");
    const auto usage = SizeMeasurer::homeUsage(home.path(), never);
    ASSERT_EQ(usage.size(), 4u);
    EXPECT_EQ(usage[0].name, ".Hidden");
    EXPECT_EQ(usage[1].name, "Small");
    EXPECT_EQ(usage[1].url, home / "Small");
    EXPECT_EQ(usage[2].bytes, 0u);
    EXPECT_TRUE(SizeMeasurer::homeUsage(home / "nope", never).empty());

    MeasureResult result;
    result.regenerable.resize(2);
    EXPECT_EQ(result.regenerableBytes(), 0u);
    result.regenerable[1].size = 7;
    EXPECT_EQ(result.regenerableBytes(), 7u);
    EXPECT_EQ(FullDiskAccess::canList(home / "Library/Safari"), std::nullopt);
    fs::create_directories(home / "Library/Safari");
    EXPECT_EQ(FullDiskAccess::canList(home / "Library/Safari"), true);
}

}  // namespace
}  // namespace brimlet
