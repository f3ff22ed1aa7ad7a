// The lines that sum up a finished cleanup run: which headline, which figures, and which skipped
// entries count as failures rather than as items kept back on purpose.
#include <gtest/gtest.h>

#include "app/screens/CleanupSummary.hpp"

namespace brimlet {
namespace {

using Deleted = CleanupReport::Deleted;
using Skipped = CleanupReport::Skipped;

CleanupReport run(std::uint64_t before, std::uint64_t after, std::vector<Deleted> deleted,
                  std::vector<Skipped> skipped = {}, bool cancelled = false) {
    CleanupReport report;
    report.freeBefore = before;
    report.freeAfter = after;
    report.deleted = std::move(deleted);
    report.skipped = std::move(skipped);
    report.cancelled = cancelled;
    return report;
}

TEST(CleanupSummary, DescribesEachKindOfRun) {
    const Deleted cache{"npm cache", "/h/.npm/_cacache", 2'000'000'000, DeleteMode::permanent, false, std::nullopt};
    const Deleted modules{"node_modules in app", "/h/code/app/node_modules", 300'000'000, DeleteMode::trash, true,
                          std::nullopt};
    const Skipped inUse{"Yarn cache", "/h/Library/Caches/Yarn", "In use by node (pid 7)"};
    const Skipped failed{"pip cache", "/h/Library/Caches/pip", "Error: Permission denied",
                         CleanupReport::SkipCause::failed};
    const Skipped simulators{"Unavailable simulators", "/h/Devices", "simctl failed: no devices",
                             CleanupReport::SkipCause::failed};
    // A title is the user's own text: one that reads like a failure is still an item kept back.
    const Skipped lookalike{"Error: logs VM", "/h/.colima", "Error: logs VM is running \u2014 quit it first"};
    CleanupReport refused = run(10, 10, {});
    refused.refusal = "The approval was already used.";

    struct Case {
        const char* what;
        CleanupReport report;
        CleanupSummary::Text expected;
    };
    const std::vector<Case> cases = {
        {"a refused run says so and nothing else",
         refused,
         {"Nothing was touched", {"The approval was already used."}}},
        {"a cache deleted for good leaves nothing in the Trash",
         run(1'000'000'000, 3'000'000'000, {cache}),
         {"Cleanup finished", {"Freed now: 2.0 GB", "Removed 1 item (2.0 GB)"}}},
        {"trashed personal data waits for the Trash to be emptied",
         run(1'000'000'000, 3'000'000'000, {cache, modules}),
         {"Cleanup finished",
          {"Freed now: 2.0 GB", "Removed 2 items (2.3 GB)",
           "300 MB in the Trash. Space is freed when you empty the Trash."}}},
        {"another program may eat the space freed",
         run(3'000'000'000, 2'500'000'000, {cache}),
         {"Cleanup finished",
          {"Freed now: 0 B (free space fell by 500 MB during the run)", "Removed 1 item (2.0 GB)"}}},
        {"what went to the Trash frees nothing, and the Trash's records take a little",
         run(1'000'000'000, 999'967'000, {modules}),
         {"Cleanup finished",
          {"Freed now: 0 B (free space fell by 33 KB during the run)", "Removed 1 item (300 MB)",
           "300 MB in the Trash. Space is freed when you empty the Trash."}}},
        {"refusals and failures are told apart",
         run(5, 5, {}, {inUse, failed, simulators}),
         {"Nothing was removed",
          {"Freed now: 0 B", "Skipped 1 item; the reasons are listed below", "2 items could not be removed"}}},
        {"the cause decides, not the words",
         run(5, 5, {}, {lookalike}),
         {"Nothing was removed", {"Freed now: 0 B", "Skipped 1 item; the reasons are listed below"}}},
        {"a cancelled run tells what it did before the stop",
         run(0, 300'000'000, {modules}, {inUse}, true),
         {"Stopped before all items ran",
          {"Freed now: 300 MB", "Removed 1 item (300 MB)",
           "300 MB in the Trash. Space is freed when you empty the Trash.",
           "Skipped 1 item; the reasons are listed below"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(CleanupSummary::describe(c.report), c.expected);
    }
}

TEST(CleanupSummary, LargestFoldersOfTheHome) {
    const FolderUsage library{"Library", "/h/Library", 45'200'000'000, 0};
    const FolderUsage documents{"Documents", "/h/Documents", 1'200'000'000, 3};
    const FolderUsage music{"Music", "/h/Music", 800'000, 0};
    const FolderUsage empty{"Public", "/h/Public", 0, 0};
    struct Case {
        const char* what;
        std::vector<FolderUsage> folders;
        std::size_t limit;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {"nothing measured", {}, 3, ""},
        {"only empty folders", {empty}, 3, ""},
        {"in the order given, an unreadable part marked",
         {library, documents, music},
         3,
         "Library 45.2 GB \u00b7 Documents 1.2 GB or more \u00b7 Music 800 KB"},
        {"the limit counts shown folders, not empty ones",
         {library, empty, music, documents},
         2,
         "Library 45.2 GB \u00b7 Music 800 KB"},
        {"a limit of none shows nothing", {library}, 0, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(CleanupSummary::largestFolders(c.folders, c.limit), c.expected);
    }
}

}  // namespace
}  // namespace brimlet
