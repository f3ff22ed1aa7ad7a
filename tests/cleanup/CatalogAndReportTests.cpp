#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "base/Json.hpp"
#include "base/JsonCoding.hpp"
#include "core/cleanup/CleanupReport.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;

std::string ids(const std::vector<CleanupItem>& items) {
    std::string s;
    for (const auto& item : items) s += item.id + ";";
    return s;
}

TEST(CleanupCatalog, OffersWhatExistsInTableOrderAndSimulatorsLast) {
    TempFolder home;
    const CleanupCatalog catalog(home.path());
    auto noDeveloper = [] { return std::optional<std::string>(); };
    EXPECT_TRUE(catalog.regenerableItems(noDeveloper).empty());

    for (const auto& kept : catalog.keptURLs()) fs::create_directories(kept);
    EXPECT_TRUE(catalog.regenerableItems(noDeveloper).empty());  // kept caches are never offered

    const auto& table = CleanupCatalog::entries();
    fs::create_directories(home / table.back().relativePath);
    fs::create_directories(home / table.front().relativePath);
    fs::create_directories(home / CleanupCatalog::simulatorDevicesRelativePath);
    EXPECT_EQ(ids(catalog.regenerableItems(noDeveloper)), table.front().id + ";" + table.back().id + ";");

    TempFolder developer;
    auto developerDir = [&] { return std::optional<std::string>(developer.path()); };
    EXPECT_EQ(catalog.regenerableItems(developerDir).size(), 2u);  // no simulator platform yet
    fs::create_directories(developer / "Platforms/iPhoneSimulator.platform");
    const auto items = catalog.regenerableItems(developerDir);
    ASSERT_EQ(items.size(), 3u);
    const CleanupItem& simulators = items.back();
    EXPECT_EQ(simulators.id, "simulators-unavailable");
    EXPECT_EQ(simulators.action, CleanupAction(CleanupAction::deleteUnavailableSimulators));
    EXPECT_EQ(simulators.note, "Size is known after the run");
    EXPECT_FALSE(simulators.size);
    EXPECT_EQ(items[0].kind, CleanupKind(CleanupKind::regenerable));
    EXPECT_FALSE(items[0].size);
    EXPECT_EQ(items[0].url, home / table.front().relativePath);
}

TEST(CleanupItem, JsonKeysAndSelectability) {
    CleanupItem item;
    item.id = "x";
    item.url = "/h/x";
    item.blockedReason = "";
    EXPECT_FALSE(item.isSelectable());
    const JsonValue json = toJson(item);
    std::string keys;
    for (const auto& [key, value] : *json.asObject()) keys += key + ",";
    EXPECT_EQ(keys, "action,blockedReason,detail,id,kind,title,url,");
    EXPECT_EQ(*json.find("kind")->asString(), "regenerable");
    item.size = 5;
    item.note = "n";
    item.isActive = false;
    item.requiresExisting = "/h/keep";
    EXPECT_EQ(toJson(item).asObject()->size(), 11u);
    EXPECT_EQ(DeleteMode::fromRawValue("permanent")->title(), "Delete permanently");
    EXPECT_FALSE(CleanupAction::fromRawValue("delete"));
}

CleanupReport report() {
    CleanupReport r;
    r.startedAt = *kestrow::parseIsoDate("2026-11-15T20:13:30Z");
    r.finishedAt = *kestrow::parseIsoDate("2026-11-15T20:13:37.250Z");
    r.freeBefore = 10'000'000'000;
    r.freeAfter = 12'500'000'000;
    return r;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::size_t start = 0;
    for (std::size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
        out.push_back(text.substr(start, nl - start));
    EXPECT_EQ(start, text.size()) << "the text ends with one line feed";
    return out;
}

TEST(CleanupReport, MarkdownLineByLine) {
    const std::string header = "# Kestrow Brimlet \u2014 Cleanup report";
    struct Case {
        const char* what;
        CleanupReport report;
        std::vector<std::string> expected;
    };
    CleanupReport empty = report();
    CleanupReport mixed = report();
    mixed.requestedMode = DeleteMode::permanent;
    mixed.deleted = {
        {"npm cache", "/Users/a/.npm/_cacache", 1'500'000'000, DeleteMode::permanent, false, std::nullopt},
        {"node_modules in app", "/Users/a/app/node_modules", 2'000'000, DeleteMode::trash, true, std::nullopt}};
    mixed.skipped = {
        {"pip cache", "/Users/a/Library/Caches/pip", "Is a symbolic link; links are never followed for deletion"}};
    CleanupReport dropped = report();
    dropped.freeAfter = 9'000'000'000;
    dropped.cancelled = true;
    dropped.deleted = {{"Bun cache", "/h/.bun/install/cache", 0, DeleteMode::trash, false, std::nullopt}};
    CleanupReport refused = report();
    refused.freeAfter = refused.freeBefore;
    refused.refusal = "The approval was already used.";
    const Case cases[] = {
        {"nothing",
         empty,
         {header, "", "- Date: 2026-11-15T20:13:37Z", "- Mode: Move to Trash", "- Free space before: 10.0 GB",
          "- Free space after: 12.5 GB", "- Freed now: 2.5 GB", "", "## Deleted (0)", "", "_Nothing._", "",
          "## Skipped (0)", "", "_Nothing._"}},
        {"deleted, downgraded and skipped",
         mixed,
         {header,
          "",
          "- Date: 2026-11-15T20:13:37Z",
          "- Mode: Delete permanently",
          "- Free space before: 10.0 GB",
          "- Free space after: 12.5 GB",
          "- Freed now: 2.5 GB",
          "- In Trash: 2 MB. Space is freed when you empty the Trash.",
          "",
          "## Deleted (2)",
          "",
          "- npm cache \u2014 1.5 GB \u2014 Delete permanently  ",
          "  `/Users/a/.npm/_cacache`",
          "- node_modules in app \u2014 2 MB \u2014 Move to Trash (personal data is never deleted permanently)  ",
          "  `/Users/a/app/node_modules`",
          "",
          "## Skipped (1)",
          "",
          "- pip cache \u2014 Is a symbolic link; links are never followed for deletion  ",
          "  `/Users/a/Library/Caches/pip`"}},
        {"cancelled while free space dropped",
         dropped,
         {header, "", "- Date: 2026-11-15T20:13:37Z", "- Mode: Move to Trash", "- Free space before: 10.0 GB",
          "- Free space after: 9.0 GB", "- Freed now: \u22121.0 GB", "- Cancelled before all items ran.", "",
          "## Deleted (1)", "", "- Bun cache \u2014 0 B \u2014 Move to Trash  ", "  `/h/.bun/install/cache`", "",
          "## Skipped (0)", "", "_Nothing._"}},
        {"refused",
         refused,
         {header, "", "- Date: 2026-11-15T20:13:37Z", "- Mode: Move to Trash", "- Free space before: 10.0 GB",
          "- Free space after: 10.0 GB", "- Freed now: 0 B",
          "- Refused, nothing was touched: The approval was already used.", "", "## Deleted (0)", "", "_Nothing._", "",
          "## Skipped (0)", "", "_Nothing._"}},
    };
    for (const Case& c : cases) EXPECT_EQ(lines(c.report.markdown()), c.expected) << c.what;
    EXPECT_EQ(mixed.bytesDeleted(), 1'502'000'000u);
    EXPECT_EQ(mixed.bytesInTrash(), 2'000'000u);
    EXPECT_EQ(dropped.freedNow(), -1'000'000'000);
}

TEST(CleanupReport, JsonRoundTripWithSortedKeys) {
    CleanupReport r = report();
    r.deleted = {{"a", "/h/a", 5, DeleteMode::trash, true, std::nullopt}};
    r.skipped = {{"b", "/h/b", "Already gone"}};
    const std::string text = *r.json();
    EXPECT_EQ(text.find("refusal"), std::string::npos);
    EXPECT_NE(text.find("\"requestedMode\" : \"trash\""), std::string::npos);
    EXPECT_LT(text.find("\"cancelled\""), text.find("\"deleted\""));
    EXPECT_NE(text.find("\"finishedAt\" : \"2026-11-15T20:13:37Z\""), std::string::npos);  // whole seconds
    CleanupReport back;
    ASSERT_TRUE(fromJson(*kestrow::parseJson(text), back));
    EXPECT_EQ(back.finishedAt, std::chrono::floor<std::chrono::seconds>(r.finishedAt));
    back.finishedAt = r.finishedAt;
    EXPECT_EQ(back, r);
}

TEST(CleanupReport, OddNamesCannotForgeLinesOrBreakTheJson) {
    CleanupReport r = report();
    r.deleted = {{"cache\n## Deleted (99)", "/h/.cache/a\nb\tc\x1B[31m", 5, DeleteMode::trash, false, std::nullopt}};
    r.skipped = {{"bad \xFF\xFE bytes \xC2\x85", "/h/`odd``name`", "Error: Permission denied: /h/x\ry"}};
    r.refusal = "forged\n- Refused";
    const std::vector<std::string> text = lines(r.markdown());
    const std::vector<std::string> expected = {
        "- Refused, nothing was touched: forged\\n- Refused",
        "- cache\\n## Deleted (99) \u2014 5 B \u2014 Move to Trash  ",
        "  `/h/.cache/a\\nb\\tc\\x1B[31m`",
        "- bad \uFFFD\uFFFD bytes \\u0085 \u2014 Error: Permission denied: /h/x\\ry  ",
        "  ``` /h/`odd``name` ```",
    };
    for (const std::string& line : expected)
        EXPECT_NE(std::find(text.begin(), text.end(), line), text.end()) << line << "\n" << r.markdown();
    EXPECT_EQ(text.size(), 19u);  // the 18 lines of the form, the deleted and skipped entries two each

    // The JSON stays valid UTF-8 that the strict parser reads, with U+FFFD for the bad bytes.
    const std::string json = *r.json();
    const auto parsed = kestrow::parseJson(json);
    ASSERT_TRUE(parsed.ok()) << json;
    CleanupReport back;
    ASSERT_TRUE(fromJson(*parsed, back));
    EXPECT_EQ(back.skipped[0].title, "bad \uFFFD\uFFFD bytes \xC2\x85");
    EXPECT_EQ(back.deleted[0].path, r.deleted[0].path);  // valid text passes unchanged
}

TEST(CleanupReportDeathTest, FreeSpaceBeyondSignedRangeIsFatal) {
    CleanupReport r;
    r.freeAfter = UINT64_MAX;
    EXPECT_DEATH(r.freedNow(), "63 bits");
}

}  // namespace
}  // namespace brimlet
