#include "TerminalFrontEnd.hpp"

#include <algorithm>
#include <cctype>

#include "TerminalText.hpp"
#include "app/screens/MonitorReadout.hpp"
#include "app/screens/SettingsChoices.hpp"
#include "base/UnicodeCase.hpp"
#include "core/common/ByteFormat.hpp"
#include "suite/ui/SuiteScreens.hpp"

namespace brimlet::tui {

namespace R = MonitorReadout;
using screens::Tone;

namespace {

constexpr std::string_view pageTitles[] = {"Overview", "Apps", "Cleanup", "Settings", "Suite"};

// The settings the terminal can change, in the settings window's words; the rest of that window
// (menu bar, floating monitor, Dock badges, login item) means nothing in a terminal.
constexpr std::size_t settingRows = 5;
constexpr std::string_view pressureAlertTitle = "Memory pressure stays critical";
constexpr std::string_view lowDiskAlertTitle = "Disk space is low";
constexpr std::string_view lowDiskThresholdTitle = "Low disk alert threshold";
constexpr std::string_view heavyAppAlertTitle = "An app uses a lot of memory";
constexpr std::string_view heavyAppThresholdTitle = "Heavy app alert threshold";

// The choice after `current` in the list, the first after the last.
std::uint64_t nextChoice(const std::vector<SettingChoice<std::uint64_t>>& choices, std::uint64_t current) {
    for (std::size_t i = 0; i < choices.size(); ++i)
        if (choices[i].value == current) return choices[(i + 1) % choices.size()].value;
    return choices.empty() ? current : choices.front().value;
}

bool isPrintable(int key) { return key >= 0x20 && key != 0x7F && key < 0x110000; }

std::string lowered(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

std::string pad(std::size_t cells) { return std::string(cells, ' '); }

constexpr std::string_view suiteInactiveNote =
    "The suite is not active: its members show here while at least one other Kestrow app runs beside this one.";

}  // namespace

Command commandFor(int key, const KeyContext& context) {
    if (context.dialog) {
        switch (key) {
        case Key::enter:
        case '\r':
        case 'y':
        case 'Y': return Command::confirm;
        case Key::escape:
        case 'n':
        case 'N':
        case 'q':
        case 'Q': return Command::dismiss;
        default: return Command::none;
        }
    }
    if (context.help) {
        switch (key) {
        case Key::escape:
        case '?':
        case 'q':
        case 'Q':
        case Key::enter:
        case '\r': return Command::dismiss;
        default: return Command::none;
        }
    }
    if (context.editingFilter) {
        switch (key) {
        case Key::enter:
        case '\r': return Command::confirm;
        case Key::escape: return Command::dismiss;
        default: return Command::none;  // typed into the filter
        }
    }
    switch (key) {
    case 'q':
    case 'Q': return Command::quit;
    case '?': return Command::help;
    case '1': return Command::showOverview;
    case '2': return Command::showApps;
    case '3': return Command::showCleanup;
    case '4': return Command::showSettings;
    case '5': return Command::showSuite;
    case Key::tab:
    case Key::right: return Command::nextPage;
    case Key::backTab:
    case Key::left: return Command::previousPage;
    case Key::up:
    case 'k': return Command::up;
    case Key::down:
    case 'j': return Command::down;
    case Key::pageUp: return Command::pageUp;
    case Key::pageDown: return Command::pageDown;
    case Key::home:
    case 'g': return Command::top;
    case Key::end:
    case 'G': return Command::bottom;
    default: break;
    }
    if (context.page == Page::apps) {
        switch (key) {
        case 's': return Command::sortNext;
        case '/': return Command::filter;
        case Key::enter:
        case '\r':
        case 'x': return Command::askQuitApp;
        default: return Command::none;
        }
    }
    if (context.page == Page::settings) {
        switch (key) {
        case ' ':
        case Key::enter:
        case '\r': return Command::toggleItem;
        default: return Command::none;
        }
    }
    if (context.page == Page::cleanup) {
        switch (key) {
        case 'm': return Command::measure;
        case 'c':
        case Key::escape: return Command::cancel;
        case ' ': return Command::toggleItem;
        case 'd': return Command::toggleMode;
        case Key::enter:
        case '\r': return Command::clean;
        case 'r': return Command::startOver;
        case 'e': return Command::exportReport;
        default: return Command::none;
        }
    }
    return Command::none;
}

std::vector<KeyHint> footerHints(const KeyContext& context) {
    if (context.dialog) return {{"Enter", "confirm"}, {"Esc", "cancel"}};
    if (context.help) return {{"Esc", "close help"}};
    if (context.editingFilter) return {{"Enter", "keep filter"}, {"Esc", "clear filter"}};
    std::vector<KeyHint> hints{{"1-5", "pages"}};
    if (context.page == Page::apps)
        hints.insert(hints.end(), {{"\u2191\u2193", "select"}, {"s", "sort"}, {"/", "filter"}, {"x", "quit app"}});
    if (context.page == Page::cleanup)
        hints.insert(hints.end(),
                     {{"m", "measure"}, {"Space", "choose"}, {"Enter", "clean"}, {"c", "cancel"}, {"e", "export"}});
    if (context.page == Page::settings) hints.insert(hints.end(), {{"\u2191\u2193", "select"}, {"Space", "change"}});
    hints.insert(hints.end(), {{"?", "help"}, {"q", "quit"}});
    return hints;
}

std::vector<KeyHint> helpHints(Page page) {
    std::vector<KeyHint> hints{
        {"1  2  3  4  5", "Overview, Apps, Cleanup, Settings, Suite"},
        {"Tab  \u2190 \u2192", "next and previous page"},
        {"\u2191 \u2193  j k  PgUp PgDn  g G", "move the selection"},
    };
    if (page == Page::apps) {
        hints.insert(hints.end(), {
                                      {"s", "sort by memory, CPU, disk or name"},
                                      {"/", "filter by name (Enter keeps it, Esc clears it)"},
                                      {"x  Enter", "ask the selected app to quit (SIGTERM, after you confirm)"},
                                  });
    }
    if (page == Page::cleanup) {
        hints.insert(hints.end(), {
                                      {"m", "measure (again)"},
                                      {"Space", "choose or drop the selected item; personal items ask first"},
                                      {"d", "switch between Move to Trash and Delete permanently"},
                                      {"Enter", "clean the chosen items, after you confirm"},
                                      {"c  Esc", "cancel measuring or cleaning"},
                                      {"e", "export the report as Markdown and JSON into the working folder"},
                                      {"r", "start over"},
                                  });
    }
    if (page == Page::settings)
        hints.insert(hints.end(), {{"Space  Enter", "switch an alert on or off, or pick the next threshold"}});
    hints.insert(hints.end(), {{"?", "this help"}, {"q", "quit Kestrow Brimlet"}});
    return hints;
}

std::string_view sortTitle(AppSort sort) {
    switch (sort) {
    case AppSort::memory: return "memory";
    case AppSort::cpu: return "CPU";
    case AppSort::disk: return "disk";
    case AppSort::name: return "name";
    }
    return "memory";
}

AppSort nextSort(AppSort sort) {
    switch (sort) {
    case AppSort::memory: return AppSort::cpu;
    case AppSort::cpu: return AppSort::disk;
    case AppSort::disk: return AppSort::name;
    case AppSort::name: return AppSort::memory;
    }
    return AppSort::memory;
}

std::vector<AppGroup> sortedApps(const std::vector<AppGroup>& apps, AppSort sort, std::string_view filter) {
    std::vector<AppGroup> listed;
    const std::string wanted = lowered(filter);
    for (const AppGroup& group : apps)
        if (wanted.empty() || lowered(group.name).find(wanted) != std::string::npos) listed.push_back(group);
    const auto key = [sort](const AppGroup& group) -> double {
        switch (sort) {
        case AppSort::cpu: return group.cpuPercent.value_or(-1);
        case AppSort::disk: return group.diskTotalPerSecond().value_or(-1);
        default: return static_cast<double>(group.footprint);
        }
    };
    std::stable_sort(listed.begin(), listed.end(), [&](const AppGroup& a, const AppGroup& b) {
        if (sort == AppSort::name) {
            const std::string la = lowered(a.name), lb = lowered(b.name);
            if (la != lb) return la < lb;
        } else if (key(a) != key(b)) {
            return key(a) > key(b);
        }
        if (a.footprint != b.footprint) return a.footprint > b.footprint;
        return a.id < b.id;
    });
    return listed;
}

std::string tooSmallText(std::size_t columns, std::size_t rows) {
    return "Make the terminal at least " + std::to_string(TerminalFrontEnd::minimumColumns) + "\u00D7" +
           std::to_string(TerminalFrontEnd::minimumRows) + " (now " + std::to_string(columns) + "\u00D7" +
           std::to_string(rows) + ").";
}

TerminalFrontEnd::TerminalFrontEnd(MonitorStore& monitor, CleanupStore& cleanup, FrontEndSeams seams)
    : monitor_(monitor),
      cleanup_(cleanup),
      presenter_(cleanup),
      seams_(std::move(seams)) {}

KeyContext TerminalFrontEnd::context() const { return KeyContext{page_, dialog_.has_value(), help_, editingFilter_}; }

void TerminalFrontEnd::setStatus(std::string text, Tone tone) {
    status_ = std::move(text);
    statusTone_ = tone;
}

std::string TerminalFrontEnd::text(std::string_view utf8) const {
    return seams_.unicode ? std::string(utf8) : ascii(utf8);
}

std::vector<AppGroup> TerminalFrontEnd::listedApps() const {
    const auto& snapshot = monitor_.snapshot();
    if (!snapshot) return {};
    return sortedApps(snapshot->apps, sort_, filter_);
}

std::vector<std::string> TerminalFrontEnd::cleanupIds() const {
    std::vector<std::string> ids;
    if (cleanup_.phase() != CleanupPhase::ready) return ids;
    for (const CleanupItemRow& row : presenter_.screen().ready.rows) ids.push_back(row.id);
    return ids;
}

void TerminalFrontEnd::move(int by) {
    if (page_ == Page::apps) {
        const std::vector<AppGroup> listed = listedApps();
        if (listed.empty()) return;
        long at = 0;
        for (std::size_t i = 0; i < listed.size(); ++i)
            if (listed[i].id == selectedApp_) at = static_cast<long>(i);
        at = std::clamp(at + by, 0L, static_cast<long>(listed.size()) - 1);
        selectedApp_ = listed[static_cast<std::size_t>(at)].id;
    } else if (page_ == Page::settings) {
        selectedSetting_ = static_cast<std::size_t>(
            std::clamp(static_cast<long>(selectedSetting_) + by, 0L, static_cast<long>(settingRows) - 1));
    } else if (page_ == Page::cleanup) {
        const std::size_t count = cleanupIds().size();
        if (count == 0) return;
        const long at = std::clamp(static_cast<long>(selectedItem_) + by, 0L, static_cast<long>(count) - 1);
        selectedItem_ = static_cast<std::size_t>(at);
    }
}

void TerminalFrontEnd::changeSetting() {
    AlertSettings alerts = monitor_.alertSettings();
    switch (selectedSetting_) {
    case 0: alerts.memoryPressureEnabled = !alerts.memoryPressureEnabled; break;
    case 1: alerts.lowDiskEnabled = !alerts.lowDiskEnabled; break;
    case 2:
        alerts.lowDiskThreshold =
            nextChoice(SettingsChoices::lowDiskThresholds(alerts.lowDiskThreshold), alerts.lowDiskThreshold);
        break;
    case 3: alerts.heavyAppEnabled = !alerts.heavyAppEnabled; break;
    default:
        alerts.heavyAppThreshold =
            nextChoice(SettingsChoices::heavyAppThresholds(alerts.heavyAppThreshold), alerts.heavyAppThreshold);
        break;
    }
    monitor_.setAlertSettings(alerts);
}

void TerminalFrontEnd::askQuitApp() {
    const std::vector<AppGroup> listed = listedApps();
    // Until the user moves, the first row is the selected one, as the page draws it.
    auto it = std::find_if(listed.begin(), listed.end(), [&](const AppGroup& g) { return g.id == selectedApp_; });
    if (it == listed.end()) it = listed.begin();
    if (it == listed.end()) return;
    const AppGroup group = *it;
    const TerminalQuit::Plan plan =
        TerminalQuit::plan(group, seams_.uid, seams_.protectedPids, seams_.lookup, seams_.inOwnSession);
    if (!plan.allowed()) {
        setStatus(group.name + ": " + plan.refusal, Tone::warning);
        return;
    }
    dialog_ = Ask{R::quitTitle(group.name), TerminalQuit::confirmation(group, plan), std::string(R::quitButton),
                  std::string(R::cancelButton), [this, group] {
                      const std::size_t asked =
                          TerminalQuit::quit(group, seams_.uid, seams_.protectedPids, seams_.lookup,
                                             seams_.inOwnSession, seams_.terminate);
                      setStatus(asked > 0 ? group.name + " was asked to quit." : group.name + " is no longer running.",
                                asked > 0 ? Tone::success : Tone::secondary);
                  }};
}

void TerminalFrontEnd::showCleanupDialog(const CleanupDialog& dialog) {
    if (dialog.buttons.empty()) return;
    const CleanupControl first = dialog.buttons.front();
    const bool single = dialog.buttons.size() == 1;
    dialog_ = Ask{dialog.title, dialog.message, first.title, single ? std::string() : dialog.buttons.back().title,
                  [this, first] { cleanupAction(first.action, first.target); }};
}

void TerminalFrontEnd::cleanupAction(CleanupCommand command, const std::string& target) {
    if (command == CleanupCommand::exportMarkdown || command == CleanupCommand::exportJSON) {
        const kestrow::Status written = cleanup_.exportReport(seams_.exportFolder);
        if (!written.ok()) return showCleanupDialog(CleanupPresenter::exportFailed(written));
        if (const auto& report = cleanup_.lastReport()) {
            const std::string base = seams_.exportFolder + "/" + CleanupStore::reportBaseName(*report);
            setStatus("Report written: " + base + ".md and .json", Tone::success);
        }
        return;
    }
    const CleanupPresenter::Outcome outcome = presenter_.perform(command, target);
    if (outcome.dialog) showCleanupDialog(*outcome.dialog);
    if (command == CleanupCommand::measure || command == CleanupCommand::startOver) selectedItem_ = 0;
}

bool TerminalFrontEnd::press(int key) {
    if (editingFilter_ && !dialog_) {
        if (key == Key::backspace || key == 0x7F || key == 8) {
            while (!filter_.empty() && (static_cast<unsigned char>(filter_.back()) & 0xC0) == 0x80) filter_.pop_back();
            if (!filter_.empty()) filter_.pop_back();
            return true;
        }
        if (isPrintable(key) && key != Key::enter) {
            std::string typed;
            kestrow::appendUtf8(static_cast<char32_t>(key), typed);
            if (filter_.size() < 64) filter_ += typed;
            return true;
        }
    }
    const Command command = commandFor(key, context());
    switch (command) {
    case Command::none: return true;
    case Command::quit:
        if (cleanup_.phase() == CleanupPhase::cleaning) {
            setStatus("Cleaning is under way: cancel it with c, or wait for the report.", Tone::warning);
            return true;
        }
        return false;
    case Command::help: help_ = true; return true;
    case Command::confirm:
        if (dialog_) {
            auto confirmed = std::move(dialog_->onConfirm);
            dialog_.reset();
            if (confirmed) confirmed();
        }
        editingFilter_ = false;
        return true;
    case Command::dismiss:
        if (dialog_) dialog_.reset();
        else if (help_) help_ = false;
        else if (editingFilter_) editingFilter_ = false, filter_.clear();
        return true;
    case Command::showOverview: page_ = Page::overview; return true;
    case Command::showApps: page_ = Page::apps; return true;
    case Command::showCleanup: page_ = Page::cleanup; return true;
    case Command::showSettings: page_ = Page::settings; return true;
    case Command::showSuite: page_ = Page::suite; return true;
    case Command::nextPage: page_ = static_cast<Page>((static_cast<int>(page_) + 1) % pageCount); return true;
    case Command::previousPage:
        page_ = static_cast<Page>((static_cast<int>(page_) + pageCount - 1) % pageCount);
        return true;
    case Command::up: move(-1); return true;
    case Command::down: move(1); return true;
    case Command::pageUp: move(-10); return true;
    case Command::pageDown: move(10); return true;
    case Command::top: move(-1'000'000); return true;
    case Command::bottom: move(1'000'000); return true;
    case Command::sortNext: sort_ = nextSort(sort_); return true;
    case Command::filter: editingFilter_ = true; return true;
    case Command::askQuitApp: askQuitApp(); return true;
    case Command::measure: cleanupAction(CleanupCommand::measure); return true;
    case Command::cancel: cleanupAction(CleanupCommand::cancel); return true;
    case Command::toggleItem: {
        if (page_ == Page::settings) {
            changeSetting();
            return true;
        }
        const std::vector<std::string> ids = cleanupIds();
        if (selectedItem_ >= ids.size()) return true;
        const bool chosen = cleanup_.selection().count(ids[selectedItem_]) > 0;
        cleanupAction(chosen ? CleanupCommand::exclude : CleanupCommand::include, ids[selectedItem_]);
        return true;
    }
    case Command::toggleMode:
        cleanupAction(cleanup_.chosenDeleteMode() == DeleteMode::trash ? CleanupCommand::choosePermanent
                                                                       : CleanupCommand::chooseTrash);
        return true;
    case Command::clean: cleanupAction(CleanupCommand::clean); return true;
    case Command::startOver: cleanupAction(CleanupCommand::startOver); return true;
    case Command::exportReport:
        if (cleanup_.lastReport()) cleanupAction(CleanupCommand::exportMarkdown);
        return true;
    }
    return true;
}

// ---- Layout ----

// Text fitted to its cells in the frame's character set: without UTF-8 the symbols are spelled in
// ASCII before they are measured, so a cut text ends in "." rather than an ellipsis that grows.
std::string TerminalFrontEnd::cell(std::string_view utf8, std::size_t width) const {
    return seams_.unicode ? fit(utf8, width) : fit(ascii(utf8), width, ".");
}

std::string TerminalFrontEnd::cellRight(std::string_view utf8, std::size_t width) const {
    return seams_.unicode ? fitRight(utf8, width) : fitRight(ascii(utf8), width, ".");
}

std::vector<Line> TerminalFrontEnd::header(std::size_t columns) const {
    std::string tabs;
    for (int i = 0; i < pageCount; ++i) {
        const bool current = static_cast<int>(page_) == i;
        tabs += current ? "[" : " ";
        tabs += std::to_string(i + 1) + " " + std::string(pageTitles[i]);
        tabs += current ? "]" : " ";
        tabs += " ";
    }
    const std::string title = " " + std::string(R::productName) + "   ";
    const std::string note =
        monitor_.snapshot() ? std::string(DashboardFigures::cadenceNote) : std::string(DashboardFigures::waitingNote);
    std::string line = title + tabs;
    if (displayWidth(line) + 8 < columns) line += cellRight("? help ", columns - displayWidth(line));
    return {Line{cell(line, columns), Tone::plain, true, false}, Line{cell(" " + text(note), columns), Tone::secondary},
            Line{pad(columns)}};
}

std::vector<Line> TerminalFrontEnd::overview(std::size_t columns) const {
    std::vector<Line> lines;
    const PopoverScreen popover = MonitorScreens::popover(monitor_);
    if (!popover.waiting.empty()) {
        lines.push_back({cell(" " + text(popover.waiting), columns), Tone::secondary});
        return lines;
    }
    // Title, value, gauge, caption, grade: the popover's figures in columns.
    const std::size_t titleWidth = 10, valueWidth = 24, gaugeWidth = 12, gradeWidth = 6;
    const std::size_t captionWidth =
        std::min<std::size_t>(40, columns - (titleWidth + valueWidth + gaugeWidth + gradeWidth + 6));
    for (const ReadingRow& row : popover.readings) {
        std::string line = " " + cell(row.title, titleWidth) + " " + cell(text(row.value), valueWidth) + " ";
        line += row.gauge ? bar(*row.gauge, gaugeWidth, seams_.unicode) : pad(gaugeWidth);
        line += "  " + cell(text(row.caption), captionWidth) + " ";
        line += row.grade ? cellRight(std::string(row.grade->rawValue()), gradeWidth) : pad(gradeWidth);
        Tone tone = Tone::plain;
        if (row.grade && (*row.grade == Rating::fair)) tone = Tone::warning;
        if (row.grade && (*row.grade == Rating::poor)) tone = Tone::failure;
        if (row.id == "pressure" && row.value != "Normal") tone = Tone::warning;
        lines.push_back({cell(line, columns), tone});
    }
    lines.push_back({pad(columns)});
    lines.push_back({cell(" " + popover.appsTitle, columns), Tone::plain, true});
    for (const AppListRow& app : popover.apps) {
        const std::size_t nameWidth = std::min<std::size_t>(columns - 40, 40);
        const std::string line = "   " + cell(text(app.name), nameWidth) + cellRight(app.memory, 11) +
                                 cellRight(app.cpu, 9) + cellRight(app.processes, 5) + " proc";
        lines.push_back({cell(line, columns)});
    }
    const DashboardScreen dashboard = MonitorScreens::dashboard(monitor_);
    lines.push_back({pad(columns)});
    lines.push_back({cell(" " + dashboard.chartsHeading, columns), Tone::plain, true});
    const std::size_t labelWidth = 12, nowWidth = 14;
    const std::size_t chartWidth = columns > labelWidth + nowWidth + 4 ? columns - labelWidth - nowWidth - 4 : 1;
    for (const DashboardChart& chart : dashboard.charts) {
        for (std::size_t i = 0; i < chart.lines.size(); ++i) {
            const ChartSeries& series = chart.lines[i];
            std::string label = chart.lines.size() > 1 ? std::string(series.line.title()) : chart.title;
            std::string now;
            for (auto it = series.values.rbegin(); it != series.values.rend(); ++it)
                if (*it) {
                    now = series.line.text(**it);
                    break;
                }
            const std::string line = " " + cell(label, labelWidth) + " " +
                                     tui::chart(series.values, chart.ceiling, chartWidth, seams_.unicode) + " " +
                                     cellRight(text(now.empty() ? std::string(R::unknown) : now), nowWidth);
            lines.push_back({cell(line, columns), Tone::plain});
        }
    }
    return lines;
}

std::vector<Line> TerminalFrontEnd::apps(std::size_t columns, std::size_t height, std::size_t& selectedLine) const {
    std::vector<Line> lines;
    const auto& snapshot = monitor_.snapshot();
    if (!snapshot) {
        lines.push_back({cell(" " + text(DashboardFigures::waitingNote), columns), Tone::secondary});
        return lines;
    }
    const std::vector<AppGroup> listed = listedApps();
    std::string heading = " " + std::to_string(listed.size()) + " apps by " + std::string(sortTitle(sort_));
    if (editingFilter_ || !filter_.empty()) heading += "    Filter: " + filter_ + (editingFilter_ ? "_" : "");
    lines.push_back({cell(heading, columns), Tone::plain, true});
    const std::size_t memoryWidth = 11, cpuWidth = 9, diskWidth = 13, processWidth = 7, quitWidth = 6;
    const std::size_t fixed = memoryWidth + cpuWidth + diskWidth + processWidth + quitWidth + 3;
    const std::size_t nameWidth = columns > fixed + 10 ? columns - fixed : 10;
    lines.push_back(
        {cell("   " + cell("App", nameWidth - 2) + cellRight("Memory", memoryWidth) + cellRight("CPU", cpuWidth) +
                  cellRight("Disk", diskWidth) + cellRight("Procs", processWidth) + cellRight("Quit", quitWidth),
              columns),
         Tone::secondary});
    std::string selected = selectedApp_;
    if (std::none_of(listed.begin(), listed.end(), [&](const AppGroup& g) { return g.id == selected; }))
        selected = listed.empty() ? std::string() : listed.front().id;
    // Rows around the selection: as many as fit under the headings and the note.
    const std::size_t room = height > 4 ? height - 4 : 1;
    std::size_t at = 0;
    for (std::size_t i = 0; i < listed.size(); ++i)
        if (listed[i].id == selected) at = i;
    const std::size_t first = at >= room ? at - room + 1 : 0;
    for (std::size_t i = first; i < listed.size() && i < first + room; ++i) {
        const AppGroup& group = listed[i];
        const TerminalQuit::Plan plan =
            TerminalQuit::plan(group, seams_.uid, seams_.protectedPids, seams_.lookup, seams_.inOwnSession);
        const std::string line = "   " + cell(text(group.name), nameWidth - 2) +
                                 cellRight(ByteFormat::memory(group.footprint), memoryWidth) +
                                 cellRight(R::processPercent(group.cpuPercent), cpuWidth) +
                                 cellRight(text(ByteFormat::rate(group.diskTotalPerSecond())), diskWidth) +
                                 cellRight(std::to_string(group.pids.size()), processWidth) +
                                 cellRight(plan.allowed() ? "x" : "", quitWidth);
        const bool isSelected = group.id == selected;
        if (isSelected) selectedLine = lines.size();
        lines.push_back({cell(line, columns), Tone::plain, false, isSelected});
    }
    const std::string note = DashboardFigures::hiddenProcessNote(snapshot->hiddenProcessCount);
    if (!note.empty()) lines.push_back({cell(" " + text(note), columns), Tone::secondary});
    return lines;
}

std::vector<Line> TerminalFrontEnd::cleanup(std::size_t columns, std::size_t& selectedLine) const {
    std::vector<Line> lines;
    const CleanupScreen s = presenter_.screen();
    const auto paragraph = [&](std::string_view body, Tone tone, std::size_t indent) {
        for (const std::string& line : wrap(text(body), columns - indent))
            lines.push_back({cell(pad(indent) + line, columns), tone});
    };
    lines.push_back({cell(" " + text(s.tagline), columns), Tone::secondary});
    if (s.fullDiskAccess.visible) paragraph(s.fullDiskAccess.text, Tone::warning, 1);
    lines.push_back({pad(columns)});
    switch (s.step.value) {
    case CleanupPhase::idle:
        lines.push_back({cell(" " + text(s.idle.heading), columns), Tone::plain, true});
        for (const CleanupScreen::Group& group : s.idle.groups) {
            lines.push_back({cell("   " + text(group.title), columns), Tone::plain, true});
            paragraph(group.body, Tone::secondary, 5);
        }
        if (!s.idle.note.empty()) paragraph(s.idle.note, Tone::secondary, 1);
        lines.push_back({pad(columns)});
        lines.push_back({cell(" m  " + text(s.idle.measure.title), columns)});
        break;
    case CleanupPhase::measuring:
    case CleanupPhase::scanning:
    case CleanupPhase::cleaning: {
        lines.push_back({cell(" " + text(s.busy.line), columns)});
        const std::size_t width = columns > 20 ? columns - 20 : 10;
        if (s.busy.total > 0) {
            const double fraction = static_cast<double>(s.busy.completed) / static_cast<double>(s.busy.total);
            lines.push_back({cell(" " + bar(fraction, width, seams_.unicode) + " " + std::to_string(s.busy.completed) +
                                      "/" + std::to_string(s.busy.total),
                                  columns)});
        } else {
            lines.push_back({cell(" " + text(s.busy.progressLabel) + text("\u2026"), columns), Tone::secondary});
        }
        lines.push_back({pad(columns)});
        lines.push_back({cell(" c  " + text(s.busy.cancel.title), columns)});
        break;
    }
    case CleanupPhase::ready: {
        const CleanupScreen::Ready& r = s.ready;
        paragraph(r.space, Tone::secondary, 1);
        if (!r.home.empty()) paragraph(r.home, Tone::secondary, 1);
        lines.push_back({pad(columns)});
        const std::size_t sizeWidth = 12, categoryWidth = 34;
        const std::size_t titleWidth =
            columns > sizeWidth + categoryWidth + 10 ? columns - sizeWidth - categoryWidth - 8 : 10;
        for (std::size_t i = 0; i < r.rows.size(); ++i) {
            const CleanupItemRow& row = r.rows[i];
            const std::string box = row.chosen ? "[x] " : (row.include.enabled ? "[ ] " : " -  ");
            const std::string line = " " + box + cell(text(row.title), titleWidth) +
                                     cellRight(text(row.size), sizeWidth) + "  " +
                                     cell(text(row.category), categoryWidth);
            const bool isSelected = i == std::min(selectedItem_, r.rows.size() - 1);
            if (isSelected) selectedLine = lines.size();
            lines.push_back({cell(line, columns), Tone::plain, false, isSelected});
            lines.push_back({cell("       " + text(row.path), columns), Tone::secondary});
            if (!row.note.empty()) lines.push_back({cell("       " + text(row.note), columns), row.noteTone});
        }
        if (r.rows.empty()) lines.push_back({cell(" Nothing to clean was found.", columns), Tone::secondary});
        lines.push_back({pad(columns)});
        if (r.modesEnabled) {
            std::string modes = " " + text(r.modeTitle) + " ";
            for (const CleanupScreen::ModeOption& option : r.modes)
                modes += (option.chosen ? " (*) " : " ( ) ") + text(option.choose.title);
            lines.push_back({cell(modes + "    d  switch", columns)});
            if (!r.modeNote.empty()) paragraph(r.modeNote, Tone::secondary, 1);
        }
        lines.push_back({cell(" " + text(r.total), columns), Tone::plain, true});
        lines.push_back({cell(" Enter  " + text(r.clean.title) + (r.clean.enabled ? "" : " (choose an item first)") +
                                  "    m  " + text(r.measureAgain.title),
                              columns)});
        break;
    }
    case CleanupPhase::finished: {
        const CleanupScreen::Finished& f = s.finished;
        lines.push_back({cell(" " + text(f.headline), columns), f.tone, true});
        for (const std::string& line : f.lines) paragraph(line, Tone::plain, 1);
        for (const CleanupScreen::Section& section : f.sections) {
            lines.push_back({pad(columns)});
            lines.push_back({cell(" " + text(section.title), columns), Tone::plain, true});
            if (section.entries.empty()) lines.push_back({cell("   " + text(section.empty), columns), Tone::secondary});
            for (const CleanupScreen::Entry& entry : section.entries) {
                lines.push_back({cell("   " + text(entry.text), columns), entry.tone});
                if (!entry.path.empty()) lines.push_back({cell("     " + text(entry.path), columns), Tone::secondary});
            }
        }
        lines.push_back({pad(columns)});
        lines.push_back({cell(" e  " + text(f.exportMarkdown.title) + " + JSON    r  " + text(f.startOver.title) +
                                  "    m  Measure again",
                              columns)});
        break;
    }
    }
    return lines;
}

std::vector<Line> TerminalFrontEnd::settings(std::size_t columns, std::size_t& selectedLine) const {
    const AlertSettings& alerts = monitor_.alertSettings();
    const auto threshold = [](const std::vector<SettingChoice<std::uint64_t>>& choices, std::uint64_t value) {
        for (const auto& choice : choices)
            if (choice.value == value) return choice.title;
        return std::to_string(value);
    };
    const auto box = [](bool on) { return std::string(on ? "[x] " : "[ ] "); };
    const std::vector<std::string> rows{
        box(alerts.memoryPressureEnabled) + std::string(pressureAlertTitle),
        box(alerts.lowDiskEnabled) + std::string(lowDiskAlertTitle),
        "    " + std::string(lowDiskThresholdTitle) + ": " +
            threshold(SettingsChoices::lowDiskThresholds(alerts.lowDiskThreshold), alerts.lowDiskThreshold),
        box(alerts.heavyAppEnabled) + std::string(heavyAppAlertTitle),
        "    " + std::string(heavyAppThresholdTitle) + ": " +
            threshold(SettingsChoices::heavyAppThresholds(alerts.heavyAppThreshold), alerts.heavyAppThreshold),
    };
    std::vector<Line> lines;
    lines.push_back({cell(" Alerts", columns), Tone::plain, true});
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const bool isSelected = i == selectedSetting_;
        if (isSelected) selectedLine = lines.size();
        lines.push_back({cell(" " + rows[i], columns), Tone::plain, false, isSelected});
    }
    lines.push_back({pad(columns)});
    for (const std::string& line : wrap(text(SettingsChoices::alertsNote), columns - 2))
        lines.push_back({cell(" " + line, columns), Tone::secondary});
    lines.push_back({pad(columns)});
    lines.push_back(
        {cell(" The delete mode is chosen for each clean on the Cleanup page (d).", columns), Tone::secondary});
    return lines;
}

std::vector<Line> TerminalFrontEnd::suite(std::size_t columns) const {
    namespace S = kestrow::suite;
    std::vector<Line> lines;
    const SuiteView view = seams_.suite ? seams_.suite() : SuiteView{};
    lines.push_back({cell(" " + std::string(S::SuiteFormat::itemLabel), columns), Tone::plain, true});
    if (!view.active) {
        for (const std::string& line : wrap(suiteInactiveNote, columns - 2))
            lines.push_back({cell(" " + line, columns), Tone::secondary});
        return lines;
    }
    // The rows the shared menu bar item's popover lists, from its presenter: a member's level glyph,
    // name and values, then each value on a line of its own, as the expanded floating bar shows them.
    const S::SuitePopoverScreen popover = S::SuiteScreens::popover(view.rows, false, false, S::NumberLocale{});
    const std::size_t nameWidth = 16;
    for (const S::SuiteMemberRow& member : popover.members) {
        const S::SuiteRowLine& row = member.line;
        std::string glyph = "-";
        Tone tone = Tone::secondary;
        if (row.running && row.level == S::GlanceLevel::alert) glyph = "!!", tone = Tone::failure;
        else if (row.running && row.level == S::GlanceLevel::notice) glyph = "!", tone = Tone::warning;
        else if (row.running) glyph = seams_.unicode ? "\u2713" : "ok", tone = Tone::plain;
        lines.push_back(
            {cell("  " + cellRight(glyph, 2) + " " + cell(text(row.name), nameWidth) + " " + text(row.values), columns),
             tone});
        for (const S::SuiteValueLine& value : member.values)
            lines.push_back(
                {cell("       " + cell(text(value.label), nameWidth - 2) + " " + text(value.value), columns),
                 value.level == S::GlanceLevel::ok      ? Tone::secondary
                 : value.level == S::GlanceLevel::alert ? Tone::failure
                                                        : Tone::warning});
    }
    return lines;
}

std::vector<Line> TerminalFrontEnd::help(std::size_t columns) const {
    std::vector<Line> lines;
    lines.push_back({cell(" Keys on the " + std::string(pageTitles[static_cast<int>(page_)]) + " page", columns),
                     Tone::plain, true});
    for (const KeyHint& hint : helpHints(page_))
        lines.push_back({cell("   " + cell(text(hint.keys), 26) + text(hint.what), columns)});
    lines.push_back({pad(columns)});
    for (const std::string& line :
         wrap("Alerts only inform. They never clean or quit anything. An app is only ever asked to quit "
              "(SIGTERM), never killed; this program, the terminal it runs in and system processes are never "
              "offered. Personal items go to the Trash, never for good.",
              columns - 2))
        lines.push_back({cell(" " + line, columns), Tone::secondary});
    return lines;
}

std::vector<Line> TerminalFrontEnd::footer(std::size_t columns) const {
    std::string keys;
    for (const KeyHint& hint : footerHints(context())) keys += " " + text(hint.keys) + " " + hint.what + " ";
    std::vector<Line> lines;
    lines.push_back({cell(" " + text(status_), columns), status_.empty() ? Tone::secondary : statusTone_});
    lines.push_back({cell(keys, columns), Tone::plain, false, true});
    return lines;
}

void TerminalFrontEnd::overlay(std::vector<Line>& lines, std::size_t columns) const {
    if (!dialog_) return;
    const std::size_t width = std::min<std::size_t>(columns - 4, 72);
    const std::size_t left = (columns - width) / 2;
    std::vector<std::string> body;
    body.push_back(text(dialog_->title));
    body.emplace_back();
    for (const std::string& line : wrap(text(dialog_->message), width - 4)) body.push_back(line);
    body.emplace_back();
    std::string buttons = "Enter  " + text(dialog_->confirm);
    if (!dialog_->cancel.empty()) buttons += "     Esc  " + text(dialog_->cancel);
    body.push_back(buttons);
    const bool u = seams_.unicode;
    const std::string edge = u ? "\u2502" : "|";
    std::string rule;
    for (std::size_t i = 2; i < width; ++i) rule += u ? "\u2500" : "-";
    std::vector<std::string> box{(u ? "\u250C" : "+") + rule + (u ? "\u2510" : "+")};
    for (const std::string& line : body) box.push_back(edge + " " + cell(line, width - 4) + " " + edge);
    box.push_back((u ? "\u2514" : "+") + rule + (u ? "\u2518" : "+"));
    const std::size_t top = lines.size() > box.size() ? (lines.size() - box.size()) / 2 : 0;
    for (std::size_t i = 0; i < box.size() && top + i < lines.size(); ++i) {
        lines[top + i] =
            Line{pad(left) + cell(box[i], width) + pad(columns - left - width), Tone::plain, i == 1, false};
    }
}

Frame TerminalFrontEnd::frame(std::size_t rows, std::size_t columns) const {
    Frame frame;
    if (columns < minimumColumns || rows < minimumRows) {
        const std::vector<std::string> message = wrap(text(tooSmallText(columns, rows)), columns);
        const std::size_t top = rows > message.size() ? (rows - message.size()) / 2 : 0;
        for (std::size_t i = 0; i < rows; ++i)
            frame.lines.push_back(
                {i >= top && i - top < message.size() ? cell(message[i - top], columns) : pad(columns)});
        return frame;
    }
    std::vector<Line> head = header(columns);
    std::vector<Line> foot = footer(columns);
    const std::size_t height = rows - head.size() - foot.size();
    std::size_t selectedLine = 0;
    std::vector<Line> body;
    if (help_) body = help(columns);
    else if (page_ == Page::overview) body = overview(columns);
    else if (page_ == Page::apps) body = apps(columns, height, selectedLine);
    else if (page_ == Page::settings) body = settings(columns, selectedLine);
    else if (page_ == Page::suite) body = suite(columns);
    else body = cleanup(columns, selectedLine);
    // A body taller than its room scrolls to keep the selection in view.
    std::size_t first = 0;
    if (body.size() > height && selectedLine >= height) first = std::min(selectedLine + 3, body.size()) - height;
    std::vector<Line> shown(body.begin() + static_cast<long>(std::min(first, body.size())),
                            body.begin() + static_cast<long>(std::min(first + height, body.size())));
    while (shown.size() < height) shown.push_back({pad(columns)});
    overlay(shown, columns);
    frame.lines = std::move(head);
    frame.lines.insert(frame.lines.end(), shown.begin(), shown.end());
    frame.lines.insert(frame.lines.end(), foot.begin(), foot.end());
    // A terminal without UTF-8 gets every symbol, block and the ellipses of cut text in ASCII.
    if (!seams_.unicode)
        for (Line& line : frame.lines) line.text = fit(ascii(line.text), columns, ".");
    return frame;
}

}  // namespace brimlet::tui
