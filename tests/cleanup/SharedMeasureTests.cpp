// Measuring one tree on several threads counts exactly what one thread counts: the same bytes, the
// same entries, the same unreadable folders and the same mount named, whatever the shape of the
// tree and however the folders were shared out. The expected figures are also taken a second,
// independent way (every name's own blocks), so that a folder or a link walked by two threads, or
// by none, shows.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <thread>

#include "core/cleanup/SizeMeasurer.hpp"
#include "core/cleanup/TreeWalk.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;

const CancelCheck never = [] { return false; };

void writeBytes(const std::string& path, std::size_t size) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << std::string(size, 'k');
}

// Every name below `root` once, links not followed: its own blocks and how many names there are.
std::pair<std::uint64_t, std::uint64_t> countByName(const std::string& root) {
    std::uint64_t bytes = 0, names = 0;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        struct stat st {};
        EXPECT_EQ(::lstat(entry.path().c_str(), &st), 0);
        ++names;
        if (!S_ISDIR(st.st_mode)) bytes += static_cast<std::uint64_t>(st.st_blocks) * 512;
    }
    return {bytes, names};
}

void deep(const std::string& root) {
    // Far below the walk's descriptor bound, so parts handed over also climb back through "..".
    std::string folder = root;
    for (int depth = 0; depth < 60; ++depth) {
        folder += "/d" + std::to_string(depth);
        writeBytes(folder + "/f", 100 + 97 * static_cast<std::size_t>(depth));
        if (depth % 7 == 0) writeBytes(folder + "/side/s", 5000);
    }
}

void wide(const std::string& root) {
    for (int i = 0; i < 300; ++i) {
        const std::string folder = root + "/w" + std::to_string(i);
        for (int j = 0; j < i % 5; ++j)
            writeBytes(folder + "/f" + std::to_string(j), 1 + 700 * static_cast<std::size_t>(j));
        fs::create_directories(folder);
    }
}

void hardLinks(const std::string& root) {
    // Each name counts for its blocks, as one thread counts them: a link walked twice adds them twice.
    for (int i = 0; i < 30; ++i) {
        const std::string original = root + "/a" + std::to_string(i % 6) + "/file" + std::to_string(i);
        writeBytes(original, 9000 + 1000 * static_cast<std::size_t>(i));
        for (int k = 0; k < 3; ++k) {
            const std::string other = root + "/b" + std::to_string(k) + "/c" + std::to_string(i % 4);
            fs::create_directories(other);
            fs::create_hard_link(original, other + "/link" + std::to_string(i));
        }
    }
}

void linksOutside(const std::string& root, const std::string& outside) {
    writeBytes(outside + "/huge", 1 << 20);
    fs::create_directories(outside + "/folder/inner");
    for (int i = 0; i < 20; ++i) {
        const std::string folder = root + "/l" + std::to_string(i);
        fs::create_directories(folder);
        fs::create_directory_symlink(outside + "/folder", folder + "/to-folder");
        fs::create_symlink(outside + "/huge", folder + "/to-huge");
        writeBytes(folder + "/own", 3000);
    }
}

TEST(SharedMeasure, CountsExactlyWhatOneThreadCounts) {
    TempFolder outside;
    const struct {
        const char* shape;
        std::function<void(const std::string&)> build;
    } shapes[] = {
        {"deep", deep},
        {"wide", wide},
        {"hard links", hardLinks},
        {"links to outside", [&](const std::string& root) { linksOutside(root, outside / "target"); }},
        {"all at once",
         [&](const std::string& root) {
             deep(root + "/x");
             wide(root + "/y");
             hardLinks(root + "/z");
             linksOutside(root + "/x/d0/d1", outside / "target2");
         }},
    };
    for (const auto& shape : shapes) {
        TempFolder temp;
        const std::string root = temp / "tree";
        fs::create_directories(root);
        shape.build(root);
        const auto [bytes, names] = countByName(root);
        const TreeCensus alone = SizeMeasurer::censusOn(1, {root}, never).front();
        EXPECT_EQ(alone.bytes, bytes) << shape.shape;
        EXPECT_EQ(alone.entries, names) << shape.shape;
        EXPECT_EQ(alone.unreadable, 0) << shape.shape;
        for (const unsigned threads : {2u, 3u, 4u}) {
            // Repeated: which thread takes which folder changes from run to run.
            for (int run = 0; run < 4; ++run)
                EXPECT_EQ(SizeMeasurer::censusOn(threads, {root}, never).front(), alone)
                    << shape.shape << ", " << threads << " threads";
        }
    }
}

// A reader that stands mounts in (an entry named "mnt…" reads as another device), to check that
// the mount named is the one a lone walk meets first, however the tree was shared out.
TEST(SharedMeasure, NamesTheMountALoneWalkMeetsFirst) {
    TempFolder temp;
    const std::string root = temp / "tree";
    wide(root);
    // Mounts in many folders, at several depths: whichever part a thread finishes first or last
    // holds one, but only one is met first by a lone walk.
    for (int i = 0; i < 300; i += 7) {
        fs::create_directories(root + "/w" + std::to_string(i) + "/mnt");
        fs::create_directories(root + "/w" + std::to_string(i + 3) + "/deeper/mnt-deep");
    }
    const EntryReader reader = [](int folder, const char* name) {
        auto status = readEntryStatus(folder, name);
        if (status && std::string_view(name).substr(0, 3) == "mnt") status->device += 1;
        return status;
    };
    const TreeCensus alone = SizeMeasurer::censusOn(1, {root}, never, {}, reader).front();
    ASSERT_TRUE(alone.mountInside);
    for (const unsigned threads : {2u, 4u})
        for (int run = 0; run < 6; ++run)
            EXPECT_EQ(SizeMeasurer::censusOn(threads, {root}, never, {}, reader).front(), alone) << threads;
}

}  // namespace

void PrintTo(const TreeCensus& census, std::ostream* out) {
    *out << census.bytes << " bytes, " << census.entries << " entries, " << census.unreadable << " unreadable"
         << (census.exists ? "" : ", missing") << ", mount: " << census.mountInside.value_or("none");
}

namespace {

// Reading permissions do not stop root, so the census runs in a child that drops to nobody and
// writes back what it counted.
struct Counted {
    std::uint64_t bytes = 0;
    std::int64_t unreadable = 0;
    std::uint64_t entries = 0;
    bool operator==(const Counted&) const = default;
};

Counted countAsNobody(const std::string& path, unsigned threads) {
    return kestrow::testing::runAsNobody<Counted>([&] {
        const TreeCensus census = SizeMeasurer::censusOn(threads, {path}, never).front();
        return Counted{census.bytes, census.unreadable, census.entries};
    });
}

TEST(SharedMeasure, FoldersThatCannotBeReadAreCountedOnceWhoeverMeetsThem) {
    TempFolder temp;
    ::chmod(temp.path().c_str(), 0755);
    const std::string root = temp / "tree";
    wide(root);
    deep(root + "/w9");
    const char* locked[] = {"/w2", "/w120", "/w9/d0/d1/d2/d3", "/w299"};
    for (const char* folder : locked) writeBytes(root + folder + "/inside/secret", 20000);
    for (const auto& entry : fs::recursive_directory_iterator(root))
        ::chmod(entry.path().c_str(), entry.is_directory() ? 0755 : 0644);
    ::chmod(root.c_str(), 0755);
    for (const char* folder : locked) ::chmod((root + folder).c_str(), 0);
    const Counted alone = countAsNobody(root, 1);
    EXPECT_EQ(alone.unreadable, 4);
    for (const unsigned threads : {2u, 4u})
        for (int run = 0; run < 3; ++run) EXPECT_EQ(countAsNobody(root, threads), alone) << threads;
}

// A cancel test that answers yes from its second question on. The walk stops soon after: the
// other threads stop at their next entry instead of running on to their own next question, and
// what was summed so far comes back with the path's identity, as from a lone walk.
TEST(SharedMeasure, CancellingStopsEveryThreadPromptlyWithWhatWasSummed) {
    TempFolder temp;
    const std::string root = temp / "tree";
    for (int i = 0; i < 24; ++i)
        for (int j = 0; j < 400; ++j) writeBytes(root + "/c" + std::to_string(i) + "/f" + std::to_string(j), 10);
    const TreeCensus full = SizeMeasurer::censusOn(1, {root}, never).front();
    for (const unsigned threads : {1u, 2u, 4u}) {
        std::atomic<std::uint64_t> reads{0}, readsWhenCancelled{0};
        std::atomic<int> asked{0};
        const CancelCheck cancelLate = [&] {
            if (++asked < 2) return false;
            std::uint64_t none = 0;
            readsWhenCancelled.compare_exchange_strong(none, reads.load());
            return true;
        };
        const EntryReader counting = [&](int folder, const char* name) {
            ++reads;
            return readEntryStatus(folder, name);
        };
        std::mutex mutex;
        std::vector<std::pair<std::size_t, std::size_t>> reported;
        const std::vector<TreeCensus> cut = SizeMeasurer::censusOn(
            threads, {root, root + "/c0", root + "/c5"}, cancelLate,
            [&](std::size_t measured, std::size_t total) {
                std::lock_guard lock(mutex);
                reported.emplace_back(measured, total);
            },
            counting);
        ASSERT_GT(readsWhenCancelled.load(), 0u) << threads;
        EXPECT_LT(reads.load() - readsWhenCancelled.load(), SizeMeasurer::cancelInterval) << threads;
        EXPECT_LT(cut[0].bytes, full.bytes) << threads;
        EXPECT_LT(cut[0].entries, full.entries) << threads;
        for (const TreeCensus& each : cut) {
            EXPECT_TRUE(each.exists) << threads;
            EXPECT_TRUE(each.identity) << threads;
        }
        EXPECT_EQ(cut[0].identity, full.identity) << threads;
        // Every path is still reported as measured, each count once.
        std::sort(reported.begin(), reported.end());
        EXPECT_EQ(reported, (std::vector<std::pair<std::size_t, std::size_t>>{{1, 3}, {2, 3}, {3, 3}})) << threads;
    }
}

// However many trees, at most the threads asked for read entries, and the descriptors held stay
// within what each thread's walk holds plus the folders allowed to wait.
TEST(SharedMeasure, ThreadsAndDescriptorsStayBounded) {
    TempFolder temp;
    std::vector<std::string> roots;
    for (int i = 0; i < 4; ++i) {
        roots.push_back(temp / ("tree" + std::to_string(i)));
        deep(roots.back());
        wide(roots.back() + "/wide");
    }
    const auto openNow = [] {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
    };
    const std::size_t before = openNow();
    for (const unsigned threads : {2u, 3u}) {
        std::mutex mutex;
        std::set<std::thread::id> readers;
        std::size_t peak = 0;
        std::atomic<std::uint64_t> reads{0};
        const EntryReader watching = [&](int folder, const char* name) {
            if (++reads % 32 == 0) {
                const std::size_t open = openNow();
                std::lock_guard lock(mutex);
                readers.insert(std::this_thread::get_id());
                peak = std::max(peak, open);
            }
            return readEntryStatus(folder, name);
        };
        const std::vector<TreeCensus> shared = SizeMeasurer::censusOn(threads, roots, never, {}, watching);
        for (std::size_t i = 0; i < roots.size(); ++i)
            EXPECT_EQ(shared[i], SizeMeasurer::censusOn(1, {roots[i]}, never).front()) << roots[i];
        EXPECT_LE(readers.size(), threads);
        // Each thread: one walk's descriptors and the listing of /proc/self/fd it is taking.
        const std::size_t bound =
            before + threads * (TreeWalk().maxOpen + 1) + threads * SizeMeasurer::waitingPerThread;
        EXPECT_LE(peak, bound) << threads;
        EXPECT_EQ(openNow(), before);
    }
}

}  // namespace
}  // namespace brimlet
