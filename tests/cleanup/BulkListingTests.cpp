// The reading of bulk listing records, on buffers packed here by the rules the kernel packs by:
// each entry its length, the returned set, the error, the name reference, the fixed fields in bit
// order (4-byte aligned), then the name itself; fields the returned set lacks take no room.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/cleanup/BulkListing.hpp"

namespace brimlet {
namespace {

struct Record {
    std::string name;
    std::uint32_t type = bulk::regular;
    std::int32_t device = 0x1000004;
    std::uint64_t fileId = 0;
    std::uint32_t owner = 501;
    std::uint32_t access = 0644;
    std::int64_t allocated = 4096;
    std::uint32_t error = 0;
    std::uint32_t mountStatus = 0;
    BulkLayout answered = walkLayout;  // what the entry says came back
};

void put32(std::vector<std::byte>& out, std::uint32_t value) {
    const auto* bytes = reinterpret_cast<const std::byte*>(&value);
    out.insert(out.end(), bytes, bytes + 4);
}
void put64(std::vector<std::byte>& out, std::uint64_t value) {
    const auto* bytes = reinterpret_cast<const std::byte*>(&value);
    out.insert(out.end(), bytes, bytes + 8);
}

// One entry as the kernel packs it; folders answer folder attributes, the rest file attributes.
std::vector<std::byte> encode(const Record& record) {
    BulkLayout answered = record.answered;
    if (record.type == bulk::folder) answered.file = 0;
    else answered.folder = 0;
    std::vector<std::byte> out;
    put32(out, 0);  // length, set at the end
    put32(out, answered.common);
    put32(out, 0);
    put32(out, answered.folder);
    put32(out, answered.file);
    put32(out, 0);
    if (answered.common & bulk::commonError) put32(out, record.error);
    const std::size_t refAt = out.size();
    put32(out, 0);  // offset, set once the name's place is known
    put32(out, static_cast<std::uint32_t>(record.name.size() + 1));
    if (answered.common & bulk::commonDevice) put32(out, static_cast<std::uint32_t>(record.device));
    if (answered.common & bulk::commonType) put32(out, record.type);
    if (answered.common & bulk::commonOwner) put32(out, record.owner);
    if (answered.common & bulk::commonAccess) put32(out, record.access);
    if (answered.common & bulk::commonFileId) put64(out, record.fileId);
    if (answered.folder & bulk::folderMountStatus) put32(out, record.mountStatus);
    if (answered.folder & bulk::folderAllocated) put64(out, static_cast<std::uint64_t>(record.allocated));
    if (answered.file & bulk::fileAllocated) put64(out, static_cast<std::uint64_t>(record.allocated));
    const auto offset = static_cast<std::int32_t>(out.size() - refAt);
    std::memcpy(out.data() + refAt, &offset, 4);
    for (char c : record.name) out.push_back(static_cast<std::byte>(c));
    out.push_back(std::byte{0});
    while (out.size() % 4 != 0) out.push_back(std::byte{0});
    const auto length = static_cast<std::uint32_t>(out.size());
    std::memcpy(out.data(), &length, 4);
    return out;
}

std::vector<std::byte> encodeAll(const std::vector<Record>& records) {
    std::vector<std::byte> out;
    for (const Record& record : records) {
        const auto entry = encode(record);
        out.insert(out.end(), entry.begin(), entry.end());
    }
    return out;
}

TEST(BulkListing, DecodesEachKindIntoTheStatusThePerEntryReadGives) {
    struct Case {
        const char* what;
        Record record;
        mode_t mode;
        bool hasStatus;
    };
    Record folderWithoutSize{"sub", bulk::folder, 7, 12, 0, 0755, 0};
    folderWithoutSize.answered.folder = 0;
    Record failed{"gone", bulk::regular, 7, 13};
    failed.error = 13;
    Record mountPoint{"Volumes-like", bulk::folder, 7, 15, 0, 0755, 0};
    mountPoint.mountStatus = bulk::folderMountPoint;
    Record unknownMount{"m", bulk::folder, 7, 16, 0, 0755, 0};
    unknownMount.answered.folder = bulk::folderAllocated;
    Record noType{"odd", bulk::regular, 7, 14};
    noType.answered.common &= ~bulk::commonType;
    const std::vector<Case> cases = {
        {"regular file", {"a.txt", bulk::regular, 0x1000004, 42, 501, 0644, 8192}, S_IFREG | 0644, true},
        {"folder", {"Caches", bulk::folder, 0x1000004, 43, 0, 0755, 0}, S_IFDIR | 0755, true},
        {"link, never a folder", {"to-elsewhere", bulk::link, 0x1000004, 44, 501, 0755, 0}, S_IFLNK | 0755, true},
        {"setuid bits kept, other bits dropped",
         {"x", bulk::regular, 3, 45, 0, 0170000 | 04755, 4096},
         S_IFREG | 04755,
         true},
        {"negative device widened as st_dev is", {"n", bulk::regular, -5, 46, 0, 0600, 0}, S_IFREG | 0600, true},
        {"folder whose size did not come back", folderWithoutSize, 0, false},
        {"entry with an error", failed, 0, false},
        {"entry without its type", noType, 0, false},
        {"folder something is mounted on", mountPoint, 0, false},
        {"folder whose mount status did not come back", unknownMount, 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const auto buffer = encodeAll({c.record});
        const auto parsed = parseBulkEntries(buffer, 1, walkLayout);
        ASSERT_TRUE(parsed.ok()) << parsed.status().message();
        ASSERT_EQ(parsed->size(), 1u);
        const BulkEntry& entry = parsed->front();
        EXPECT_EQ(entry.name, c.record.name);
        EXPECT_EQ(entry.error, static_cast<int>(c.record.error));
        ASSERT_EQ(entry.status.has_value(), c.hasStatus);
        if (!c.hasStatus) continue;
        EXPECT_EQ(entry.status->mode, c.mode);
        EXPECT_EQ(entry.status->device, static_cast<std::uint64_t>(c.record.device));
        EXPECT_EQ(entry.status->inode, c.record.fileId);
        EXPECT_EQ(entry.status->owner, c.record.owner);
        EXPECT_EQ(entry.status->allocatedBytes, static_cast<std::uint64_t>(c.record.allocated));
        EXPECT_EQ(entry.status->isLink(), c.record.type == bulk::link);
        EXPECT_EQ(entry.status->isDirectory(), c.record.type == bulk::folder);
    }
}

TEST(BulkListing, DecodesSeveralEntriesInOrder) {
    std::vector<Record> records;
    for (int i = 0; i < 50; ++i)
        records.push_back({"entry-" + std::string(static_cast<std::size_t>(i % 7 + 1), 'x') + std::to_string(i),
                           i % 3 == 0 ? bulk::folder : (i % 3 == 1 ? bulk::regular : bulk::link), 9,
                           static_cast<std::uint64_t>(100 + i)});
    const auto buffer = encodeAll(records);
    const auto parsed = parseBulkEntries(buffer, records.size(), walkLayout);
    ASSERT_TRUE(parsed.ok()) << parsed.status().message();
    ASSERT_EQ(parsed->size(), records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ((*parsed)[i].name, records[i].name);
        ASSERT_TRUE((*parsed)[i].status);
        EXPECT_EQ((*parsed)[i].status->inode, records[i].fileId);
    }
}

// Byte positions in one encoded entry of the walk layout with the error field.
constexpr std::size_t nameRefAt = 4 + 20 + 4;

TEST(BulkListing, RefusesHostileBuffers) {
    const Record plain{"file", bulk::regular, 7, 1};
    struct Case {
        const char* what;
        std::function<void(std::vector<std::byte>&)> spoil;
        std::size_t count = 1;
    };
    const auto set32 = [](std::vector<std::byte>& b, std::size_t at, std::uint32_t v) {
        std::memcpy(b.data() + at, &v, 4);
    };
    const std::vector<Case> cases = {
        {"zero length", [&](auto& b) { set32(b, 0, 0); }},
        {"length past the buffer", [&](auto& b) { set32(b, 0, static_cast<std::uint32_t>(b.size() + 4)); }},
        {"length cutting the fixed fields", [&](auto& b) { set32(b, 0, nameRefAt + 6); }},
        {"name offset before the entry", [&](auto& b) { set32(b, nameRefAt, static_cast<std::uint32_t>(-40)); }},
        {"name offset past the entry", [&](auto& b) { set32(b, nameRefAt, 4096); }},
        {"name length past the entry", [&](auto& b) { set32(b, nameRefAt + 4, 4096); }},
        {"empty name", [&](auto& b) { set32(b, nameRefAt + 4, 1); }},
        {"zero name length", [&](auto& b) { set32(b, nameRefAt + 4, 0); }},
        {"name without its NUL", [&](auto& b) { set32(b, nameRefAt + 4, 4); }},
        {"name with a slash",
         [&](auto& b) {
             std::int32_t offset = 0;
             std::memcpy(&offset, b.data() + nameRefAt, 4);
             b[nameRefAt + static_cast<std::size_t>(offset) + 1] = std::byte{'/'};
         }},
        {"name with a NUL inside",
         [&](auto& b) {
             std::int32_t offset = 0;
             std::memcpy(&offset, b.data() + nameRefAt, 4);
             b[nameRefAt + static_cast<std::size_t>(offset) + 1] = std::byte{0};
         }},
        {"attributes not asked for", [&](auto& b) { set32(b, 4, walkLayout.common | 0x4); }},
        {"volume attributes", [&](auto& b) { set32(b, 8, 1); }},
        {"no name in the returned set", [&](auto& b) { set32(b, 4, walkLayout.common & ~bulk::commonName); }},
        {"count larger than the entries", [](auto&) {}, 2},
        {"count larger than any buffer holds", [](auto&) {}, 1u << 30},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto buffer = encodeAll({plain});
        c.spoil(buffer);
        const auto parsed = parseBulkEntries(buffer, c.count, walkLayout);
        EXPECT_TRUE(parsed.failed());
    }
    for (const char* name : {".", ".."}) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(parseBulkEntries(encodeAll({{name, bulk::folder, 7, 2}}), 1, walkLayout).failed());
    }
}

TEST(BulkListing, RefusesLayoutsItCannotStepOver) {
    const auto buffer = encodeAll({{"file", bulk::regular, 7, 1}});
    for (const BulkLayout layout :
         {BulkLayout{walkLayout.common & ~bulk::commonReturned, 0, 0}, BulkLayout{walkLayout.common | 0x4, 0, 0},
          BulkLayout{walkLayout.common, 0x1, 0}, BulkLayout{walkLayout.common, 0, 0x400}})
        EXPECT_TRUE(parseBulkEntries(buffer, 1, layout).failed());
}

// Every cut of a valid buffer either fails or yields the entries wholly inside it; none reads
// beyond what it was given (the sanitizer build and the exact-size copy catch a stray read).
TEST(BulkListing, EveryTruncationFailsCleanly) {
    const std::vector<Record> records = {
        {"first", bulk::regular, 7, 1}, {"second-folder", bulk::folder, 7, 2}, {"l", bulk::link, 7, 3}};
    const auto full = encodeAll(records);
    for (std::size_t cut = 0; cut < full.size(); ++cut) {
        const std::vector<std::byte> truncated(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(cut));
        EXPECT_TRUE(parseBulkEntries(truncated, records.size(), walkLayout).failed()) << "cut at " << cut;
    }
    // Flipping any one byte of the lengths and references never reads out of bounds either.
    for (std::size_t at = 0; at < full.size(); ++at) {
        for (const std::byte value : {std::byte{0}, std::byte{0x7f}, std::byte{0xff}}) {
            auto spoilt = full;
            spoilt[at] = value;
            const std::vector<std::byte> exact(spoilt);
            const auto parsed = parseBulkEntries(exact, records.size(), walkLayout);
            if (parsed.ok()) {
                EXPECT_EQ(parsed->size(), records.size());
            }
        }
    }
}

}  // namespace
}  // namespace brimlet
