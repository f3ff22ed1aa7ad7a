// The cleanup store over a real temporary home and the real Trash: its phases, a cancel in each
// busy phase, a reset, and the report's export.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>

#include "app/stores/CleanupStore.hpp"
#include "tests/app/stores/GatedFileOperations.hpp"
#include "tests/cleanup/CleanupTestSupport.hpp"
#include "tests/support/ManualMainLoop.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

using namespace std::chrono_literals;

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;
using kestrow::testing::writeFile;

using brimlet::testing::Children;
using brimlet::testing::GatedFileOperations;
using brimlet::testing::ScopedDataHome;

struct CleanupStoreRig : ::testing::Test {
    TempFolder temp;
    std::string home = temp / "home";
    ScopedDataHome dataHome{home + "/.local/share"};
    kestrow::ManualMainLoop loop;
    std::vector<std::string> phases;

    CleanupStoreRig() {
        writeFile(home + "/.npm/_cacache/content-v2/blob", std::string(30000, 'n'));
        writeFile(home + "/code/app/node_modules/left-pad/index.js", "module.exports = 1;");
        writeFile(home + "/code/app/package.json", "{}");
        writeFile(home + "/code/site/node_modules/is-odd/index.js", "module.exports = 2;");
        writeFile(home + "/code/site/package.json", "{}");
    }
    kestrow::MainLoop::Token record(CleanupStore& store) {
        return store.observe([this, &store] {
            const std::string phase(store.phase().rawValue());
            if (phases.empty() || phases.back() != phase) phases.push_back(phase);
        });
    }
    bool waitFor(CleanupStore& store, CleanupPhase phase) {
        return loop.runUntil([&] { return store.phase() == phase; }, 10s);
    }
};

TEST_F(CleanupStoreRig, MeasureScanCleanAndExport) {
    CleanupStore store(loop, home);
    auto recording = record(store);
    EXPECT_EQ(store.phase(), CleanupPhase::idle);
    EXPECT_FALSE(store.clean());  // nothing measured yet
    // Measuring counts the regenerable items as each one's size comes in.
    std::vector<std::pair<std::size_t, std::size_t>> measuring;
    auto counting = store.observe([&] {
        if (store.phase() == CleanupPhase::measuring && store.progress().total > 0)
            measuring.emplace_back(store.progress().completed, store.progress().total);
    });
    ASSERT_TRUE(store.start());
    EXPECT_TRUE(store.isBusy());
    EXPECT_FALSE(store.start());  // one run at a time
    ASSERT_TRUE(waitFor(store, CleanupPhase::ready));
    EXPECT_EQ(phases, (std::vector<std::string>{"measuring", "scanning", "ready"}));
    ASSERT_FALSE(measuring.empty());
    EXPECT_EQ(measuring.back().first, measuring.back().second);  // all of them before scanning
    for (std::size_t i = 1; i < measuring.size(); ++i) EXPECT_EQ(measuring[i].first, measuring[i - 1].first + 1);
    EXPECT_EQ(store.progress(), CleanupStore::Progress{});  // no figures once the run stands still

    // Then the home folder's own folders, largest first.
    EXPECT_TRUE(store.isMeasuringHome());
    ASSERT_TRUE(loop.runUntil([&] { return store.homeUsage().has_value(); }, 10s));
    EXPECT_FALSE(store.isMeasuringHome());
    EXPECT_EQ(phases.back(), "ready");
    std::vector<std::string> folders;
    for (const FolderUsage& folder : *store.homeUsage()) folders.push_back(folder.name);
    ASSERT_GE(folders.size(), 2u);
    EXPECT_EQ(folders[0], ".npm");
    EXPECT_NE(std::find(folders.begin(), folders.end(), "code"), folders.end());
    EXPECT_GE(store.homeUsage()->front().bytes, 30000u);

    ASSERT_TRUE(store.measured());
    EXPECT_EQ(store.selection(), std::set<std::string>{"npm-cache"});  // personal items are never preselected
    ASSERT_EQ(store.personalItems().size(), 2u);
    const std::string appModules = "node-modules:code/app/node_modules";
    EXPECT_FALSE(store.setSelected(appModules, true));  // personal: only through an explicit approval
    EXPECT_TRUE(store.selection().count(appModules) == 0);
    ASSERT_TRUE(store.approvePersonal(appModules));

    // Asked to delete for good: the cache goes for good, the personal item still to the Trash.
    EXPECT_EQ(store.deleteMode(), DeleteMode::trash);  // every run starts with the Trash
    store.chooseDeleteMode(DeleteMode::permanent);
    EXPECT_EQ(store.deleteMode(), DeleteMode::permanent);
    phases.clear();
    ASSERT_TRUE(store.clean());
    EXPECT_TRUE(store.isBusy());
    ASSERT_TRUE(waitFor(store, CleanupPhase::finished));
    EXPECT_EQ(phases, (std::vector<std::string>{"cleaning", "finished"}));
    const CleanupReport& report = *store.lastReport();
    ASSERT_EQ(report.deleted.size(), 2u) << report.markdown();
    EXPECT_EQ(report.deleted[0].title, store.measured()->regenerable[0].title);  // presentation order
    EXPECT_TRUE(report.deleted[1].downgraded);  // personal data goes to the Trash, never for good
    EXPECT_FALSE(fs::exists(home + "/.npm/_cacache"));
    EXPECT_FALSE(fs::exists(home + "/code/app/node_modules"));
    EXPECT_TRUE(fs::exists(home + "/code/site/node_modules"));
    EXPECT_TRUE(fs::exists(home + "/.local/share/Trash/files/node_modules/left-pad/index.js"));

    const std::string exports = temp / "exports";
    fs::create_directories(exports);
    ASSERT_TRUE(store.exportReport(exports).ok());
    const std::string base = exports + "/" + CleanupStore::reportBaseName(report);
    EXPECT_EQ(base.find(':'), std::string::npos);
    std::stringstream markdown, json;
    markdown << std::ifstream(base + ".md").rdbuf();
    json << std::ifstream(base + ".json").rdbuf();
    EXPECT_EQ(markdown.str(), *store.reportMarkdown());
    EXPECT_EQ(json.str(), *store.reportJSON());
    CleanupReport decoded;
    auto parsed = kestrow::parseJson(json.str());
    ASSERT_TRUE(parsed.ok());
    ASSERT_TRUE(fromJson(*parsed, decoded));
    // The file holds dates in whole seconds; everything else comes back as it was.
    EXPECT_EQ(decoded.deleted, report.deleted);
    EXPECT_EQ(decoded.skipped, report.skipped);
    EXPECT_EQ(decoded.freeBefore, report.freeBefore);
    EXPECT_EQ(decoded.freeAfter, report.freeAfter);
    EXPECT_EQ(*kestrow::writeJson(toJson(decoded)), *kestrow::writeJson(toJson(report)));

    // A reset starts over; the report stays for export until a newer one replaces it.
    EXPECT_TRUE(store.homeUsage());  // what the home folder held before this clean, until then
    store.resetToIdle();
    EXPECT_EQ(store.phase(), CleanupPhase::idle);
    EXPECT_FALSE(store.homeUsage());
    EXPECT_FALSE(store.measured());
    EXPECT_TRUE(store.selection().empty());
    EXPECT_TRUE(store.lastReport());
    EXPECT_TRUE(store.exportReport(temp / "missing-folder").failed());
}

TEST_F(CleanupStoreRig, CancelledMeasuringReturnsToIdleAndItsLateResultIsDropped) {
    CleanupStore store(loop, home);
    EXPECT_TRUE(store.exportReport(temp.path()).failed());  // nothing to export yet
    ASSERT_TRUE(store.start());
    store.cancel();
    EXPECT_EQ(store.phase(), CleanupPhase::idle);
    EXPECT_FALSE(store.isBusy());

    // The next run is the one that lands, whatever the first one still delivers.
    ASSERT_TRUE(store.start());
    auto recording = record(store);
    ASSERT_TRUE(waitFor(store, CleanupPhase::ready));
    // Recording began while measuring: its progress is the first change heard.
    EXPECT_EQ(phases, (std::vector<std::string>{"measuring", "scanning", "ready"}));
    // Results come back in the order they were asked for, so the cancelled run's measurement
    // arrived (and was dropped) before these; it never went on to scan.
    EXPECT_EQ(store.personalItems().size(), 2u);
}

TEST_F(CleanupStoreRig, CancelledCleaningStopsBeforeTheNextItemAndStillReports) {
    auto gated = std::make_unique<GatedFileOperations>();
    GatedFileOperations& gate = *gated;
    CleanupStore store(loop, home, std::move(gated));
    ASSERT_TRUE(store.start());
    ASSERT_TRUE(waitFor(store, CleanupPhase::ready));
    for (const CleanupItem& item : store.personalItems()) ASSERT_TRUE(store.approvePersonal(item.id));
    store.setSelected("npm-cache", false);
    // Its result cannot have been run: waiting stopped at the task that made the run ready.
    EXPECT_TRUE(store.isMeasuringHome());
    // Only personal items chosen: nothing could go for good, whatever was chosen before.
    store.chooseDeleteMode(DeleteMode::permanent);
    EXPECT_FALSE(store.deleteModeApplies());
    EXPECT_EQ(store.deleteMode(), DeleteMode::trash);
    ASSERT_TRUE(store.clean());
    EXPECT_FALSE(store.isMeasuringHome());  // given up, so the clean is not kept waiting behind it
    const std::string first = store.personalItems()[0].title;
    // The approval comes back to the loop, the cleaning starts and reports its first item, then
    // holds at the gate.
    ASSERT_TRUE(loop.runUntil([&] { return store.progress().current == first; }, 10s));
    ASSERT_TRUE(gate.awaitReached(10.0));
    EXPECT_EQ(store.progress(), (CleanupStore::Progress{0, 2, first}));

    EXPECT_FALSE(store.isStopping());
    store.cancel();
    EXPECT_EQ(store.phase(), CleanupPhase::cleaning);  // what was started is finished and reported
    EXPECT_TRUE(store.isStopping());
    gate.open();
    ASSERT_TRUE(waitFor(store, CleanupPhase::finished));
    EXPECT_FALSE(store.isStopping());
    const CleanupReport& report = *store.lastReport();
    EXPECT_TRUE(report.cancelled);
    EXPECT_EQ(report.requestedMode, DeleteMode::trash);
    EXPECT_FALSE(store.homeUsage());  // a walk given up half way is never shown
    EXPECT_EQ(report.deleted.size(), 1u);
    EXPECT_TRUE(fs::exists(home + "/code/site/node_modules") != fs::exists(home + "/code/app/node_modules"));
    EXPECT_EQ(store.progress(), CleanupStore::Progress{});
}

TEST_F(CleanupStoreRig, ChoosingFollowsEachItemsRulesAndAddsUp) {
    // Colima's machine folder, with a process of that name running: the scanner blocks its item.
    writeFile(home + "/.colima/default/diffdisk", std::string(4096, 'c'));
    const std::string colima = temp / "bin/colima";
    fs::create_directories(temp / "bin");
    fs::copy_file("/bin/cat", colima);
    Children children;
    Children::Options running;
    running.args = {colima};
    ASSERT_GT(children.start(running), 0);

    CleanupStore store(loop, home);
    std::optional<bool> granted = false;
    store.fullDiskAccessProbe = [&] { return granted; };
    ASSERT_TRUE(store.start());
    ASSERT_TRUE(waitFor(store, CleanupPhase::ready));
    EXPECT_EQ(store.fullDiskAccess(), std::optional<bool>(false));
    ASSERT_NE(store.item("colima-vm"), nullptr);
    ASSERT_TRUE(store.item("colima-vm")->blockedReason);
    const std::uint64_t npm = store.item("npm-cache")->size.value();
    const std::string app = "node-modules:code/app/node_modules", site = "node-modules:code/site/node_modules";
    const std::uint64_t appBytes = store.item(app)->size.value();  // personal items are measured too
    ASSERT_GT(appBytes, 0u);

    using Summary = CleanupStore::SelectionSummary;
    struct Step {
        const char* what;
        std::function<bool()> act;
        bool accepted;
        std::set<std::string> selection;
        Summary summary;
    };
    const std::vector<Step> steps = {
        {"the cache is chosen by measuring", [] { return true; }, true, {"npm-cache"}, {1, npm, 0, 0, true, false}},
        {"a plain tick never chooses a personal item",
         [&] { return store.setSelected(app, true); },
         false,
         {"npm-cache"},
         {1, npm, 0, 0, true, false}},
        {"its approval does",
         [&] { return store.approvePersonal(app); },
         true,
         {"npm-cache", app},
         {2, npm + appBytes, 0, 1, true, false}},
        {"a running machine cannot be approved",
         [&] { return store.approvePersonal("colima-vm"); },
         false,
         {"npm-cache", app},
         {2, npm + appBytes, 0, 1, true, false}},
        {"nor ticked",
         [&] { return store.setSelected("colima-vm", true); },
         false,
         {"npm-cache", app},
         {2, npm + appBytes, 0, 1, true, false}},
        {"a cache is not a personal item to approve",
         [&] { return store.approvePersonal("npm-cache"); },
         false,
         {"npm-cache", app},
         {2, npm + appBytes, 0, 1, true, false}},
        {"an id this run never presented",
         [&] { return store.setSelected("pip-cache", true); },
         false,
         {"npm-cache", app},
         {2, npm + appBytes, 0, 1, true, false}},
        {"without the cache only Trash-bound items are left",
         [&] { return store.setSelected("npm-cache", false); },
         true,
         {app},
         {1, appBytes, 0, 1, false, false}},
        {"dropping a personal item needs no approval", [&] { return store.setSelected(app, false); }, true, {}, {}},
        {"and choosing it again needs a new one", [&] { return store.setSelected(app, true); }, false, {}, {}},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        EXPECT_EQ(step.act(), step.accepted);
        EXPECT_EQ(store.selection(), step.selection);
        EXPECT_EQ(store.selectionSummary(), step.summary);
    }
    EXPECT_TRUE(store.needsApproval(app));
    EXPECT_TRUE(store.needsApproval(site));
    EXPECT_FALSE(store.needsApproval("npm-cache"));

    // Granted in System Settings meanwhile: a refresh tells the view.
    int changes = 0;
    auto watching = store.observe([&] { ++changes; });
    granted = true;
    store.refreshFullDiskAccess();
    store.refreshFullDiskAccess();
    EXPECT_EQ(store.fullDiskAccess(), std::optional<bool>(true));
    EXPECT_EQ(changes, 1);
}

}  // namespace
}  // namespace brimlet
