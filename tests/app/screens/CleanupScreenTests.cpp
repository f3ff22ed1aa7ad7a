// The cleanup window as its presenter describes it, over a real store and a real temporary home on
// the manual loop: each step in its empty, busy, failed and full states, the whole flow from
// measuring to the export, and the exact words the user reads.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "app/screens/CleanupScreen.hpp"
#include "app/screens/CleanupSummary.hpp"
#include "core/common/ByteFormat.hpp"
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
using screens::DialogStyle;
using screens::Tone;
using testing::ScopedDataHome;

const std::string appModules = "node-modules:code/app/node_modules";

struct CleanupScreenRig : ::testing::Test {
    TempFolder temp;
    std::string home = temp / "home";
    ScopedDataHome dataHome{home + "/.local/share"};
    kestrow::ManualMainLoop loop;

    void fillHome() {
        writeFile(home + "/.npm/_cacache/content-v2/blob", std::string(30000, 'n'));
        writeFile(home + "/code/app/node_modules/left-pad/index.js", "module.exports = 1;");
        writeFile(home + "/code/app/package.json", "{}");
    }
    bool waitFor(const CleanupStore& store, CleanupPhase phase) {
        return loop.runUntil([&] { return store.phase() == phase; }, 10s);
    }
    static const CleanupItemRow* row(const CleanupScreen& screen, const std::string& id) {
        const auto& rows = screen.ready.rows;
        auto found = std::find_if(rows.begin(), rows.end(), [&](const CleanupItemRow& r) { return r.id == id; });
        return found == rows.end() ? nullptr : &*found;
    }
};

TEST_F(CleanupScreenRig, MeasureChooseApproveCleanReportExport) {
    fillHome();
    CleanupStore store(loop, home);
    store.fullDiskAccessProbe = [] { return std::optional<bool>(true); };
    CleanupPresenter presenter(store);

    // Before anything ran: the header, what will be looked at, one way on.
    CleanupScreen screen = presenter.screen();
    EXPECT_EQ(screen.title, "Free up disk space");
    EXPECT_EQ(screen.tagline, "Measure first. Auto-clean only what rebuilds itself. You approve anything personal.");
    EXPECT_EQ(screen.step, CleanupPhase::idle);
    EXPECT_FALSE(screen.fullDiskAccess.visible);
    ASSERT_EQ(screen.idle.groups.size(), 3u);
    EXPECT_NE(screen.idle.groups[0].body.find("npm cache"), std::string::npos);
    EXPECT_NE(screen.idle.groups[1].body.find("node_modules folders of your projects"), std::string::npos);
    EXPECT_EQ(screen.idle.measure.action, CleanupCommand::measure);
    EXPECT_TRUE(screen.idle.measure.isDefault);
    EXPECT_TRUE(screen.finished.headline.empty());                    // no run has finished yet
    EXPECT_FALSE(presenter.perform(CleanupCommand::clean).accepted);  // nothing to clean yet
    EXPECT_FALSE(presenter.exportFile(CleanupCommand::exportMarkdown));

    // Measuring: the step says what it does, and it can be cancelled.
    ASSERT_TRUE(presenter.perform(CleanupCommand::measure).accepted);
    screen = presenter.screen();
    EXPECT_EQ(screen.step, CleanupPhase::measuring);
    EXPECT_EQ(screen.busy.progressLabel, "Measuring progress");
    EXPECT_EQ(screen.busy.line, "Measuring developer caches\u2026");
    EXPECT_TRUE(screen.busy.cancel.enabled);
    EXPECT_TRUE(screen.busy.cancel.isCancel);
    EXPECT_FALSE(screen.idle.measure.enabled);
    EXPECT_FALSE(presenter.perform(CleanupCommand::measure).accepted);  // one run at a time
    ASSERT_TRUE(waitFor(store, CleanupPhase::ready));

    // Ready: the caches chosen, the personal item waiting for an approval.
    screen = presenter.screen();
    ASSERT_NE(row(screen, "npm-cache"), nullptr);
    ASSERT_NE(row(screen, appModules), nullptr);
    const CleanupItemRow npm = *row(screen, "npm-cache");
    const CleanupItemRow modules = *row(screen, appModules);
    const std::uint64_t npmBytes = store.item("npm-cache")->size.value();
    const std::uint64_t modulesBytes = store.item(appModules)->size.value();
    EXPECT_TRUE(npm.chosen);
    EXPECT_EQ(npm.category, "Rebuilds itself");
    EXPECT_EQ(npm.size, ByteFormat::string(npmBytes));
    EXPECT_EQ(npm.include.action, CleanupCommand::exclude);
    EXPECT_FALSE(modules.chosen);
    EXPECT_EQ(modules.category, "Personal \u2014 needs your approval");
    EXPECT_EQ(modules.note, store.item(appModules)->note.value());  // what the scanner knows of it
    EXPECT_EQ(modules.include.action, CleanupCommand::include);
    EXPECT_EQ(modules.include.accessibilityLabel, "Include node_modules in app");
    EXPECT_EQ(modules.path, home + "/code/app/node_modules");
    EXPECT_EQ(screen.ready.total, ByteFormat::string(npmBytes) + " to be freed from 1 item");
    EXPECT_TRUE(screen.ready.modesEnabled);
    EXPECT_EQ(screen.ready.modeNote, "Space is freed when you empty the Trash.");
    ASSERT_EQ(screen.ready.modes.size(), 2u);
    EXPECT_EQ(screen.ready.modes[0].choose.title, "Move to Trash");
    EXPECT_TRUE(screen.ready.modes[0].chosen);
    EXPECT_EQ(screen.ready.modes[1].choose.title, "Delete permanently");

    // Ticking the personal item asks first; only the approval chooses it.
    CleanupPresenter::Outcome asked = presenter.perform(modules.include.action, modules.include.target);
    ASSERT_TRUE(asked.accepted);
    ASSERT_TRUE(asked.dialog);
    EXPECT_EQ(asked.dialog->title, "Include \u201Cnode_modules in app\u201D?");
    EXPECT_EQ(asked.dialog->style, DialogStyle::warning);
    EXPECT_EQ(asked.dialog->message, "node_modules \u2014 reinstall with your package manager.\n\n" + modules.path +
                                         "\n\nIt takes " + ByteFormat::string(modulesBytes) + " on disk.\n\n" +
                                         modules.note +
                                         "\n\nThis is your own data. It will be moved to the Trash, never "
                                         "deleted permanently, and you can put it back from there until you empty "
                                         "the Trash.");
    ASSERT_EQ(asked.dialog->buttons.size(), 2u);
    EXPECT_EQ(asked.dialog->buttons[0].title, "Approve");
    EXPECT_EQ(asked.dialog->buttons[1].title, "Cancel");
    EXPECT_FALSE(row(presenter.screen(), appModules)->chosen);  // not before the answer
    EXPECT_TRUE(presenter.perform(asked.dialog->buttons[1].action, asked.dialog->buttons[1].target).accepted);
    EXPECT_FALSE(row(presenter.screen(), appModules)->chosen);  // Cancel leaves it out
    ASSERT_TRUE(presenter.perform(asked.dialog->buttons[0].action, asked.dialog->buttons[0].target).accepted);
    screen = presenter.screen();
    EXPECT_TRUE(row(screen, appModules)->chosen);
    EXPECT_EQ(screen.ready.total, ByteFormat::string(npmBytes + modulesBytes) + " to be freed from 2 items");

    // Deleting for good: the notes say what that means for each kind.
    ASSERT_TRUE(presenter.perform(CleanupCommand::choosePermanent).accepted);
    screen = presenter.screen();
    EXPECT_TRUE(screen.ready.modes[1].chosen);
    EXPECT_EQ(screen.ready.modeNote,
              "Caches are removed for good; they rebuild themselves when needed. Personal items still go to the "
              "Trash: they are never deleted permanently.");

    // The clean asks first, in the words of the chosen mode.
    CleanupPresenter::Outcome confirm = presenter.perform(screen.ready.clean.action);
    ASSERT_TRUE(confirm.dialog);
    EXPECT_EQ(confirm.dialog->title, "Clean 2 items?");
    EXPECT_EQ(confirm.dialog->style, DialogStyle::critical);
    // It lists exactly the chosen items, each with where it goes: the cache for good, the personal
    // item still only to the Trash.
    EXPECT_EQ(confirm.dialog->message, "About " + ByteFormat::string(npmBytes + modulesBytes) +
                                           " will be deleted permanently; personal items go to the Trash. Each path "
                                           "is checked again right before it is removed.\n\n\u2022 npm cache (" +
                                           ByteFormat::string(npmBytes) + "): deleted permanently\n  " + home +
                                           "/.npm/_cacache\n\n\u2022 node_modules in app (" +
                                           ByteFormat::string(modulesBytes) + "): moved to the Trash\n  " + home +
                                           "/code/app/node_modules");
    EXPECT_EQ(confirm.dialog->buttons[0].title, "Delete Permanently");
    EXPECT_TRUE(confirm.dialog->buttons[0].isDestructive);
    EXPECT_EQ(store.phase(), CleanupPhase::ready);  // nothing runs before the answer
    ASSERT_TRUE(presenter.perform(confirm.dialog->buttons[0].action).accepted);
    screen = presenter.screen();
    EXPECT_EQ(screen.step, CleanupPhase::cleaning);
    EXPECT_EQ(screen.busy.progressLabel, "Cleaning progress");
    ASSERT_TRUE(waitFor(store, CleanupPhase::finished));

    // The report: headline, figures, then every entry as the Markdown export words it.
    screen = presenter.screen();
    const CleanupReport& report = *store.lastReport();
    EXPECT_EQ(screen.finished.headline, "Cleanup finished");
    EXPECT_EQ(screen.finished.tone, Tone::success);
    ASSERT_EQ(screen.finished.sections.size(), 2u);
    EXPECT_EQ(screen.finished.sections[0].title, "Removed (2)");
    EXPECT_EQ(screen.finished.sections[1].title, "Skipped (0)");
    EXPECT_EQ(screen.finished.sections[1].empty, "Nothing.");
    ASSERT_EQ(screen.finished.sections[0].entries.size(), 2u);
    EXPECT_EQ(screen.finished.sections[0].entries[1].text,
              "node_modules in app \u2014 " + ByteFormat::string(report.deleted[1].bytes) +
                  " \u2014 Move to Trash (personal data is never deleted permanently)");
    for (const CleanupScreen::Entry& entry : screen.finished.sections[0].entries)
        EXPECT_NE(report.markdown().find("- " + entry.text + "  \n"), std::string::npos) << entry.text;
    EXPECT_EQ(screen.finished.lines, CleanupSummary::describe(report).lines);

    // Both exports, named by the run's end.
    const auto markdown = presenter.exportFile(screen.finished.exportMarkdown.action);
    const auto json = presenter.exportFile(screen.finished.exportJSON.action);
    ASSERT_TRUE(markdown && json);
    EXPECT_EQ(markdown->suggestedName, CleanupStore::reportBaseName(report) + ".md");
    EXPECT_EQ(markdown->contents, report.markdown());
    EXPECT_EQ(json->suggestedName, CleanupStore::reportBaseName(report) + ".json");
    EXPECT_EQ(json->contents, *report.json());
    EXPECT_EQ(markdown->suggestedName.find(':'), std::string::npos);

    // Start over: a fresh run, the Trash chosen again.
    ASSERT_TRUE(presenter.perform(screen.finished.startOver.action).accepted);
    EXPECT_EQ(presenter.screen().step, CleanupPhase::idle);
    EXPECT_EQ(store.chosenDeleteMode(), DeleteMode::permanent);
    ASSERT_TRUE(presenter.perform(CleanupCommand::measure).accepted);
    EXPECT_EQ(store.chosenDeleteMode(), DeleteMode::trash);
}

TEST_F(CleanupScreenRig, AnEmptyHomeOffersNothingToClean) {
    fs::create_directories(home);
    CleanupStore store(loop, home);
    store.fullDiskAccessProbe = [] { return std::optional<bool>(false); };
    CleanupPresenter presenter(store);
    ASSERT_TRUE(presenter.perform(CleanupCommand::measure).accepted);
    ASSERT_TRUE(waitFor(store, CleanupPhase::ready));
    const CleanupScreen screen = presenter.screen();
    // Full Disk Access off: the banner says what that costs and where to grant it.
    EXPECT_TRUE(screen.fullDiskAccess.visible);
    EXPECT_EQ(screen.fullDiskAccess.openSettings.action, CleanupCommand::openFullDiskAccess);
    EXPECT_FALSE(screen.fullDiskAccess.settingsURL.empty());
    EXPECT_EQ(screen.ready.total, "Nothing chosen");
    EXPECT_FALSE(screen.ready.clean.enabled);
    EXPECT_FALSE(screen.ready.modesEnabled);
    EXPECT_EQ(screen.ready.modeNote, "");
    for (const CleanupItemRow& r : screen.ready.rows) EXPECT_FALSE(r.chosen) << r.id;
    EXPECT_FALSE(presenter.perform(CleanupCommand::clean).accepted);
    EXPECT_FALSE(presenter.perform(CleanupCommand::choosePermanent).accepted);  // no choice to make
    EXPECT_FALSE(presenter.perform(CleanupCommand::include, "pip-cache-never-measured").accepted);
}

// The system's privacy protection cannot be had here (and the tests may run as root, whom
// permissions do not stop): the refusal is scripted, the folders are real.
TEST_F(CleanupScreenRig, AFolderTheSystemWouldNotOpenIsToldNotSilentlyFoundEmpty) {
    fillHome();
    writeFile(home + "/Downloads/Installer.dmg", "dmg");
    fs::create_directories(home + "/Desktop");
    CleanupStore store(loop, home);
    const std::string docker = home + "/Library/Containers/com.docker.docker";
    fs::create_directories(docker);
    std::vector<std::string> refuse{home + "/Downloads", home + "/Desktop", docker};
    std::vector<std::string> asked;
    store.folderRefusalProbe = [&](const std::string& path) {
        asked.push_back(path);
        return std::find(refuse.begin(), refuse.end(), path) != refuse.end();
    };
    CleanupPresenter presenter(store);
    EXPECT_TRUE(presenter.screen().refusals.empty()) << "nothing is said before anything was looked at";
    ASSERT_TRUE(presenter.perform(CleanupCommand::measure).accepted);
    ASSERT_TRUE(waitFor(store, CleanupPhase::ready));
    EXPECT_EQ(asked, (std::vector<std::string>{home + "/Desktop", home + "/Documents", home + "/Downloads", docker}));
    EXPECT_EQ(presenter.screen().refusals,
              (std::vector<std::string>{"Kestrow Brimlet could not look in Desktop",
                                        "Kestrow Brimlet could not look in Downloads",
                                        "Kestrow Brimlet could not look in Docker Desktop’s data"}));

    // Allowed meanwhile: the next run looks again and says nothing.
    refuse.clear();
    ASSERT_TRUE(presenter.perform(CleanupCommand::measure).accepted);
    EXPECT_TRUE(presenter.screen().refusals.empty());
    ASSERT_TRUE(waitFor(store, CleanupPhase::ready));
}

TEST(CleanupStoreFolders, OnlyAFolderThatIsThereAndCannotBeOpenedIsRefused) {
    TempFolder temp;
    fs::create_directories(temp / "Downloads");
    writeFile(temp / "Documents", "a file where the folder would be");
    EXPECT_FALSE(CleanupStore::isRefused(temp / "Downloads"));
    EXPECT_FALSE(CleanupStore::isRefused(temp / "Documents"));
    EXPECT_FALSE(CleanupStore::isRefused(temp / "Desktop"));  // not there
}

TEST_F(CleanupScreenRig, OnlyTrashBoundItemsLeaveNoModeToChoose) {
    fillHome();
    CleanupStore store(loop, home);
    CleanupPresenter presenter(store);
    ASSERT_TRUE(presenter.perform(CleanupCommand::measure).accepted);
    ASSERT_TRUE(waitFor(store, CleanupPhase::ready));
    ASSERT_TRUE(presenter.perform(CleanupCommand::choosePermanent).accepted);
    ASSERT_TRUE(presenter.perform(CleanupCommand::exclude, "npm-cache").accepted);
    ASSERT_TRUE(presenter.perform(CleanupCommand::approve, appModules).accepted);
    const CleanupScreen screen = presenter.screen();
    // The user's earlier choice of "for good" no longer applies: personal data only goes to the Trash.
    EXPECT_FALSE(screen.ready.modesEnabled);
    EXPECT_TRUE(screen.ready.modes[0].chosen);
    EXPECT_FALSE(screen.ready.modes[1].chosen);
    EXPECT_EQ(screen.ready.modeNote, "Space is freed when you empty the Trash.");
    const auto confirm = presenter.cleanDialog();
    ASSERT_TRUE(confirm);
    EXPECT_EQ(confirm->style, DialogStyle::warning);
    EXPECT_EQ(confirm->title, "Clean 1 item?");
    EXPECT_EQ(confirm->buttons[0].title, "Move to Trash");
    EXPECT_FALSE(confirm->buttons[0].isDestructive);
    const std::string size = ByteFormat::string(store.item(appModules)->size.value());
    EXPECT_EQ(confirm->message, "About " + size +
                                    " will be moved to the Trash. Space is freed when you empty the Trash. Each path "
                                    "is checked again right before it is removed.\n\n\u2022 node_modules in app (" +
                                    size + "): moved to the Trash\n  " + home + "/code/app/node_modules");
}

TEST_F(CleanupScreenRig, ACancelWhileCleaningStopsAfterTheItemInHand) {
    fillHome();
    auto gated = std::make_unique<testing::GatedFileOperations>();
    testing::GatedFileOperations& gate = *gated;
    CleanupStore store(loop, home, std::move(gated));
    CleanupPresenter presenter(store);
    ASSERT_TRUE(presenter.perform(CleanupCommand::measure).accepted);
    ASSERT_TRUE(waitFor(store, CleanupPhase::ready));
    ASSERT_TRUE(presenter.perform(CleanupCommand::approve, appModules).accepted);
    ASSERT_TRUE(presenter.perform(CleanupCommand::confirmClean).accepted);
    EXPECT_EQ(presenter.screen().busy.line, "Starting\u2026");
    ASSERT_TRUE(loop.runUntil([&] { return !store.progress().current.empty(); }, 10s));
    ASSERT_TRUE(gate.awaitReached(10.0));
    EXPECT_EQ(presenter.screen().busy.line, "Cleaning \u201Cnpm cache\u201D \u2014 1 of 2");

    ASSERT_TRUE(presenter.perform(CleanupCommand::cancel).accepted);
    CleanupScreen screen = presenter.screen();
    EXPECT_EQ(screen.busy.line, "Stopping after the current item\u2026");
    EXPECT_FALSE(screen.busy.cancel.enabled);
    EXPECT_FALSE(presenter.perform(CleanupCommand::cancel).accepted);  // asked once already
    gate.open();
    ASSERT_TRUE(waitFor(store, CleanupPhase::finished));
    screen = presenter.screen();
    EXPECT_EQ(screen.finished.headline, "Stopped before all items ran");
    EXPECT_EQ(screen.finished.symbol, "exclamationmark.triangle.fill");
    EXPECT_EQ(screen.finished.tone, Tone::warning);
    EXPECT_EQ(screen.finished.sections[0].title, "Removed (1)");
    EXPECT_TRUE(fs::exists(home + "/code/app/node_modules"));  // never reached
}

TEST_F(CleanupScreenRig, FailuresAreToldApartFromItemsKeptBack) {
    fillHome();
    CleanupStore store(loop, home, std::make_unique<testing::FailingFileOperations>());
    CleanupPresenter presenter(store);
    ASSERT_TRUE(presenter.perform(CleanupCommand::measure).accepted);
    ASSERT_TRUE(waitFor(store, CleanupPhase::ready));
    ASSERT_TRUE(presenter.perform(CleanupCommand::approve, appModules).accepted);
    ASSERT_TRUE(presenter.perform(CleanupCommand::confirmClean).accepted);
    ASSERT_TRUE(waitFor(store, CleanupPhase::finished));
    const CleanupScreen screen = presenter.screen();
    EXPECT_EQ(screen.finished.headline, "Nothing was removed");
    EXPECT_EQ(screen.finished.sections[0].entries.size(), 0u);
    const std::vector<CleanupScreen::Entry>& skipped = screen.finished.sections[1].entries;
    ASSERT_EQ(skipped.size(), 2u);
    for (const CleanupScreen::Entry& entry : skipped) {
        EXPECT_EQ(entry.tone, Tone::failure) << entry.text;
        EXPECT_NE(entry.text.find("Read-only file system"), std::string::npos) << entry.text;
    }
    EXPECT_EQ(screen.finished.lines.back(), "2 items could not be removed");
    EXPECT_TRUE(fs::exists(home + "/code/app/node_modules"));
}

TEST(CleanupScreen, AFailedExportSaysWhy) {
    const CleanupDialog dialog = CleanupPresenter::exportFailed(kestrow::Status::failure("Disk full"));
    EXPECT_EQ(dialog.title, "The report could not be saved.");
    EXPECT_EQ(dialog.message, "Disk full");
    ASSERT_EQ(dialog.buttons.size(), 1u);
    EXPECT_EQ(dialog.buttons[0].action, CleanupCommand::dismiss);
}

}  // namespace
}  // namespace brimlet
