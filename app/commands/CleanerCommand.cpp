#include "app/commands/CleanerCommand.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "base/Checked.hpp"
#include "base/Files.hpp"
#include "base/Json.hpp"
#include "core/common/ByteFormat.hpp"

namespace brimlet {

namespace {

constexpr std::string_view simulatorsId = "simulators-unavailable";

SuiteLaunch::Exit usage(const std::string& text) {
    return SuiteLaunch::Exit{std::string(SuiteLaunch::messagePrefix) + text + " (see --help)\n", 2};
}

// The options of the cleaner; every other option of the table belongs to the application.
bool isCleanerOption(std::string_view name) {
    static const std::set<std::string_view> names = {"--measure", "--json",    "--clean",     "--dry-run",
                                                     "--item",    "--approve", "--permanent", "--report"};
    return names.count(name) != 0;
}

const LaunchOption* tableOption(std::string_view name, LaunchPlatform platform) {
    for (const LaunchOption& option : LaunchOptions::table())
        if (option.name == name && option.availableOn(platform)) return &option;
    return nullptr;
}

bool endsWithFolded(std::string_view text, std::string_view ending) {
    if (text.size() < ending.size()) return false;
    return std::equal(ending.begin(), ending.end(), text.end() - static_cast<std::ptrdiff_t>(ending.size()),
                      [](char lower, char c) { return std::tolower(static_cast<unsigned char>(c)) == lower; });
}

void addOnce(std::vector<std::string>& list, const std::string& value) {
    if (std::find(list.begin(), list.end(), value) == list.end()) list.push_back(value);
}

bool isSimulators(const CleanupItem& item) { return item.action == CleanupAction::deleteUnavailableSimulators; }

// How it would go in this mode: personal data and the Trash mode to the Trash, the simulators
// through their tool only.
std::string_view modeTitle(const CleanupItem& item, DeleteMode mode) {
    if (isSimulators(item)) return DeleteMode(DeleteMode::permanent).title();
    if (item.kind == CleanupKind::personal) return DeleteMode(DeleteMode::trash).title();
    return mode.title();
}

std::optional<std::string> expectedSkip(const CleanupItem& item, DeleteMode mode) {
    if (item.blockedReason) return *item.blockedReason;
    if (isSimulators(item) && !(mode == DeleteMode::permanent)) return "only --permanent deletes simulators";
    return std::nullopt;
}

std::string sizeText(const std::optional<std::uint64_t>& size) {
    return size ? ByteFormat::string(*size) : std::string("unknown");
}

// Columns on a terminal: one per code point (continuation bytes take none).
std::size_t columns(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

// The text cut to at most `width` columns, never inside a character.
std::string cut(std::string_view text, std::size_t width) {
    std::size_t used = 0, end = 0;
    while (end < text.size()) {
        std::size_t next = end + 1;
        while (next < text.size() && (static_cast<unsigned char>(text[next]) & 0xC0) == 0x80) ++next;
        if (used == width) break;
        ++used;
        end = next;
    }
    return std::string(text.substr(0, end));
}

std::string table(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows)
        for (std::size_t c = 0; c < row.size(); ++c) {
            if (widths.size() <= c) widths.push_back(0);
            widths[c] = std::max(widths[c], columns(row[c]));
        }
    std::string text;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t c = 0; c < row.size(); ++c) {
            line += row[c];
            if (c + 1 < row.size()) line += std::string(widths[c] - columns(row[c]) + 2, ' ');
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        text += line + "\n";
    }
    return text;
}

std::uint64_t sumOfSizes(const std::vector<CleanupItem>& items) {
    std::uint64_t sum = 0;
    for (const CleanupItem& item : items)
        if (item.size) sum = kestrow::checkedAdd(sum, *item.size, "cleanup item sizes");
    return sum;
}

// JSON carries UTF-8 only: bytes that are not (a folder name may hold any) become U+FFFD, as in the report.
kestrow::JsonValue repaired(const kestrow::JsonValue& value) {
    if (const std::string* text = value.asString()) return kestrow::JsonValue(kestrow::repairUtf8(*text));
    if (const kestrow::JsonArray* array = value.asArray()) {
        kestrow::JsonArray out;
        for (const kestrow::JsonValue& each : *array) out.push_back(repaired(each));
        return out;
    }
    if (const kestrow::JsonObject* object = value.asObject()) {
        kestrow::JsonObject out;
        for (const auto& [key, each] : *object) out.emplace(kestrow::repairUtf8(key), repaired(each));
        return out;
    }
    return value;
}

std::string count(std::size_t n, std::string_view singular, std::string_view plural) {
    return std::to_string(n) + " " + std::string(n == 1 ? singular : plural);
}

}  // namespace

std::vector<std::string> CleanPlan::ids() const {
    std::vector<std::string> ids;
    for (const Entry& entry : entries) ids.push_back(entry.item.id);
    return ids;
}

namespace CleanerCommand {

bool isRequested(const std::vector<std::string>& arguments) {
    return std::find_if(arguments.begin() + (arguments.empty() ? 0 : 1), arguments.end(),
                        [](const std::string& a) { return a == "--measure" || a == "--clean"; }) != arguments.end();
}

std::set<std::string> cacheIds() {
    std::set<std::string> ids{std::string(simulatorsId)};
    for (const CleanupCatalog::Entry& entry : CleanupCatalog::entries()) ids.insert(entry.id);
    return ids;
}

std::string shown(std::string_view text) {
    // Repaired first, so that no stray byte can combine with what follows; then the C0 controls and
    // DEL as \xNN and the C1 controls (U+0080 to U+009F, which some terminals obey) as \uNNNN.
    const std::string repaired = kestrow::repairUtf8(text);
    std::string out;
    for (std::size_t i = 0; i < repaired.size(); ++i) {
        const auto byte = static_cast<unsigned char>(repaired[i]);
        if (byte == 0xC2 && i + 1 < repaired.size()) {
            const auto next = static_cast<unsigned char>(repaired[i + 1]);
            if (next >= 0x80 && next <= 0x9F) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04X", next);
                out += escaped;
                ++i;
                continue;
            }
        }
        out += LaunchOptions::printable(std::string_view(&repaired[i], 1));
    }
    return out;
}

std::variant<CleanerRequest, Exit> parse(const std::vector<std::string>& arguments, LaunchPlatform platform,
                                         const std::set<std::string>& caches) {
    if (auto exit = LaunchOptions::validate(arguments, platform)) return *exit;
    CleanerRequest request;
    bool measure = false, clean = false;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const LaunchOption* option = tableOption(argument, platform);
        if (!option) {
            // Only the Mac system's own pairs get past the table; their value goes with them.
            if (i + 1 < arguments.size() && !arguments[i + 1].starts_with("-")) ++i;
            continue;
        }
        if (!isCleanerOption(option->name)) return usage(argument + " cannot be used with --measure or --clean");
        if (argument == "--measure") measure = true;
        else if (argument == "--clean") clean = true;
        else if (argument == "--json") request.json = true;
        else if (argument == "--dry-run") request.dryRun = true;
        else if (argument == "--permanent") request.permanent = true;
        else if (argument == "--item") addOnce(request.items, arguments[++i]);
        else if (argument == "--approve") addOnce(request.approvals, arguments[++i]);
        else if (argument == "--report") {
            if (request.reportPath) return usage("--report may be given only once");
            request.reportPath = arguments[++i];
        }
    }
    if (measure && clean) return usage("--measure and --clean cannot be used together");
    request.command = clean ? CleanerRequest::Command::clean : CleanerRequest::Command::measure;
    if (request.permanent && !request.approvals.empty())
        return usage("--permanent cannot be used with --approve: personal items only ever go to the Trash");
    for (const std::string& id : request.items)
        if (!caches.count(id))
            return usage("--item names a cache, and there is none called " + shown(id) +
                         " (--measure lists them; personal items are named with --approve)");
    for (const std::string& id : request.approvals)
        if (caches.count(id))
            return usage("--approve names a personal item, and " + shown(id) + " is a cache: use --item");
    if (request.reportPath) {
        if (request.dryRun) return usage("--report cannot be used with --dry-run: a dry run has nothing to report");
        if (endsWithFolded(*request.reportPath, ".json")) request.reportFormat = CleanerRequest::ReportFormat::json;
        else if (endsWithFolded(*request.reportPath, ".md"))
            request.reportFormat = CleanerRequest::ReportFormat::markdown;
        else return usage("--report must name a .md or .json file, not " + shown(*request.reportPath));
    }
    return request;
}

std::variant<CleanPlan, Exit> plan(const CleanerRequest& request, const MeasureResult& measured,
                                   const std::vector<CleanupItem>& personal) {
    CleanPlan plan;
    plan.mode = request.mode();
    for (const std::string& id : request.approvals) {
        const bool found =
            std::any_of(personal.begin(), personal.end(), [&](const CleanupItem& item) { return item.id == id; });
        if (!found)
            return usage("--approve " + shown(id) +
                         ": no personal item with that id was found (--measure lists them); nothing was cleaned");
    }
    const bool everyCache = request.items.empty();
    for (const CleanupItem& item : measured.regenerable) {
        if (everyCache) {
            // Every cache means those that can run as asked; a named one is tried, and its skip reported.
            if (!item.isSelectable()) {
                plan.notes.push_back(shown(item.title) + " (" + shown(item.id) +
                                     ") is kept: " + shown(*item.blockedReason));
                continue;
            }
            if (isSimulators(item) && !(plan.mode == DeleteMode::permanent)) {
                plan.notes.push_back(shown(item.title) + " (" + shown(item.id) +
                                     ") is left out: only --permanent deletes simulators");
                continue;
            }
            plan.entries.push_back({item, std::nullopt});
        } else if (std::find(request.items.begin(), request.items.end(), item.id) != request.items.end()) {
            plan.entries.push_back({item, expectedSkip(item, plan.mode)});
        }
    }
    for (const std::string& id : request.items) {
        const bool found = std::any_of(measured.regenerable.begin(), measured.regenerable.end(),
                                       [&](const CleanupItem& item) { return item.id == id; });
        if (!found) plan.notes.push_back(shown(id) + " is not here: nothing to clean");
    }
    for (const CleanupItem& item : personal)
        if (std::find(request.approvals.begin(), request.approvals.end(), item.id) != request.approvals.end())
            plan.entries.push_back({item, expectedSkip(item, plan.mode)});
    return plan;
}

std::string cleaningWouldDo(const CleanupItem& item) {
    if (item.blockedReason) return "kept: " + *item.blockedReason;
    if (isSimulators(item)) return "deleted by the simulator tool, only with --clean --permanent";
    if (item.kind == CleanupKind::personal) return "moved to the Trash, only with --clean --approve ID";
    return "moved to the Trash by --clean, deleted with --permanent";
}

std::string measureText(const std::string& home, const MeasureResult& measured,
                        const std::vector<CleanupItem>& personal) {
    std::string text = "Home folder: " + shown(home) + "\n\n";
    if (measured.regenerable.empty() && personal.empty()) {
        text += "Nothing to clean was found.\n";
    } else {
        std::vector<std::vector<std::string>> rows = {{"ID", "KIND", "SIZE", "TITLE", "CLEANING"}};
        for (const auto* items : {&measured.regenerable, &personal})
            for (const CleanupItem& item : *items) {
                std::string what = cleaningWouldDo(item);
                if (item.note) what += " (" + *item.note + ")";
                rows.push_back({shown(item.id), std::string(item.kind.rawValue()), sizeText(item.size),
                                shown(item.title), shown(what)});
            }
        text += table(rows);
    }
    text += "\nCaches: " + count(measured.regenerable.size(), "item", "items") + ", " +
            ByteFormat::string(sumOfSizes(measured.regenerable)) +
            ". Personal items: " + std::to_string(personal.size()) + ", " + ByteFormat::string(sumOfSizes(personal)) +
            ".\nFree space: " + ByteFormat::string(measured.freeBytes) + " of " +
            ByteFormat::string(measured.totalBytes) + ".\n";
    return text;
}

std::string measureJSON(const std::string& home, const MeasureResult& measured,
                        const std::vector<CleanupItem>& personal) {
    kestrow::JsonArray items;
    for (const auto* list : {&measured.regenerable, &personal})
        for (const CleanupItem& item : *list) {
            kestrow::JsonValue json = repaired(toJson(item));
            if (auto* object = json.asObject()) (*object)["cleaning"] = repaired(cleaningWouldDo(item));
            items.push_back(std::move(json));
        }
    const kestrow::JsonValue document(kestrow::JsonObject{
        {"home", repaired(home)},
        {"freeBytes", measured.freeBytes},
        {"totalBytes", measured.totalBytes},
        {"items", std::move(items)},
    });
    auto written = kestrow::writeJson(document, {.pretty = true});
    return written.ok() ? *written + "\n" : std::string("{}\n");
}

std::string dryRunText(const CleanPlan& plan) {
    std::string text = "Dry run: nothing was changed.\n\n";
    if (plan.entries.empty()) {
        text += "--clean would find nothing to clean.\n";
    } else {
        text += "--clean would take, in this order:\n";
        std::uint64_t bytes = 0;
        for (const CleanPlan::Entry& entry : plan.entries) {
            const CleanupItem& item = entry.item;
            std::string line = "- " + shown(item.title) + " (" + shown(item.id) + ") \u2014 " + sizeText(item.size);
            if (entry.expectedSkip) line += " \u2014 skipped: " + shown(*entry.expectedSkip);
            else line += " \u2014 " + std::string(modeTitle(item, plan.mode));
            text += line + "\n  " + shown(item.url) + "\n";
            if (!entry.expectedSkip && item.size) bytes = kestrow::checkedAdd(bytes, *item.size, "planned sizes");
        }
        text += "\nIn all: " + count(plan.entries.size(), "item", "items") + ", " + ByteFormat::string(bytes) + ".\n";
    }
    if (!plan.notes.empty()) {
        text += "\nNot included:\n";
        for (const std::string& note : plan.notes) text += "- " + note + "\n";
    }
    return text;
}

int exitStatus(const CleanupReport& report) {
    return report.refusal || report.cancelled || !report.skipped.empty() ? 1 : 0;
}

int exitStatus(const CleanPlan& plan) {
    return std::any_of(plan.entries.begin(), plan.entries.end(),
                       [](const CleanPlan::Entry& entry) { return entry.expectedSkip.has_value(); })
               ? 1
               : 0;
}

std::string plainProgress(const ProgressStep& step) {
    if (step.current.empty())
        return std::string(step.activity) + " " + std::to_string(step.done) + " of " + std::to_string(step.total);
    return std::string(step.activity) + " " + std::to_string(step.done + 1) + " of " + std::to_string(step.total) +
           ": " + shown(step.current);
}

std::string progressBar(const ProgressStep& step, std::size_t width) {
    constexpr std::size_t barWidth = 24;
    const std::size_t filled = step.total == 0 ? 0 : std::min(barWidth, step.done * barWidth / step.total);
    std::string line = std::string(step.activity) + " [" + std::string(filled, '#') +
                       std::string(barWidth - filled, '-') + "] " + std::to_string(step.done) + "/" +
                       std::to_string(step.total);
    if (!step.current.empty()) line += " " + shown(step.current);
    // One column short of the width: a line that fills the last column wraps on some terminals.
    return cut(line, width > 1 ? width - 1 : 0);
}

std::string homeFolder(const char* homeVariable, uid_t user) {
    if (homeVariable && homeVariable[0] == '/') {
        std::string home = kestrow::standardizePath(homeVariable);
        struct stat st {};
        if (home != "/" && ::stat(home.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == user) return home;
    }
    return kestrow::realHomeFolder();
}

}  // namespace CleanerCommand

CleanerRun::CleanerRun(CleanerRequest request, std::string home, FileOperations& fileOperations, Output output,
                       CancelCheck isCancelled)
    : request_(std::move(request)),
      home_(std::move(home)),
      fileOperations_(fileOperations),
      output_(std::move(output)),
      isCancelled_(std::move(isCancelled)) {}

void CleanerRun::report(const CleanerCommand::ProgressStep& step) {
    const std::lock_guard lock(mutex_);
    if (output_.terminal) {
        output_.progress("\r" + CleanerCommand::progressBar(step, output_.width) + "\x1b[K");
        barShown_ = true;
    } else if (!step.current.empty()) {
        output_.progress(CleanerCommand::plainProgress(step) + "\n");
    }
}

void CleanerRun::endProgress() {
    const std::lock_guard lock(mutex_);
    if (barShown_) output_.progress("\r\x1b[K");
    barShown_ = false;
}

int CleanerRun::run() {
    using namespace CleanerCommand;
    const bool cleaning = request_.command == CleanerRequest::Command::clean;
    if (request_.reportPath) {
        // Checked before anything is touched: a report that cannot be written would leave a run
        // without its record.
        const std::string& path = *request_.reportPath;
        const auto slash = path.rfind('/');
        const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
        struct stat st {};
        if (::stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
            output_.progress(usage("--report: there is no folder " + shown(folder)).standardError);
            return 2;
        }
        if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            output_.progress(usage("--report names a folder, not a file: " + shown(path)).standardError);
            return 2;
        }
    }

    CleanupSession session(home_, fileOperations_);
    output_.progress("Measuring the caches in " + shown(home_) + "\n");
    MeasureResult measured = session
                                 .measure(isCancelled_,
                                          [this](std::size_t done, std::size_t total) {
                                              report({"Measuring", done, total, {}});
                                          })
                                 .get();
    endProgress();
    std::vector<CleanupItem> personal;
    if (!isCancelled_() && (!cleaning || !request_.approvals.empty())) {
        output_.progress("Looking for personal items\n");
        personal = session.scanPersonal(isCancelled_).get();
    }
    if (isCancelled_()) {
        output_.progress(std::string(SuiteLaunch::messagePrefix) + "stopped; nothing was cleaned\n");
        return 1;
    }
    if (!cleaning) {
        output_.out(request_.json ? measureJSON(home_, measured, personal) : measureText(home_, measured, personal));
        return 0;
    }

    auto planned = plan(request_, measured, personal);
    if (const auto* exit = std::get_if<Exit>(&planned)) {
        output_.progress(exit->standardError);
        return exit->status;
    }
    const CleanPlan& chosen = std::get<CleanPlan>(planned);
    if (request_.dryRun) {
        output_.out(dryRunText(chosen));
        return exitStatus(chosen);
    }
    for (const std::string& note : chosen.notes) output_.progress("Not included: " + note + "\n");

    const std::vector<std::string> ids = chosen.ids();
    CleanupApproval approval = session.approve(ids).get();
    const CleanupReport result = session
                                     .clean(
                                         ids, std::move(approval), chosen.mode,
                                         [this, total = ids.size()](std::size_t index, const CleanupItem& item) {
                                             report({"Cleaning", index, total, item.title});
                                         },
                                         isCancelled_)
                                     .get();
    endProgress();
    const std::string markdown = result.markdown();
    output_.out(markdown);
    int status = exitStatus(result);
    if (request_.reportPath) {
        const kestrow::Result<std::string> text = request_.reportFormat == CleanerRequest::ReportFormat::json
                                                      ? result.json()
                                                      : kestrow::Result<std::string>(markdown);
        const kestrow::Status written = text.ok() ? kestrow::writeAtomically(*request_.reportPath, *text, 0644)
                                                  : kestrow::Status::failure("the report could not be encoded");
        if (written.failed()) {
            output_.progress(std::string(SuiteLaunch::messagePrefix) + "the report was not written to " +
                             shown(*request_.reportPath) + ": " + written.message() + "\n");
            status = 1;
        }
    }
    return status;
}

}  // namespace brimlet
