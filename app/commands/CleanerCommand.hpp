// The cleaner for scripts and terminals: "--measure" lists what the cleaner finds, "--clean" cleans
// it. Both go through one `CleanupSession`, exactly as the cleanup window does: the session measures
// and scans, issues a one-time approval for exactly the items chosen, and its cleaner judges every
// real path with the safety policy right before acting. This file decides everything a run needs
// to know besides that (which arguments go together, which items a clean takes, the wording of the
// listing and of the progress, the exit status); the process around it is in CleanerEntry.cpp.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "app/startup/LaunchOptions.hpp"
#include "app/startup/SuiteLaunch.hpp"
#include "core/cleanup/CleanupItem.hpp"
#include "core/cleanup/CleanupReport.hpp"
#include "core/cleanup/CleanupSession.hpp"
#include "core/cleanup/SizeMeasurer.hpp"

namespace brimlet {

// What the command line asked for, checked.
struct CleanerRequest {
    enum class Command { measure, clean };
    enum class ReportFormat { markdown, json };

    Command command = Command::measure;
    bool json = false;                   // --measure only
    bool dryRun = false;                 // the rest: --clean only
    std::vector<std::string> items;      // caches; empty: every cache found
    std::vector<std::string> approvals;  // personal items
    bool permanent = false;
    std::optional<std::string> reportPath;
    ReportFormat reportFormat = ReportFormat::markdown;

    DeleteMode mode() const { return permanent ? DeleteMode::permanent : DeleteMode::trash; }
    bool operator==(const CleanerRequest&) const = default;
};

// What a clean takes, in the order the session presented the items: the caches in catalog order,
// then the approved personal items in the order they were found.
struct CleanPlan {
    struct Entry {
        CleanupItem item;
        // Known before the run: the cleaner will skip the item, and why (a blocked item, the
        // simulators in Trash mode). The cleaner still decides; this only forewarns.
        std::optional<std::string> expectedSkip;
        bool operator==(const Entry&) const = default;
    };
    std::vector<Entry> entries;
    std::vector<std::string> notes;  // caches named but not there, and caches left out of "every cache"
    DeleteMode mode;

    std::vector<std::string> ids() const;
    bool operator==(const CleanPlan&) const = default;
};

namespace CleanerCommand {

using Exit = SuiteLaunch::Exit;

// Whether the arguments ask for the cleaner rather than the application.
bool isRequested(const std::vector<std::string>& arguments);

// The ids "--item" accepts: every cache of this platform's catalog, the simulators included.
std::set<std::string> cacheIds();

// The arguments (program path first) checked against the launch table, then against each other:
// one of "--measure" and "--clean", none of the application's own options, "--permanent" never with
// "--approve", "--item" naming a cache and "--approve" not naming one, one "--report" ending in
// ".md" or ".json", and no report for a dry run. Refusals are "KestrowBrimlet: " messages, status 2.
std::variant<CleanerRequest, Exit> parse(const std::vector<std::string>& arguments, LaunchPlatform platform,
                                         const std::set<std::string>& caches = cacheIds());

// The items a clean takes from what the session measured and found. Every approval must name a
// personal item found now; otherwise nothing is cleaned (status 2). Without "--item", every cache
// is taken, except what cannot run in the chosen mode (the simulators without "--permanent"), which
// gets a note; a named cache that is not there gets a note too.
std::variant<CleanPlan, Exit> plan(const CleanerRequest& request, const MeasureResult& measured,
                                   const std::vector<CleanupItem>& personal);

// What cleaning would do with an item, in a few words.
std::string cleaningWouldDo(const CleanupItem& item);

// The "--measure" listing: a table of every item found, then the totals and the free space.
std::string measureText(const std::string& home, const MeasureResult& measured,
                        const std::vector<CleanupItem>& personal);
// The same as JSON: "home", "freeBytes", "totalBytes" and "items", each item as the session returned
// it plus "cleaning", the text above. Pretty, keys sorted.
std::string measureJSON(const std::string& home, const MeasureResult& measured,
                        const std::vector<CleanupItem>& personal);

// What "--clean --dry-run" prints: the plan, item by item, and the total.
std::string dryRunText(const CleanPlan& plan);

// 0 when everything asked for was done; 1 when anything was skipped, the run was cancelled or the
// session refused it. The report says why in each case.
int exitStatus(const CleanupReport& report);
// A dry run answers as the run would, as far as can be known beforehand.
int exitStatus(const CleanPlan& plan);

// One line of progress. `done` of `total` finished; `current` the item in hand, if any.
struct ProgressStep {
    std::string_view activity;  // "Measuring", "Cleaning"
    std::size_t done = 0;
    std::size_t total = 0;
    std::string current;
};
// For a log or a pipe: "Cleaning 2 of 5: pip cache".
std::string plainProgress(const ProgressStep& step);
// For a terminal, redrawn in place: "Cleaning [########------------] 2/5 pip cache", cut to `width`
// columns. It carries no line feed and no control sequence; the caller returns the cursor.
std::string progressBar(const ProgressStep& step, std::size_t width);

// The home folder the cleaner works in: $HOME when it names a folder of this user (as every command
// in a shell assumes), else the home folder of the user database. "/" is never taken from $HOME.
std::string homeFolder(const char* homeVariable, uid_t user);

// The process: parses, picks the home folder, takes SIGINT, SIGTERM and SIGHUP as "stop before the
// next item" (a second one ends the process), shows a bar when standard error is a terminal, and runs.
// Defined with the executable (CleanerEntry.cpp).
int runProcess(const std::vector<std::string>& arguments, LaunchPlatform platform);

// The text of an item as a terminal may show it: bytes that are not UTF-8 replaced, control
// characters written as escapes, so that a folder named with an escape sequence cannot drive the
// terminal.
std::string shown(std::string_view text);

}  // namespace CleanerCommand

// The run itself, on one session, with the output and the Trash of the caller's choosing.
class CleanerRun {
public:
    struct Output {
        std::function<void(std::string_view)> out;       // the listing, the plan or the report
        std::function<void(std::string_view)> progress;  // progress and notes, never part of the result
        bool terminal = false;                           // progress as a bar redrawn in place
        std::size_t width = 80;                          // of the terminal
    };

    CleanerRun(CleanerRequest request, std::string home, FileOperations& fileOperations, Output output,
               CancelCheck isCancelled);

    // Measures (and scans, when personal items matter), then lists, plans or cleans. Returns the
    // exit status; messages for status 2 and failures go to `progress`.
    int run();

private:
    void report(const CleanerCommand::ProgressStep& step);  // thread-safe: measuring reports from several threads
    void endProgress();

    CleanerRequest request_;
    std::string home_;
    FileOperations& fileOperations_;
    Output output_;
    CancelCheck isCancelled_;
    std::mutex mutex_;
    bool barShown_ = false;
};

}  // namespace brimlet
