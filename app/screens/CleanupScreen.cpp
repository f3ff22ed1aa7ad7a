#include "CleanupScreen.hpp"

#include "ScreenWording.hpp"
#include "app/screens/CleanupSummary.hpp"
#include "core/cleanup/ApprovalScanner.hpp"
#include "core/cleanup/SizeMeasurer.hpp"
#include "core/common/ByteFormat.hpp"

namespace brimlet {

namespace {

using screens::Tone;

constexpr std::string_view tagline =
    "Measure first. Auto-clean only what rebuilds itself. You approve anything personal.";
constexpr std::string_view emDash = "\u2014";

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
    std::string text;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i != 0) text += separator;
        text += parts[i];
    }
    return text;
}

std::string itemCount(std::size_t n) { return CleanupSummary::count(n, "item", "items"); }

// What a measuring pass looks at, listed from the core's own tables.
std::string cachesLookedAt() {
    std::vector<std::string> titles;
    for (const auto& entry : CleanupCatalog::entries()) titles.push_back(entry.title);
    titles.emplace_back("unavailable simulators");
    return joined(titles, ", ");
}

std::string personalLookedAt() {
    std::vector<std::string> titles{"node_modules folders of your projects"};
    for (const auto& machine : ApprovalScanner::virtualMachines()) titles.push_back(machine.title);
    titles.emplace_back("installers kept twice in Downloads or on the Desktop");
    return joined(titles, ", ");
}

std::string keptPaths() {
    std::vector<std::string> paths;
    for (const std::string& relative : CleanupCatalog::keptRelativePaths()) paths.push_back("~/" + relative);
    return joined(paths, ", ");
}

CleanupControl control(std::string title, std::string symbol, CleanupCommand action) {
    CleanupControl made;
    made.title = std::move(title);
    made.symbol = std::move(symbol);
    made.action = action;
    return made;
}

CleanupControl cancelButton() {
    CleanupControl cancel = control("Cancel", "", CleanupCommand::dismiss);
    cancel.isCancel = true;
    return cancel;
}

CleanupItemRow row(const CleanupItem& item, const CleanupStore& store) {
    CleanupItemRow made;
    made.id = item.id;
    made.title = item.title;
    made.detail = item.detail;
    made.path = item.url;
    const bool personal = item.kind == CleanupKind::personal;
    made.category = personal ? "Personal \u2014 needs your approval" : "Rebuilds itself";
    // Only the simulators' tool knows what it will free; anything else unmeasured was cut short.
    made.size = item.size ? ByteFormat::string(*item.size) : std::string(emDash);
    // Why the row is safe to clean, or why it cannot be chosen: the held-back reason comes first.
    if (item.blockedReason) {
        made.note = *item.blockedReason;
        made.noteTone = Tone::warning;
    } else if (item.note) {
        made.note = *item.note;
    } else {
        made.note = personal ? "Moved to the Trash, never deleted permanently"
                             : "Its tool downloads or rebuilds it when needed";
    }
    made.chosen = store.selection().count(item.id) != 0;
    made.include.title = "";
    made.include.accessibilityLabel = "Include " + item.title;
    made.include.action = made.chosen ? CleanupCommand::exclude : CleanupCommand::include;
    made.include.target = item.id;
    made.include.enabled = item.isSelectable();
    if (item.blockedReason) made.include.help = *item.blockedReason;
    made.accessibilityLabel = item.title + ", " + item.detail;
    return made;
}

}  // namespace

CleanupScreen CleanupPresenter::screen() const {
    CleanupScreen s;
    s.title = "Free up disk space";
    s.tagline = tagline;
    s.symbol = "internaldrive";

    const auto& granted = store_.fullDiskAccess();
    s.fullDiskAccess.visible = granted && !*granted;
    s.fullDiskAccess.symbol = "lock.shield";
    s.fullDiskAccess.text =
        "Full Disk Access is off, so some protected folders cannot be read: sizes may be lower than they are and "
        "some items may be missing.";
    s.fullDiskAccess.accessibilityLabel = "Full Disk Access is off";
    s.fullDiskAccess.settingsURL = FullDiskAccess::settingsURL;
    s.fullDiskAccess.openSettings =
        control("Open Privacy & Security\u2026", "gearshape", CleanupCommand::openFullDiskAccess);

    for (const std::string& folder : store_.refusedFolders())
        s.refusals.push_back("Kestrow Brimlet could not look in " + folder);

    s.step = store_.phase();

    s.idle.heading = "What will be looked at";
    s.idle.groups = {
        {"arrow.triangle.2.circlepath", "Caches that rebuild themselves \u2014 chosen for you", cachesLookedAt()},
        {"person.crop.circle.badge.checkmark", "Personal items \u2014 only what you approve, moved to the Trash",
         personalLookedAt()},
        {"lock", "Always kept", keptPaths()},
    };
    s.idle.note =
        "Nothing is deleted while measuring. Every path is checked again right before it is removed, and protected "
        "folders are never touched.";
    s.idle.measure = control("Measure", "magnifyingglass", CleanupCommand::measure);
    s.idle.measure.accessibilityLabel = "Measure what can be cleaned";
    s.idle.measure.isDefault = true;
    s.idle.measure.enabled = !store_.isBusy();

    if (store_.isBusy()) s.busy = busy();
    if (store_.phase() == CleanupPhase::ready) s.ready = ready();
    if (store_.lastReport()) s.finished = finished();
    return s;
}

CleanupScreen::Busy CleanupPresenter::busy() const {
    CleanupScreen::Busy b;
    const CleanupPhase phase = store_.phase();
    const CleanupStore::Progress& progress = store_.progress();
    b.completed = progress.completed;
    b.total = progress.total;
    b.progressLabel = phase == CleanupPhase::cleaning ? "Cleaning progress" : "Measuring progress";
    if (phase == CleanupPhase::measuring) {
        b.line = progress.total == 0 ? "Measuring developer caches\u2026"
                                     : "Measuring developer caches \u2014 " + std::to_string(progress.completed) +
                                           " of " + std::to_string(progress.total);
    } else if (phase == CleanupPhase::scanning) {
        b.line = "Looking for personal items you may want to clean\u2026";
    } else if (store_.isStopping()) {
        b.line = "Stopping after the current item\u2026";
    } else if (progress.current.empty()) {
        b.line = "Starting\u2026";
    } else {
        b.line = "Cleaning \u201C" + progress.current + "\u201D \u2014 " + std::to_string(progress.completed + 1) +
                 " of " + std::to_string(progress.total);
    }
    b.cancel = control("Cancel", "xmark.circle", CleanupCommand::cancel);
    b.cancel.isCancel = true;
    b.cancel.enabled = !store_.isStopping();
    return b;
}

CleanupScreen::Ready CleanupPresenter::ready() const {
    CleanupScreen::Ready r;
    if (const auto& measured = store_.measured())
        r.space = ByteFormat::string(measured->freeBytes) + " free of " + ByteFormat::string(measured->totalBytes) +
                  " " + ScreenWording::forThisPlatform().onThisMachine;
    if (store_.isMeasuringHome()) {
        r.home = "Measuring the folders of your home folder\u2026";
    } else if (const auto& usage = store_.homeUsage()) {
        const std::string largest = CleanupSummary::largestFolders(*usage, 5);
        if (!largest.empty()) r.home = "Largest in your home folder: " + largest;
    }
    if (const auto& measured = store_.measured())
        for (const CleanupItem& item : measured->regenerable) r.rows.push_back(row(item, store_));
    for (const CleanupItem& item : store_.personalItems()) r.rows.push_back(row(item, store_));
    r.itemsLabel = "Items to clean";
    r.columns = {"Item", "Category", "Size", "Note"};

    const CleanupStore::SelectionSummary chosen = store_.selectionSummary();
    const DeleteMode shown = store_.deleteMode();
    r.modeTitle = "Remove by:";
    r.modesEnabled = store_.deleteModeApplies();
    for (const DeleteMode mode : {DeleteMode(DeleteMode::trash), DeleteMode(DeleteMode::permanent)}) {
        CleanupScreen::ModeOption option;
        option.mode = mode;
        option.choose =
            control(std::string(mode.title()), "",
                    mode == DeleteMode::trash ? CleanupCommand::chooseTrash : CleanupCommand::choosePermanent);
        option.choose.enabled = r.modesEnabled;
        option.chosen = shown == mode;
        r.modes.push_back(std::move(option));
    }
    std::vector<std::string> notes;
    const bool permanent = shown == DeleteMode::permanent;
    if (!permanent && chosen.count != 0) notes.emplace_back(CleanupReport::trashNote);
    if (permanent) notes.emplace_back("Caches are removed for good; they rebuild themselves when needed.");
    if (permanent && chosen.personal != 0)
        notes.emplace_back("Personal items still go to the Trash: they are never deleted permanently.");
    if (!permanent && chosen.needsPermanent)
        notes.emplace_back(
            "Unavailable simulators can only be deleted permanently; with Move to Trash they are skipped.");
    r.modeNote = joined(notes, " ");

    if (chosen.count == 0) {
        r.total = "Nothing chosen";
    } else {
        r.total = ByteFormat::string(chosen.bytes) + " to be freed from " + itemCount(chosen.count);
        if (chosen.unmeasured != 0) r.total += ", plus " + itemCount(chosen.unmeasured) + " measured when cleaned";
    }
    r.measureAgain = control("Measure Again", "arrow.clockwise", CleanupCommand::measure);
    r.clean = control("Clean\u2026", "trash", CleanupCommand::clean);
    r.clean.isDefault = true;
    r.clean.enabled = chosen.count != 0;
    return r;
}

CleanupScreen::Finished CleanupPresenter::finished() const {
    CleanupScreen::Finished f;
    const CleanupReport& report = *store_.lastReport();
    const CleanupSummary::Text summary = CleanupSummary::describe(report);
    f.headline = summary.headline;
    f.lines = summary.lines;
    const bool troubled = report.refusal || report.cancelled;
    f.symbol = troubled ? "exclamationmark.triangle.fill" : "checkmark.circle.fill";
    f.tone = troubled ? Tone::warning : Tone::success;
    f.entriesLabel = "Items removed and skipped";

    CleanupScreen::Section removed{"Removed (" + std::to_string(report.deleted.size()) + ")", {}, "Nothing."};
    for (const CleanupReport::Deleted& entry : report.deleted)
        removed.entries.push_back({CleanupReport::entryText(entry), entry.path, Tone::plain});
    CleanupScreen::Section skipped{"Skipped (" + std::to_string(report.skipped.size()) + ")", {}, "Nothing."};
    for (const CleanupReport::Skipped& entry : report.skipped)
        skipped.entries.push_back({CleanupReport::entryText(entry), entry.path,
                                   CleanupSummary::isError(entry) ? Tone::failure : Tone::plain});
    f.sections = {std::move(removed), std::move(skipped)};

    f.exportMarkdown = control("Export Markdown\u2026", "doc.text", CleanupCommand::exportMarkdown);
    f.exportJSON = control("Export JSON\u2026", "curlybraces", CleanupCommand::exportJSON);
    f.startOver = control("Start Over", "arrow.counterclockwise", CleanupCommand::startOver);
    f.startOver.isDefault = true;
    return f;
}

std::optional<CleanupDialog> CleanupPresenter::approvalDialog(const std::string& id) const {
    const CleanupItem* item = store_.item(id);
    if (!item || !store_.needsApproval(id) || !item->isSelectable()) return std::nullopt;
    CleanupDialog dialog;
    dialog.style = screens::DialogStyle::warning;
    dialog.symbol = "person.crop.circle.badge.exclamationmark";
    dialog.title = "Include \u201C" + item->title + "\u201D?";
    std::vector<std::string> lines{item->detail, item->url};
    if (item->size) lines.push_back("It takes " + ByteFormat::string(*item->size) + " on disk.");
    if (item->note) lines.push_back(*item->note);
    if (item->requiresExisting) lines.push_back("The copy at " + *item->requiresExisting + " is kept.");
    lines.emplace_back(
        "This is your own data. It will be moved to the Trash, never deleted permanently, and you can put it back "
        "from there until you empty the Trash.");
    dialog.message = joined(lines, "\n\n");
    CleanupControl approve = control("Approve", "", CleanupCommand::approve);
    approve.target = id;
    approve.isDefault = true;
    dialog.buttons = {approve, cancelButton()};
    return dialog;
}

std::optional<CleanupDialog> CleanupPresenter::cleanDialog() const {
    if (!(store_.phase() == CleanupPhase::ready)) return std::nullopt;
    const CleanupStore::SelectionSummary chosen = store_.selectionSummary();
    if (chosen.count == 0) return std::nullopt;
    const bool permanent = store_.deleteMode() == DeleteMode::permanent;
    const std::string amount = ByteFormat::string(chosen.bytes);
    CleanupDialog dialog;
    dialog.style = permanent ? screens::DialogStyle::critical : screens::DialogStyle::warning;
    dialog.title = "Clean " + itemCount(chosen.count) + "?";
    dialog.message = permanent ? "About " + amount +
                                     " will be deleted permanently; personal items go to the Trash. Each path is "
                                     "checked again right before it is removed."
                               : "About " + amount + " will be moved to the Trash. " + CleanupReport::trashNote +
                                     " Each path is checked again right before it is removed.";
    // Then every chosen item, in the order the list shows them, with where it goes: the user
    // confirms these exact items, not a count.
    std::vector<const CleanupItem*> items;
    if (const auto& measured = store_.measured())
        for (const CleanupItem& item : measured->regenerable) items.push_back(&item);
    for (const CleanupItem& item : store_.personalItems()) items.push_back(&item);
    for (const CleanupItem* item : items) {
        if (!store_.selection().count(item->id)) continue;
        const bool forGood = permanent && item->kind != CleanupKind::personal;
        std::string line = "\n\n\u2022 " + item->title;
        if (item->size) line += " (" + ByteFormat::string(*item->size) + ")";
        line += forGood ? ": deleted permanently" : ": moved to the Trash";
        dialog.message += line + "\n  " + item->url;
    }
    CleanupControl confirm =
        control(permanent ? "Delete Permanently" : "Move to Trash", "", CleanupCommand::confirmClean);
    confirm.isDefault = true;
    confirm.isDestructive = permanent;
    dialog.buttons = {confirm, cancelButton()};
    return dialog;
}

CleanupDialog CleanupPresenter::exportFailed(const kestrow::Status& written) {
    CleanupDialog dialog;
    dialog.style = screens::DialogStyle::warning;
    dialog.title = "The report could not be saved.";
    dialog.message = written.message();
    CleanupControl ok = control("OK", "", CleanupCommand::dismiss);
    ok.isDefault = true;
    dialog.buttons = {ok};
    return dialog;
}

std::optional<CleanupExport> CleanupPresenter::exportFile(CleanupCommand format) const {
    const auto& report = store_.lastReport();
    if (!report) return std::nullopt;
    const std::string base = CleanupStore::reportBaseName(*report);
    if (format == CleanupCommand::exportMarkdown) return CleanupExport{base + ".md", report->markdown()};
    if (format != CleanupCommand::exportJSON) return std::nullopt;
    auto json = report->json();
    if (json.failed()) return std::nullopt;
    return CleanupExport{base + ".json", std::move(*json)};
}

CleanupPresenter::Outcome CleanupPresenter::perform(CleanupCommand command, const std::string& target) {
    auto accepted = [](bool done) { return Outcome{done, std::nullopt}; };
    auto asking = [](std::optional<CleanupDialog> dialog) {
        return dialog ? Outcome{true, std::move(dialog)} : Outcome{false, std::nullopt};
    };
    switch (command) {
    case CleanupCommand::measure: return accepted(store_.start());
    case CleanupCommand::cancel:
        if (!store_.isBusy() || store_.isStopping()) return accepted(false);
        store_.cancel();
        return accepted(true);
    case CleanupCommand::chooseTrash:
    case CleanupCommand::choosePermanent:
        if (!store_.deleteModeApplies()) return accepted(false);
        store_.chooseDeleteMode(command == CleanupCommand::chooseTrash ? DeleteMode::trash : DeleteMode::permanent);
        return accepted(true);
    case CleanupCommand::include:
        // One explicit confirmation per personal item; the clean then binds exactly the approved items.
        if (store_.needsApproval(target)) return asking(approvalDialog(target));
        return accepted(store_.setSelected(target, true));
    case CleanupCommand::exclude: return accepted(store_.setSelected(target, false));
    // The store may have moved on (a new run) while the question was up: it checks the id.
    case CleanupCommand::approve: return accepted(store_.approvePersonal(target));
    case CleanupCommand::clean: return asking(cleanDialog());
    case CleanupCommand::confirmClean: return accepted(store_.clean());
    case CleanupCommand::startOver:
        if (store_.isBusy()) return accepted(false);
        store_.resetToIdle();
        return accepted(true);
    case CleanupCommand::exportMarkdown:
    case CleanupCommand::exportJSON: return accepted(exportFile(command).has_value());
    case CleanupCommand::openFullDiskAccess:
    case CleanupCommand::dismiss:
    case CleanupCommand::none: return accepted(true);
    }
    return accepted(false);
}

}  // namespace brimlet
