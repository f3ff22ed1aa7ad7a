// The freedesktop.org Trash against real folders: other mounts, full and read-only file systems,
// orphaned info files, and names no text encoding likes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "core/cleanup/linux/FreedesktopTrash.hpp"
#include "tests/cleanup/CleanupTestSupport.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;
using kestrow::testing::writeFile;
using testing::readFile;
using testing::ScopedMount;

bool isOwnPrivateFolder(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & 07777) == 0700 &&
           st.st_uid == ::getuid();
}

// Items on another mount go to that mount's trash: $topdir/.Trash/$uid below a real sticky .Trash,
// else $topdir/.Trash-$uid, else nowhere. Once on a real tmpfs (as root), once on a folder that a
// replaced device lookup presents as another mount.
TEST(TrashOnAnotherMount, SharedOwnOrRefused) {
    const std::string uid = std::to_string(::getuid());
    enum class Setup { stickyShared, notSticky, linkedShared, none, blocked };
    struct Case {
        Setup setup;
        std::string expected;  // relative to the mount; empty when refused
    };
    const Case cases[] = {
        {Setup::stickyShared, ".Trash/" + uid},
        {Setup::notSticky, ".Trash-" + uid},
        {Setup::linkedShared, ".Trash-" + uid},
        {Setup::none, ".Trash-" + uid},
        {Setup::blocked, ""},
    };
    for (const bool realMount : {true, false}) {
        if (realMount && ::geteuid() != 0) {
            std::cout << "tmpfs cases skipped: needs root\n";
            continue;
        }
        for (const Case& c : cases) {
            SCOPED_TRACE((realMount ? "tmpfs, case " : "injected, case ") + std::to_string(int(c.setup)));
            TempFolder temp;
            const std::string root = fs::canonical(temp.path()).string(), top = root + "/volume";
            std::optional<ScopedMount> mount;
            if (realMount) {
                mount.emplace(ScopedMount::tmpfs(top, "size=1m"));
                ASSERT_TRUE(mount->ok()) << mount->why();
            }
            writeFile(top + "/photos/raw.img", "raw");
            writeFile(root + "/sticky/x", "");
            ::chmod((root + "/sticky").c_str(), 01777);
            switch (c.setup) {
            case Setup::stickyShared:
                fs::create_directory(top + "/.Trash");
                ::chmod((top + "/.Trash").c_str(), 01777);
                break;
            case Setup::notSticky:
                fs::create_directory(top + "/.Trash");
                ::chmod((top + "/.Trash").c_str(), 0777);
                break;
            case Setup::linkedShared:  // a link is never a trash, wherever it points
                fs::create_directory_symlink(root + "/sticky", top + "/.Trash");
                break;
            case Setup::none: break;
            case Setup::blocked:  // .Trash-$uid taken by a file, and no shared trash
                writeFile(top + "/.Trash-" + uid, "not a folder");
                break;
            }
            FreedesktopTrash trash(root + "/home/.local/share/Trash");
            if (!realMount) {
                trash.deviceOf = [top](const std::string& path) -> std::optional<dev_t> {
                    struct stat st {};
                    if (::lstat(path.c_str(), &st) != 0) return std::nullopt;
                    const bool inside = path == top || path.rfind(top + "/", 0) == 0;
                    return inside ? st.st_dev + 1 : st.st_dev;
                };
            }
            const std::string item = top + "/photos/raw.img";
            const kestrow::Result<std::string> location = trash.trashFor(item);
            const kestrow::Status moved = trash.trash(item);
            if (c.expected.empty()) {
                EXPECT_FALSE(location.ok());
                EXPECT_EQ(moved.message(), "no Trash on the volume of " + item + ": Not a directory");
                EXPECT_EQ(readFile(item), "raw");  // refused, never erased
                continue;
            }
            EXPECT_EQ(location.value(), top + "/" + c.expected);
            ASSERT_TRUE(moved.ok()) << moved.message();
            EXPECT_TRUE(isOwnPrivateFolder(top + "/" + c.expected));
            EXPECT_EQ(readFile(top + "/" + c.expected + "/files/raw.img"), "raw");
            EXPECT_TRUE(fs::exists(top + "/" + c.expected + "/info/raw.img.trashinfo"));
            EXPECT_FALSE(fs::exists(root + "/home/.local/share/Trash/files/raw.img"));
        }
    }
}

// Full and read-only file systems: the error carries the system's own reason, the item stays.
TEST(TrashErrors, CarryTheSystemsReason) {
    KESTROW_REQUIRE_ROOT();
    TempFolder temp;
    const std::string root = fs::canonical(temp.path()).string();
    {
        // The home trash sits on a tiny file system that is full.
        ScopedMount full = ScopedMount::tmpfs(root + "/full", "size=64k");
        ASSERT_TRUE(full.ok()) << full.why();
        writeFile(root + "/full/item", "item");
        fs::create_directories(root + "/full/Trash/files");
        fs::create_directories(root + "/full/Trash/info");
        std::ofstream(root + "/full/filler") << std::string(256 * 1024, 'f');
        const kestrow::Status status = FreedesktopTrash(root + "/full/Trash").trash(root + "/full/item");
        EXPECT_EQ(status.message(), "cannot write to the Trash: No space left on device");
        EXPECT_EQ(readFile(root + "/full/item"), "item");
        EXPECT_TRUE(fs::is_empty(root + "/full/Trash/info"));  // no half-written info file is left
    }
    {
        // The item lies on a read-only file system that has no trash yet.
        ScopedMount readOnly = ScopedMount::tmpfs(root + "/ro", "size=64k");
        ASSERT_TRUE(readOnly.ok()) << readOnly.why();
        writeFile(root + "/ro/item", "item");
        ASSERT_TRUE(readOnly.remountReadOnly());
        const kestrow::Status status = FreedesktopTrash(root + "/home/Trash").trash(root + "/ro/item");
        EXPECT_EQ(status.message(), "no Trash on the volume of " + root + "/ro/item: Read-only file system");
        EXPECT_EQ(readFile(root + "/ro/item"), "item");
    }
    {
        // A mount is never made into a trash of its own contents.
        ScopedMount whole = ScopedMount::tmpfs(root + "/whole", "size=64k");
        ASSERT_TRUE(whole.ok()) << whole.why();
        writeFile(root + "/whole/a", "a");
        const kestrow::Status status = FreedesktopTrash(root + "/home/Trash").trash(root + "/whole");
        EXPECT_EQ(status.message(),
                  "no Trash on the volume of " + root + "/whole: it is the root of a mounted file system");
        EXPECT_EQ(std::distance(fs::directory_iterator(root + "/whole"), fs::directory_iterator()), 1);
    }
}

void makeOld(const std::string& path) {
    const timespec times[2] = {{0, UTIME_OMIT}, {std::time(nullptr) - 3600, 0}};
    ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

TEST(TrashOrphans, OnlyOurOwnStaleInfoFilesGo) {
    TempFolder temp;
    const std::string trashFolder = temp / "Trash", info = trashFolder + "/info/";
    const std::string ours = FreedesktopTrash::trashInfo("/h/x", kestrow::currentDate());
    const std::string foreign = "[Trash Info]\nPath=/h/x\nDeletionDate=2026-01-01T00:00:00\n";
    struct Case {
        std::string name;
        std::string text;
        bool old;
        bool kept;
    };
    const std::string pending = FreedesktopTrash::pendingPrefix;
    const std::vector<Case> cases = {
        {"orphan.trashinfo", ours, true, false},
        {"fresh.trashinfo", ours, false, true},  // a trash of another process of ours may be under way
        {"with-item.trashinfo", ours, true, true},
        {"foreign.trashinfo", foreign, true, true},
        {"empty.trashinfo", "", true, true},
        {pending + "a1B2c3", ours.substr(0, 9), true, false},
        {pending + "fresh1", ours, false, true},
        {"notes.txt", ours, true, true},
    };
    for (const Case& c : cases) {
        writeFile(info + c.name, c.text);
        if (c.old) makeOld(info + c.name);
    }
    writeFile(trashFolder + "/files/with-item", "restorable");
    writeFile(temp / "elsewhere.trashinfo", ours);
    makeOld(temp / "elsewhere.trashinfo");
    fs::create_symlink(temp / "elsewhere.trashinfo", info + "linked.trashinfo");
    if (::geteuid() == 0) {
        writeFile(info + "other-user.trashinfo", ours);
        ::chown((info + "other-user.trashinfo").c_str(), testing::nobody, testing::nobody);
        makeOld(info + "other-user.trashinfo");
    }

    FreedesktopTrash(trashFolder).removeOrphans(trashFolder);
    for (const Case& c : cases) EXPECT_EQ(fs::exists(info + c.name), c.kept) << c.name;
    EXPECT_TRUE(fs::is_symlink(info + "linked.trashinfo"));
    EXPECT_TRUE(fs::exists(temp / "elsewhere.trashinfo"));
    if (::geteuid() == 0) {
        EXPECT_TRUE(fs::exists(info + "other-user.trashinfo"));
    }

    // Trashing sweeps its trash on the way.
    writeFile(info + "second-orphan.trashinfo", ours);
    makeOld(info + "second-orphan.trashinfo");
    writeFile(temp / "home/item", "item");
    ASSERT_TRUE(FreedesktopTrash(trashFolder).trash(temp / "home/item").ok());
    EXPECT_FALSE(fs::exists(info + "second-orphan.trashinfo"));
    EXPECT_TRUE(fs::exists(info + "item.trashinfo"));
}

TEST(FreedesktopTrash, OddNamesArePercentEncodedInTheInfoFile) {
    TempFolder temp;
    const std::string name = "line\nfeed \xFF\xFE.log";
    writeFile(temp / ("home/" + name), "odd");
    const FreedesktopTrash trash(temp / "data/Trash");
    ASSERT_TRUE(trash.trash(temp / ("home/" + name)).ok());
    EXPECT_EQ(readFile(temp / ("data/Trash/files/" + name)), "odd");
    const std::string text = readFile(temp / ("data/Trash/info/" + name + ".trashinfo"));
    const std::string path = FreedesktopTrash::escapePath(temp.path()) + "/home/line%0Afeed%20%FF%FE.log";
    EXPECT_EQ(text.substr(0, text.find("\nDeletionDate=")), "[Trash Info]\nPath=" + path);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4);  // no line forged by the name
}

}  // namespace
}  // namespace brimlet
