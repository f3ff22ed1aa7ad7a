// The platform-neutral rules of acting on pinned items: which paths can be pinned, where an item
// must really lie, the names the Trash and the holding folder use. They hold on every platform.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "core/cleanup/Pinning.hpp"
#include "core/cleanup/TrashNaming.hpp"

namespace brimlet {
namespace {

bool validUtf8(const std::string& text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        const std::size_t length = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
        if (length == 0 || i + length > text.size()) return false;
        for (std::size_t k = 1; k < length; ++k)
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
        i += length;
    }
    return true;
}

TEST(Pinning, OnlyAbsolutePathsOfRealNamesArePinned) {
    struct Case {
        std::string path;
        std::optional<std::vector<std::string>> parts;
    };
    const std::vector<Case> cases = {
        {"/h/.cache/uv", std::vector<std::string>{"h", ".cache", "uv"}},
        {"//h///.cache/uv/", std::vector<std::string>{"h", ".cache", "uv"}},
        {"/", std::vector<std::string>{}},
        {"/h/../etc", std::nullopt},
        {"/h/./uv", std::nullopt},
        {"h/uv", std::nullopt},
        {"", std::nullopt},
        {"/h/..uv/...", std::vector<std::string>{"h", "..uv", "..."}},  // only "." and ".." themselves
    };
    for (const Case& c : cases) {
        const auto parts = Pinning::components(c.path);
        ASSERT_EQ(parts.has_value(), c.parts.has_value()) << c.path;
        if (!parts) continue;
        EXPECT_EQ(std::vector<std::string>(parts->begin(), parts->end()), *c.parts) << c.path;
    }
}

TEST(Pinning, AnItemMustLieWhereItsPathSaysUnderTheRealHome) {
    struct Case {
        std::string item, home, realHome, expected;
    };
    const std::vector<Case> cases = {
        {"/Users/a/.cache/uv", "/Users/a", "/Users/a", "/Users/a/.cache/uv"},
        {"/home/a/.cache/uv", "/home/a", "/data/home/a", "/data/home/a/.cache/uv"},  // the home itself linked
        {"/home/a/.cache//uv/", "/home/a/", "/data/a", "/data/a/.cache/uv"},
        {"/data/a/code/node_modules", "/home/a", "/data/a", "/data/a/code/node_modules"},  // scanned: already real
        {"/elsewhere/x", "/home/a", "/data/a", "/elsewhere/x"},
        {"/home/ab/x", "/home/a", "/data/a", "/home/ab/x"},  // a neighbour is not inside
    };
    for (const Case& c : cases) EXPECT_EQ(Pinning::expectedRealPath(c.item, c.home, c.realHome), c.expected) << c.item;
}

TEST(TrashNaming, NamesFitTheInfoFileAndKeepTheirExtension) {
    const std::string longStem(300, 'a');
    const std::string accented = std::string(239, 'b') + "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9.dmg";  // é four times
    struct Case {
        std::string name;
        int attempt;
        std::string expected;  // empty: only the properties are checked
    };
    const std::vector<Case> cases = {
        {"report.txt", 1, "report.txt"},
        {"report.txt", 3, "report.txt.3"},
        {std::string(245, 'x'), 1, std::string(245, 'x')},  // exactly fits with ".trashinfo"
        {std::string(246, 'x'), 1, std::string(244, 'x') + "~"},
        {std::string(251, 'i') + ".dmg", 1, std::string(240, 'i') + "~.dmg"},
        {std::string(251, 'i') + ".dmg", 12, std::string(237, 'i') + "~.dmg.12"},
        {longStem, 2, ""},
        {accented, 1, ""},
        {accented, 9999, ""},
    };
    for (const Case& c : cases) {
        const std::string name = TrashNaming::trashName(c.name, c.attempt);
        SCOPED_TRACE(c.name.substr(0, 20) + " #" + std::to_string(c.attempt));
        EXPECT_LE(name.size() + std::string(".trashinfo").size(), TrashNaming::nameMax);
        EXPECT_TRUE(validUtf8(name)) << name;
        if (!c.expected.empty()) {
            EXPECT_EQ(name, c.expected);
        }
        if (c.name.size() > TrashNaming::itemNameMax && c.name.find(".dmg") != std::string::npos) {
            const std::string tail = c.attempt > 1 ? ".dmg." + std::to_string(c.attempt) : ".dmg";
            EXPECT_EQ(name.substr(name.size() - tail.size()), tail);
        }
    }
    // Different attempts never give the same name, however long the original.
    EXPECT_NE(TrashNaming::trashName(longStem, 2), TrashNaming::trashName(longStem, 3));
    EXPECT_NE(TrashNaming::trashName(longStem, 1), TrashNaming::trashName(longStem, 2));
}

TEST(TrashNaming, TheHoldingFolderIsOursOnTheItemsVolume) {
    EXPECT_EQ(TrashNaming::holdingFolder("/Users/a", true, "/", 501), "/Users/a/Library/Caches/.kestrow-holding-501");
    EXPECT_EQ(TrashNaming::holdingFolder("/Users/a", false, "/Volumes/Work", 501),
              "/Volumes/Work/.kestrow-holding-501");
    EXPECT_EQ(TrashNaming::holdingFolder("/Users/a", false, "/", 0), "/.kestrow-holding-0");
    EXPECT_EQ(TrashNaming::holdingEntry(0x1f), "move-000000000000001f");
    EXPECT_NE(TrashNaming::holdingEntry(1), TrashNaming::holdingEntry(2));
}

TEST(FileIdentity, DeviceAndInodeBothDecide) {
    EntryStatus a;
    a.device = 5;
    a.inode = 9;
    EntryStatus b = a;
    b.allocatedBytes = 4096;  // size and mode do not make another file
    EXPECT_EQ(FileIdentity::of(a), FileIdentity::of(b));
    b.inode = 10;
    EXPECT_FALSE(FileIdentity::of(a) == FileIdentity::of(b));
    b = a;
    b.device = 6;
    EXPECT_FALSE(FileIdentity::of(a) == FileIdentity::of(b));
}

}  // namespace
}  // namespace brimlet
