// The cleanup window as plain values: its header, the Full Disk Access banner, the step the store
// is in (what will be looked at, the progress, the items with their totals and the delete mode, the
// finished run's report), the dialogs it asks, and the actions its controls trigger. The store
// decides; the presenter words it; front ends draw it and hand the actions back.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "ScreenParts.hpp"
#include "app/stores/CleanupStore.hpp"

namespace brimlet {

enum class CleanupCommand {
    none,
    measure,      // start a run (also "Measure Again")
    cancel,       // stop measuring at once, or cleaning after the item in hand
    chooseTrash,  // the delete mode
    choosePermanent,
    include,       // tick the item `target`; a personal one asks first
    exclude,       // untick the item `target`
    approve,       // the user confirmed the personal item `target`
    clean,         // asks for confirmation first
    confirmClean,  // the user confirmed the clean
    startOver,
    exportMarkdown,  // the front end asks where, then writes `CleanupPresenter::exportFile`
    exportJSON,
    openFullDiskAccess,  // the front end opens `CleanupScreen::Banner::settingsURL`
    dismiss,             // a dialog's cancel: nothing happens
};

using CleanupControl = screens::Control<CleanupCommand>;
using CleanupDialog = screens::Dialog<CleanupCommand>;

struct CleanupItemRow {
    std::string id;
    std::string title;
    std::string detail;
    std::string path;      // the exact folder or file the item stands for
    std::string category;  // "Rebuilds itself" or "Personal — needs your approval"
    std::string size;      // the em dash while unknown
    std::string note;      // why it is safe, or why it is held back
    screens::Tone noteTone = screens::Tone::secondary;
    CleanupControl include;  // the checkbox: its action is what a click asks for
    bool chosen = false;
    std::string accessibilityLabel;
    bool operator==(const CleanupItemRow&) const = default;
};

struct CleanupScreen {
    std::string title;
    std::string tagline;
    std::string symbol;

    struct Banner {
        bool visible = false;
        std::string symbol;
        std::string text;
        std::string accessibilityLabel;
        std::string settingsURL;
        CleanupControl openSettings;
        bool operator==(const Banner&) const = default;
    } fullDiskAccess;
    // One line per folder the system would not let the personal scan look in: what was not found
    // there may still be there.
    std::vector<std::string> refusals;

    CleanupPhase step;

    struct Group {
        std::string symbol;
        std::string title;
        std::string body;
        bool operator==(const Group&) const = default;
    };
    struct Idle {
        std::string heading;
        std::vector<Group> groups;  // caches, personal items, what is always kept
        std::string note;
        CleanupControl measure;
        bool operator==(const Idle&) const = default;
    } idle;

    struct Busy {
        std::string line;           // what is happening, also what the progress bar says to VoiceOver
        std::string progressLabel;  // the bar's name
        std::size_t completed = 0;
        std::size_t total = 0;  // 0: the step cannot tell how far it is
        CleanupControl cancel;
        bool operator==(const Busy&) const = default;
    } busy;

    struct ModeOption {
        DeleteMode mode;
        CleanupControl choose;
        bool chosen = false;
        bool operator==(const ModeOption&) const = default;
    };
    struct Ready {
        std::string space;  // "123.4 GB free of 494.4 GB on this Mac"
        std::string home;   // the home folder's largest folders; empty: nothing to show
        std::vector<CleanupItemRow> rows;
        std::string itemsLabel;            // the table's name
        std::vector<std::string> columns;  // the table's headings after the checkbox
        std::string modeTitle;
        std::vector<ModeOption> modes;
        bool modesEnabled = false;  // the mode only matters while something could go for good
        std::string modeNote;
        std::string total;
        CleanupControl measureAgain;
        CleanupControl clean;
        bool operator==(const Ready&) const = default;
    } ready;

    struct Entry {
        std::string text;
        std::string path;
        screens::Tone tone = screens::Tone::plain;
        bool operator==(const Entry&) const = default;
    };
    struct Section {
        std::string title;  // "Removed (2)"
        std::vector<Entry> entries;
        std::string empty;  // shown when there are no entries
        bool operator==(const Section&) const = default;
    };
    struct Finished {
        std::string headline;
        std::string symbol;
        screens::Tone tone = screens::Tone::success;
        std::vector<std::string> lines;
        std::string entriesLabel;
        std::vector<Section> sections;
        CleanupControl exportMarkdown;
        CleanupControl exportJSON;
        CleanupControl startOver;
        bool operator==(const Finished&) const = default;
    } finished;  // empty until a run has finished
};

// A report in one of its export forms and the name a save panel proposes for it.
struct CleanupExport {
    std::string suggestedName;  // "Cleanup Report 2026-11-23 09.15.02.md"
    std::string contents;
};

class CleanupPresenter {
public:
    explicit CleanupPresenter(CleanupStore& store) : store_(store) {}

    CleanupScreen screen() const;

    // What a control's action leads to: it was refused (a front end may beep), it happened, or the
    // user must answer `dialog` first; the dialog's buttons carry the actions that follow.
    struct Outcome {
        bool accepted = true;
        std::optional<CleanupDialog> dialog;
    };
    Outcome perform(CleanupCommand command, const std::string& target = {});

    // The last report as it would be saved; none without a report or when it cannot be encoded.
    std::optional<CleanupExport> exportFile(CleanupCommand format) const;
    // Told when the chosen file could not be written.
    static CleanupDialog exportFailed(const kestrow::Status& written);

    // The dialog asked before a personal item is chosen, and before a clean.
    std::optional<CleanupDialog> approvalDialog(const std::string& id) const;
    std::optional<CleanupDialog> cleanDialog() const;

private:
    CleanupScreen::Ready ready() const;
    CleanupScreen::Busy busy() const;
    CleanupScreen::Finished finished() const;
    CleanupStore& store_;
};

}  // namespace brimlet
