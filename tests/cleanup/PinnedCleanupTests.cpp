// The cleaner acts on exactly what it checked, tried the way a hostile process would: folders on
// an item's path swapped for links before, during and after the check, bind mounts put over a
// cache or inside it, one file offered as its own duplicate, trees deeper than the descriptor
// limit, names too long for the Trash. Real folders, real links, real mounts (in a private mount
// namespace of a forked child, as root) and a real racing process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "core/cleanup/ApprovalScanner.hpp"
#include "core/cleanup/Cleaner.hpp"
#include "core/cleanup/CleanupSession.hpp"
#include "core/cleanup/RemovalCheck.hpp"
#include "core/cleanup/SizeMeasurer.hpp"
#include "core/cleanup/TrashNaming.hpp"
#include "core/cleanup/TreeRemoval.hpp"
#include "core/cleanup/TreeWalk.hpp"
#include "core/cleanup/linux/FreedesktopTrash.hpp"
#include "tests/cleanup/CleanupTestSupport.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;
using kestrow::testing::writeFile;
using testing::readFile;
using testing::ScopedDataHome;

std::string realFolder(const TempFolder& temp) {
    // Others must be able to pass through, for the cases run as an unprivileged user.
    fs::permissions(temp.path(), fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
    return fs::canonical(temp.path()).string();
}

std::optional<FileIdentity> identityOf(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return std::nullopt;
    return FileIdentity{static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)};
}

// Each file below a folder with its content, in a stable order: "what is on the disk".
std::vector<std::pair<std::string, std::string>> contents(const std::string& folder) {
    std::vector<std::pair<std::string, std::string>> files;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(folder, error); !error && it != fs::end(it); it.increment(error))
        if (it->is_regular_file()) files.emplace_back(it->path().string().substr(folder.size()), readFile(it->path()));
    std::sort(files.begin(), files.end());
    return files;
}

CleanupItem cacheItem(const std::string& home) {
    CleanupItem item;
    item.id = "uv-cache";
    item.title = "uv cache";
    item.url = home + "/.cache/uv";
    return item;
}

Cleaner quietCleaner(const std::string& home, FileOperations& operations) {
    Cleaner cleaner(home, operations);
    cleaner.processesUsing = [](const std::string&) { return std::vector<ProcessUse>{}; };
    return cleaner;
}

// A home with a uv cache and, in Documents, a folder of the same name that must never be touched.
struct Home {
    TempFolder temp;
    std::string root = realFolder(temp);
    std::string home = root + "/home";
    std::string cache = home + "/.cache/uv";
    std::string documents = home + "/Documents/uv";
    std::vector<std::pair<std::string, std::string>> documentsBefore;

    Home() {
        writeFile(cache + "/wheels/a.whl", std::string(12000, 'w'));
        writeFile(cache + "/b", "cache");
        writeFile(documents + "/thesis.txt", std::string(30000, 't'));
        writeFile(documents + "/notes/n.txt", "notes");
        documentsBefore = contents(documents);
    }
    bool documentsIntact() const { return contents(documents) == documentsBefore; }
};

// Runs `work` in a forked child with a mount namespace of its own (mounts made private first), so
// that no mount it makes is ever seen by this process; its exit status and what it printed.
struct ChildResult {
    int status = -1;
    std::string output;
};
ChildResult inPrivateMountNamespace(const std::function<int(FILE* out)>& work) {
    int fds[2];
    if (::pipe(fds) != 0) return {};
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        FILE* out = ::fdopen(fds[1], "w");
        int code = 100;
        if (::unshare(CLONE_NEWNS) != 0) {
            std::fprintf(out, "unshare: %s\n", std::strerror(errno));
        } else if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            std::fprintf(out, "private mounts: %s\n", std::strerror(errno));
        } else {
            code = work(out);
        }
        std::fflush(out);
        ::_exit(code);
    }
    ::close(fds[1]);
    ChildResult result;
    char buffer[4096];
    ssize_t n = 0;
    while ((n = ::read(fds[0], buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR))
        if (n > 0) result.output.append(buffer, static_cast<std::size_t>(n));
    ::close(fds[0]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

// A process that swaps two names with each other for as long as it lives; killed and reaped at
// the end of the scope.
class Swapper {
public:
    Swapper(const std::string& a, const std::string& b) : a_(a), b_(b) {
        pid_ = ::fork();
        if (pid_ == 0) {
            for (;;) ::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE);
        }
    }
    ~Swapper() { stop(); }
    void stop() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {}
        pid_ = -1;
    }
    bool running() const { return pid_ > 0; }

private:
    std::string a_, b_;
    pid_t pid_ = -1;
};

TEST(Pinning, NoLinkAnywhereOnThePath) {
    TempFolder temp;
    const std::string root = realFolder(temp);
    writeFile(root + "/real/inner/item", "x");
    fs::create_symlink(root + "/real", root + "/linked");
    fs::create_symlink(root + "/real/inner/item", root + "/real/inner/item-link");
    for (const Resolution how : {Resolution::fastest, Resolution::perComponent}) {
        SCOPED_TRACE(how == Resolution::fastest ? "fastest" : "per component");
        int error = 0;
        const auto pinned = Pinning::pin(root + "/real/inner/item", error, how);
        ASSERT_TRUE(pinned) << std::strerror(error);
        EXPECT_EQ(pinned->identity(), identityOf(root + "/real/inner/item"));
        EXPECT_EQ(pinned->name, "item");
        EXPECT_TRUE(Pinning::unchanged(*pinned));

        EXPECT_FALSE(Pinning::pin(root + "/linked/inner/item", error, how));
        EXPECT_TRUE(error == ELOOP || error == ENOTDIR) << std::strerror(error);
        EXPECT_FALSE(Pinning::pin(root + "/real/missing/item", error, how));
        EXPECT_EQ(error, ENOENT);
        EXPECT_FALSE(Pinning::pin(root + "/real/../real/inner/item", error, how));
        // A link as the item itself is pinned as the link, never its target.
        const auto link = Pinning::pin(root + "/real/inner/item-link", error, how);
        ASSERT_TRUE(link);
        EXPECT_TRUE(link->status.isLink());
    }
}

// The policy has said yes; then another process renames ~/.cache away and puts a link to
// ~/Documents in its place. What is removed (or trashed) is the approved cache, through the folder
// pinned before the swap, and the report says exactly that.
TEST(PinnedRemoval, AParentSwappedForALinkAfterTheCheckCostsNothingOutside) {
    for (const DeleteMode mode : {DeleteMode::permanent, DeleteMode::trash}) {
        for (const Resolution how : {Resolution::fastest, Resolution::perComponent}) {
            SCOPED_TRACE(std::string(mode.title()) + (how == Resolution::fastest ? ", openat2" : ", per component"));
            Home h;
            ScopedDataHome dataHome(h.home + "/.local/share");
            const auto cacheBefore = contents(h.cache);
            LiveFileOperations operations;
            Cleaner cleaner = quietCleaner(h.home, operations);
            cleaner.resolution = how;
            CleanupItem item = cacheItem(h.home);
            const TreeCensus measured = SizeMeasurer::census(item.url, CancelCheck());
            item.measuredIdentity = measured.identity;
            bool swapped = false;
            // Runs after the policy's answer and the pinning, right before the removal.
            cleaner.processesUsing = [&](const std::string&) {
                fs::rename(h.home + "/.cache", h.home + "/.cache-away");
                fs::create_symlink(h.home + "/Documents", h.home + "/.cache");
                swapped = true;
                return std::vector<ProcessUse>{};
            };
            const CleanupReport report = cleaner.run({item}, {item.url}, mode, nullptr, nullptr);
            ASSERT_TRUE(swapped);
            EXPECT_TRUE(h.documentsIntact());
            ASSERT_EQ(report.deleted.size(), 1u) << report.markdown();
            EXPECT_EQ(report.deleted[0].bytes, measured.bytes);
            EXPECT_EQ(report.deleted[0].path, item.url);
            EXPECT_FALSE(fs::exists(h.home + "/.cache-away/uv"));  // what the report says went
            if (mode == DeleteMode::trash) {
                EXPECT_EQ(contents(h.home + "/.local/share/Trash/files/uv"), cacheBefore);
            }
        }
    }
}

// No race needed: measure, then replace ~/.cache by a link to ~/Documents, or replace the cache by
// another folder of the same name. The clean skips the item with a fixed reason, in both modes.
TEST(PinnedRemoval, AnItemChangedSinceItWasMeasuredIsSkipped) {
    enum class Change { parentLinked, itemReplaced, itemLinked };
    for (const Change change : {Change::parentLinked, Change::itemReplaced, Change::itemLinked}) {
        for (const DeleteMode mode : {DeleteMode::permanent, DeleteMode::trash}) {
            SCOPED_TRACE(std::to_string(int(change)) + ", " + std::string(mode.title()));
            Home h;
            ScopedDataHome dataHome(h.home + "/.local/share");
            LiveFileOperations operations;
            CleanupSession session(h.home, operations);
            session.cleaner().processesUsing = [](const std::string&) { return std::vector<ProcessUse>{}; };
            const MeasureResult measured = session.measure().get();
            ASSERT_EQ(measured.regenerable.size(), 1u);
            std::string replacement;
            switch (change) {
            case Change::parentLinked:
                fs::rename(h.home + "/.cache", h.home + "/.cache-away");
                fs::create_symlink(h.home + "/Documents", h.home + "/.cache");
                break;
            case Change::itemReplaced:
                fs::rename(h.cache, h.home + "/.cache/uv-away");
                writeFile(h.cache + "/someone-elses", "data");
                replacement = h.cache;
                break;
            case Change::itemLinked:
                fs::rename(h.cache, h.home + "/.cache/uv-away");
                fs::create_symlink(h.documents, h.cache);
                break;
            }
            const auto replacedBefore = replacement.empty() ? decltype(contents("")){} : contents(replacement);
            const std::vector<std::string> ids = {"uv-cache"};
            const CleanupReport report = session.clean(ids, session.approve(ids).get(), mode, nullptr, nullptr).get();
            ASSERT_EQ(report.skipped.size(), 1u) << report.markdown();
            EXPECT_TRUE(report.deleted.empty());
            const std::string expected = change == Change::itemLinked
                                             ? "Is a symbolic link; links are never followed for deletion"
                                             : Pinning::changedSinceMeasured;
            EXPECT_EQ(report.skipped[0].reason, expected);
            EXPECT_TRUE(h.documentsIntact());
            if (!replacement.empty()) {
                EXPECT_EQ(contents(replacement), replacedBefore);
            }
            EXPECT_FALSE(fs::exists(h.home + "/.local/share/Trash/files/uv"));
        }
    }
}

// A bind mount of ~/Documents over ~/.cache after measuring: no link anywhere, the path resolves
// the same, only device and inode tell. Run in a private mount namespace of a forked child.
TEST(PinnedRemoval, AParentBindMountedAfterMeasuringIsSkipped) {
    KESTROW_REQUIRE_ROOT();
    Home h;
    writeFile(h.home + "/Documents/uv/marker", "documents");  // Documents has the same shape as .cache
    h.documentsBefore = contents(h.documents);
    const ChildResult child = inPrivateMountNamespace([&](FILE* out) {
        ScopedDataHome dataHome(h.home + "/.local/share");
        LiveFileOperations operations;
        Cleaner cleaner = quietCleaner(h.home, operations);
        CleanupItem item = cacheItem(h.home);
        item.measuredIdentity = SizeMeasurer::census(item.url, CancelCheck()).identity;
        if (::mount((h.home + "/Documents").c_str(), (h.home + "/.cache").c_str(), nullptr, MS_BIND, nullptr) != 0) {
            std::fprintf(out, "bind mount: %s\n", std::strerror(errno));
            return 100;
        }
        int skippedRight = 0;
        for (const DeleteMode mode : {DeleteMode::permanent, DeleteMode::trash}) {
            const CleanupReport report =
                cleaner.run({item}, {AllowedRoot{item.url, item.measuredIdentity}}, mode, nullptr, nullptr);
            std::fprintf(out, "%s", report.markdown().c_str());
            if (report.deleted.empty() && report.skipped.size() == 1 &&
                report.skipped[0].reason == Pinning::changedSinceMeasured)
                ++skippedRight;
        }
        return skippedRight == 2 && contents(h.documents) == h.documentsBefore ? 0 : 1;
    });
    if (child.status == 100) GTEST_SKIP() << "no private mount namespace here: " << child.output;
    EXPECT_EQ(child.status, 0) << child.output;
    EXPECT_TRUE(h.documentsIntact());
    EXPECT_EQ(readFile(h.cache + "/b"), "cache");
}

// A process swaps ~/.cache with a link to ~/Documents in a tight loop while the cleaner runs, 200
// rounds, both modes by turns. Nothing outside the approved cache is ever lost, and every report
// says what the disk shows: deleted with its measured size and gone, or skipped and whole.
TEST(PinnedRemoval, ASwapperRacingTheCleanerLosesNothing) {
    Home h;
    ScopedDataHome dataHome(h.home + "/.local/share");
    const std::string cacheFolder = h.home + "/.cache", link = h.home + "/.cache-link";
    fs::remove_all(h.cache);
    fs::create_symlink(h.home + "/Documents", link);
    // The real cache folder, whatever it is called at the moment.
    const Descriptor cacheFd(::open(cacheFolder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(cacheFd.valid());
    const std::string trashFiles = h.home + "/.local/share/Trash/files";
    LiveFileOperations operations;
    Cleaner cleaner = quietCleaner(h.home, operations);
    int deleted = 0, skipped = 0;
    {
        Swapper swapper(cacheFolder, link);
        ASSERT_TRUE(swapper.running());
        for (int round = 0; round < 200; ++round) {
            SCOPED_TRACE("round " + std::to_string(round));
            ASSERT_EQ(::mkdirat(cacheFd.get(), "uv", 0700), 0) << std::strerror(errno);
            const Descriptor uv(::openat(cacheFd.get(), "uv", O_PATH | O_DIRECTORY | O_CLOEXEC));
            std::uint64_t bytes = 0;
            for (const char* name : {"a", "b", "c"}) {
                const int fd = ::openat(uv.get(), name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
                ASSERT_GE(fd, 0);
                const std::string text(5000, name[0]);
                ASSERT_EQ(::write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
                struct stat st {};
                ::fstat(fd, &st);
                bytes += static_cast<std::uint64_t>(st.st_blocks) * 512;
                ::close(fd);
            }
            struct stat st {};
            ASSERT_EQ(::fstatat(cacheFd.get(), "uv", &st, AT_SYMLINK_NOFOLLOW), 0);
            CleanupItem item = cacheItem(h.home);
            item.measuredIdentity =
                FileIdentity{static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)};
            const DeleteMode mode = round % 2 == 0 ? DeleteMode::permanent : DeleteMode::trash;
            const CleanupReport report =
                cleaner.run({item}, {AllowedRoot{item.url, item.measuredIdentity}}, mode, nullptr, nullptr);

            ASSERT_TRUE(h.documentsIntact());
            ASSERT_EQ(report.deleted.size() + report.skipped.size(), 1u);
            const bool stillThere = ::fstatat(cacheFd.get(), "uv", &st, AT_SYMLINK_NOFOLLOW) == 0;
            if (!report.deleted.empty()) {
                ++deleted;
                ASSERT_FALSE(stillThere) << report.markdown();
                ASSERT_EQ(report.deleted[0].bytes, bytes);
                if (mode == DeleteMode::trash) {
                    ASSERT_EQ(readFile(trashFiles + "/uv/a"), std::string(5000, 'a'));
                    fs::remove_all(h.home + "/.local/share/Trash");
                }
            } else {
                ++skipped;
                ASSERT_TRUE(stillThere) << report.markdown();
                for (const char* name : {"a", "b", "c"}) ASSERT_EQ(::fstatat(uv.get(), name, &st, 0), 0);
                ASSERT_EQ(::unlinkat(uv.get(), "a", 0) | ::unlinkat(uv.get(), "b", 0) | ::unlinkat(uv.get(), "c", 0),
                          0);
                ASSERT_EQ(::unlinkat(cacheFd.get(), "uv", AT_REMOVEDIR), 0);
            }
        }
    }
    std::cout << "deleted " << deleted << ", skipped " << skipped << " of 200 rounds\n";
    // Leave the names as they began.
    if (fs::is_symlink(cacheFolder))
        ::renameat2(AT_FDCWD, cacheFolder.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE);
    EXPECT_TRUE(h.documentsIntact());
}

// A mount inside a cache is never moved to the Trash: "Empty Trash" would erase what it shows.
// Here it sits behind a folder the cleaner cannot read, where the measuring walk cannot see it;
// the system's mount table tells.
TEST(TrashMove, AMountBehindAnUnreadableFolderStaysPut) {
    KESTROW_REQUIRE_ROOT();
    Home h;
    const std::string mountPoint = h.cache + "/locked/mnt";
    fs::create_directories(mountPoint);
    testing::giveToUnprivileged(h.home);
    ::chmod((h.cache + "/locked").c_str(), 0);
    const ChildResult child = inPrivateMountNamespace([&](FILE* out) {
        if (::mount(h.documents.c_str(), mountPoint.c_str(), nullptr, MS_BIND, nullptr) != 0) {
            std::fprintf(out, "bind mount: %s\n", std::strerror(errno));
            return 100;
        }
        ScopedDataHome dataHome(h.home + "/.local/share");
        LiveFileOperations operations;
        Cleaner cleaner = quietCleaner(h.home, operations);
        CleanupReport report;
        testing::runUnprivileged(
            [&] { report = cleaner.run({cacheItem(h.home)}, {h.cache}, DeleteMode::trash, nullptr, nullptr); });
        std::fprintf(out, "%s", report.markdown().c_str());
        const bool right = report.deleted.empty() && report.skipped.size() == 1 &&
                           report.skipped[0].reason == std::string(RemovalCheck::mountInside) + ": " + mountPoint;
        return right && fs::exists(h.cache + "/b") ? 0 : 1;
    });
    if (child.status == 100) GTEST_SKIP() << "no private mount namespace here: " << child.output;
    EXPECT_EQ(child.status, 0) << child.output;
    EXPECT_TRUE(h.documentsIntact());
    ::chmod((h.cache + "/locked").c_str(), 0700);
}

// A cache with a folder this user cannot read goes to the Trash whole, and the report says that
// more went than could be counted, never a smaller figure alone.
TEST(TrashMove, UnreadablePartsAreSaidNotHidden) {
    Home h;
    writeFile(h.cache + "/locked/big", std::string(200000, 'l'));
    testing::giveToUnprivileged(h.home);
    ::chmod((h.cache + "/locked").c_str(), 0);
    ScopedDataHome dataHome(h.home + "/.local/share");
    LiveFileOperations operations;
    Cleaner cleaner = quietCleaner(h.home, operations);
    CleanupReport report;
    testing::runUnprivileged(
        [&] { report = cleaner.run({cacheItem(h.home)}, {h.cache}, DeleteMode::trash, nullptr, nullptr); });
    ::chmod((h.home + "/.local/share/Trash/files/uv/locked").c_str(), 0700);
    ASSERT_EQ(report.deleted.size(), 1u) << report.markdown();
    EXPECT_FALSE(fs::exists(h.cache));
    EXPECT_EQ(readFile(h.home + "/.local/share/Trash/files/uv/locked/big"), std::string(200000, 'l'));
    EXPECT_EQ(report.deleted[0].sizeIncomplete, true);
    EXPECT_NE(report.markdown().find(std::string(CleanupReport::sizeIncompleteNote)), std::string::npos);
    EXPECT_NE(report.json()->find("\"sizeIncomplete\" : true"), std::string::npos) << *report.json();

    // A tree read whole carries no such mark, and its JSON has no such key.
    Home whole;
    ScopedDataHome wholeData(whole.home + "/.local/share");
    Cleaner plain = quietCleaner(whole.home, operations);
    const CleanupReport clean = plain.run({cacheItem(whole.home)}, {whole.cache}, DeleteMode::trash, nullptr, nullptr);
    ASSERT_EQ(clean.deleted.size(), 1u) << clean.markdown();
    EXPECT_FALSE(clean.deleted[0].sizeIncomplete);
    EXPECT_EQ(clean.json()->find("sizeIncomplete"), std::string::npos);
}

// The only copy is never offered as its own duplicate: a linked Desktop is not read, and two
// names of one file (a hard link) are one file. The cleaner checks again before it acts.
TEST(Duplicates, OneFileIsNeverItsOwnDuplicate) {
    const std::string installer(60000, 'i');
    enum class Setup { linkedDesktop, hardLink, realCopy };
    for (const Setup setup : {Setup::linkedDesktop, Setup::hardLink, Setup::realCopy}) {
        SCOPED_TRACE(int(setup));
        TempFolder temp;
        const std::string home = realFolder(temp);
        writeFile(home + "/Downloads/Tool.dmg", installer);
        switch (setup) {
        case Setup::linkedDesktop: fs::create_symlink(home + "/Downloads", home + "/Desktop"); break;
        case Setup::hardLink:
            fs::create_directories(home + "/Desktop");
            fs::create_hard_link(home + "/Downloads/Tool.dmg", home + "/Desktop/Tool.dmg");
            break;
        case Setup::realCopy: writeFile(home + "/Desktop/Tool.dmg", installer); break;
        }
        const auto items = ApprovalScanner(home).duplicateInstallerItems(CancelCheck());
        EXPECT_EQ(items.size(), setup == Setup::realCopy ? 1u : 0u);
    }

    // An item whose kept copy has become the same file by the time of the clean.
    TempFolder temp;
    const std::string home = realFolder(temp);
    writeFile(home + "/Downloads/Tool.dmg", installer);
    fs::create_directories(home + "/Desktop");
    fs::create_hard_link(home + "/Downloads/Tool.dmg", home + "/Desktop/Tool.dmg");
    CleanupItem copy;
    copy.id = "duplicate:Desktop/Tool.dmg";
    copy.title = "Tool.dmg";
    copy.url = home + "/Desktop/Tool.dmg";
    copy.kind = CleanupKind::personal;
    copy.requiresExisting = home + "/Downloads/Tool.dmg";
    ScopedDataHome dataHome(home + "/.local/share");
    LiveFileOperations operations;
    const CleanupReport report =
        quietCleaner(home, operations).run({copy}, {copy.url}, DeleteMode::trash, nullptr, nullptr);
    ASSERT_EQ(report.skipped.size(), 1u) << report.markdown();
    EXPECT_EQ(report.skipped[0].reason, "The copy that was going to be kept (Tool.dmg) is this same file");
    EXPECT_EQ(readFile(home + "/Desktop/Tool.dmg"), installer);
}

// A descriptor limit far below the depth of the tree.
class ScopedDescriptorLimit {
public:
    explicit ScopedDescriptorLimit(rlim_t soft) {
        ::getrlimit(RLIMIT_NOFILE, &old_);
        rlimit lowered = old_;
        lowered.rlim_cur = soft;
        ok_ = ::setrlimit(RLIMIT_NOFILE, &lowered) == 0;
    }
    ~ScopedDescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &old_); }
    bool ok() const { return ok_; }

private:
    rlimit old_{};
    bool ok_ = false;
};

// Builds a chain of `depth` folders with a file at every level, one descriptor at a time; the
// allocated bytes of the files.
std::uint64_t buildDeepTree(const std::string& top, int depth) {
    fs::create_directories(top);
    int fd = ::open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    std::uint64_t bytes = 0;
    for (int level = 0; level < depth && fd >= 0; ++level) {
        const int file = ::openat(fd, "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        const std::string text(3000, 'd');
        if (::write(file, text.data(), text.size()) < 0) break;
        struct stat st {};
        ::fstat(file, &st);
        bytes += static_cast<std::uint64_t>(st.st_blocks) * 512;
        ::close(file);
        ::mkdirat(fd, "d", 0700);
        const int next = ::openat(fd, "d", O_PATH | O_DIRECTORY | O_CLOEXEC);
        ::close(fd);
        fd = next;
    }
    if (fd >= 0) ::close(fd);
    return bytes;
}

// Deeper than the descriptor limit: measured in full, looked at with the right answer, removed
// whole, and never more than a bounded number of descriptors held by the walk. (The depth is ten
// times the limit; removing thousands of nested folders takes seconds on some disks.)
TEST(DeepTrees, AreWalkedWithABoundedNumberOfDescriptors) {
    TempFolder temp;
    const std::string root = realFolder(temp), cache = root + "/home/.cache/uv";
    constexpr int depth = 400;
    const std::uint64_t bytes = buildDeepTree(cache, depth);
    ScopedDescriptorLimit limit(depth / 10);
    ASSERT_TRUE(limit.ok());

    const TreeCensus census = SizeMeasurer::census(cache, CancelCheck());
    EXPECT_EQ(census.bytes, bytes);
    EXPECT_EQ(census.unreadable, 0);
    EXPECT_EQ(census.entries, 2u * depth);

    int error = 0;
    const auto pinned = Pinning::pin(cache, error);
    ASSERT_TRUE(pinned) << std::strerror(error);
    std::size_t mostOpen = 0, deepest = 0;
    TreeWalk walk;
    walk.entry = [&](int, const char*, const EntryStatus* status, int) {
        mostOpen = std::max(mostOpen, walk.openCount());
        deepest = std::max(deepest, walk.depth());
        return status && status->isDirectory() ? TreeWalk::Next::descend : TreeWalk::Next::skip;
    };
    EXPECT_TRUE(walk.run(openListedFolder(pinned->parent.get(), "uv", pinned->status), pinned->status, cache));
    EXPECT_EQ(deepest, std::size_t{depth});
    EXPECT_LE(mostOpen, walk.maxOpen);

    EXPECT_TRUE(RemovalCheck::wholeTree(*pinned).ok()) << RemovalCheck::wholeTree(*pinned).message();
    EXPECT_TRUE(TreeRemoval::remove(*pinned).ok());
    EXPECT_FALSE(fs::exists(cache));
}

// A folder moved away while a deep walk is below it: the way back up through ".." leads elsewhere,
// and the walk stops saying so instead of walking a folder it never listed.
TEST(DeepTrees, AFolderMovedDuringTheWalkStopsIt) {
    TempFolder temp;
    const std::string root = realFolder(temp), cache = root + "/cache";
    buildDeepTree(cache, 40);
    fs::create_directories(root + "/elsewhere");
    int error = 0;
    const auto pinned = Pinning::pin(cache, error);
    ASSERT_TRUE(pinned);
    bool moved = false, changed = false;
    TreeWalk walk;
    walk.maxOpen = 4;
    walk.entry = [&](int, const char*, const EntryStatus* status, int) {
        if (!moved && walk.depth() == 30) {
            // Level 2 of the tree goes under another parent: level 1 no longer holds it.
            fs::rename(cache + "/d/d", root + "/elsewhere/d");
            moved = true;
        }
        return status && status->isDirectory() ? TreeWalk::Next::descend : TreeWalk::Next::skip;
    };
    walk.trouble = [&](const char*, TreeWalk::Trouble trouble) {
        changed = trouble.changed;
        return false;
    };
    EXPECT_FALSE(walk.run(openListedFolder(pinned->parent.get(), "cache", pinned->status), pinned->status, cache));
    EXPECT_TRUE(moved);
    EXPECT_TRUE(changed);
}

TEST(FreedesktopTrash, ALongNameIsShortenedAndKeptWholeInTheInfoFile) {
    TempFolder temp;
    const std::string root = realFolder(temp);
    const std::string name = std::string(251, 'n') + ".dmg";  // 255 bytes, the most a name can have
    writeFile(root + "/home/Downloads/" + name, "installer");
    const FreedesktopTrash trash(root + "/data/Trash");
    for (int copy = 0; copy < 2; ++copy) {
        SCOPED_TRACE(copy);
        writeFile(root + "/home/Downloads/" + name, "installer " + std::to_string(copy));
        const kestrow::Status moved = trash.trash(root + "/home/Downloads/" + name);
        ASSERT_TRUE(moved.ok()) << moved.message();
        const std::string stored = TrashNaming::trashName(name, copy + 1);
        EXPECT_EQ(readFile(root + "/data/Trash/files/" + stored), "installer " + std::to_string(copy));
        const std::string info = readFile(root + "/data/Trash/info/" + stored + ".trashinfo");
        EXPECT_NE(info.find("Path=" + FreedesktopTrash::escapePath(root + "/home/Downloads/" + name) + "\n"),
                  std::string::npos)
            << info;
    }
    EXPECT_FALSE(fs::exists(root + "/home/Downloads/" + name));
}

}  // namespace
}  // namespace brimlet
