// The terminal front end's whole model: which page is shown, the selection, the apps table's sort
// and filter, the open dialog and help, what each key does, and every page laid out as lines of
// text of the terminal's exact width. The monitor and cleanup presenters word everything the pages
// say; this class only arranges it in rows and turns keys into the presenters' actions. The curses
// layer draws the lines and hands over the keys; it decides nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "TerminalQuit.hpp"
#include "app/screens/CleanupScreen.hpp"
#include "app/screens/MonitorScreens.hpp"
#include "app/screens/ScreenParts.hpp"
#include "app/stores/CleanupStore.hpp"
#include "app/stores/MonitorStore.hpp"
#include "suite/protocol/SuiteState.hpp"

namespace brimlet::tui {

// Keys as the front end sees them: characters as their code points, the rest above Unicode's range.
namespace Key {
inline constexpr int enter = '\n';
inline constexpr int escape = 27;
inline constexpr int tab = '\t';
inline constexpr int up = 0x110001, down = 0x110002, left = 0x110003, right = 0x110004, pageUp = 0x110005,
                     pageDown = 0x110006, home = 0x110007, end = 0x110008, backspace = 0x110009, backTab = 0x11000A;
}  // namespace Key

enum class Page { overview, apps, cleanup, settings, suite };
inline constexpr int pageCount = 5;

enum class Command {
    none,
    quit,
    help,
    showOverview,
    showApps,
    showCleanup,
    showSettings,
    showSuite,
    nextPage,
    previousPage,
    up,
    down,
    pageUp,
    pageDown,
    top,
    bottom,
    sortNext,
    filter,
    askQuitApp,
    measure,
    cancel,
    toggleItem,
    toggleMode,
    clean,
    startOver,
    exportReport,
    confirm,
    dismiss,
};

// What the keys mean depends on what is in front of the user.
struct KeyContext {
    Page page = Page::overview;
    bool dialog = false;         // a question waits for its answer
    bool help = false;           // the help is shown
    bool editingFilter = false;  // typing the apps filter
    bool operator==(const KeyContext&) const = default;
};

Command commandFor(int key, const KeyContext& context);

// A key and what it does, as the footer and the help list them.
struct KeyHint {
    std::string keys;
    std::string what;
    bool operator==(const KeyHint&) const = default;
};
std::vector<KeyHint> footerHints(const KeyContext& context);
std::vector<KeyHint> helpHints(Page page);

enum class AppSort { memory, cpu, disk, name };
std::string_view sortTitle(AppSort sort);
AppSort nextSort(AppSort sort);
// The groups to list: those whose name contains `filter` (ignoring ASCII case), in the sort's order
// (largest first; names A to Z), ties by footprint, then by id.
std::vector<AppGroup> sortedApps(const std::vector<AppGroup>& apps, AppSort sort, std::string_view filter);

struct Line {
    std::string text;  // exactly the frame's width in cells
    screens::Tone tone = screens::Tone::plain;
    bool strong = false;    // headings and the page's tab
    bool selected = false;  // the selected row: drawn reversed
    bool operator==(const Line&) const = default;
};

struct Frame {
    std::vector<Line> lines;  // exactly the terminal's height
};

// A frame too small to lay out: the one line it shows says how large it must be.
std::string tooSmallText(std::size_t columns, std::size_t rows);

// What the suite page shows: whether the suite is active, and its members as the participant
// reports them (running with their records, or not running).
struct SuiteView {
    bool active = false;
    std::vector<kestrow::suite::SuiteRow> rows;
};

struct FrontEndSeams {
    TerminalQuit::ProcessLookup lookup;           // a process's owner and parent
    TerminalQuit::SessionCheck inOwnSession;      // run as root: which root processes are the user's
    std::uint32_t uid = 0;                        // this user
    std::vector<std::int32_t> protectedPids;      // this program and the terminal above it
    std::function<bool(std::int32_t)> terminate;  // the polite signal to one process
    std::string exportFolder;                     // where reports are written
    bool unicode = true;                          // blocks and symbols, or their ASCII forms
    std::function<SuiteView()> suite;             // empty: this program takes no part in a suite
};

class TerminalFrontEnd {
public:
    static constexpr std::size_t minimumColumns = 80, minimumRows = 24;

    TerminalFrontEnd(MonitorStore& monitor, CleanupStore& cleanup, FrontEndSeams seams);

    // Handles one key; false once the user asked to leave.
    bool press(int key);
    Frame frame(std::size_t rows, std::size_t columns) const;

    Page page() const { return page_; }
    KeyContext context() const;
    bool hasDialog() const { return dialog_.has_value(); }
    const std::string& status() const { return status_; }
    // A line of news for the status bar (an alert, an export written); replaces the previous one.
    void setStatus(std::string text, screens::Tone tone = screens::Tone::plain);

private:
    struct Ask {
        std::string title;
        std::string message;
        std::string confirm;  // the first button's title
        std::string cancel;   // the last one's; empty for a message with one button
        std::function<void()> onConfirm;
    };

    std::vector<Line> header(std::size_t columns) const;
    std::vector<Line> overview(std::size_t columns) const;
    std::vector<Line> apps(std::size_t columns, std::size_t height, std::size_t& selectedLine) const;
    std::vector<Line> cleanup(std::size_t columns, std::size_t& selectedLine) const;
    std::vector<Line> settings(std::size_t columns, std::size_t& selectedLine) const;
    std::vector<Line> suite(std::size_t columns) const;
    void changeSetting();
    std::vector<Line> help(std::size_t columns) const;
    std::vector<Line> footer(std::size_t columns) const;
    void overlay(std::vector<Line>& lines, std::size_t columns) const;

    std::vector<AppGroup> listedApps() const;
    std::vector<std::string> cleanupIds() const;
    void move(int by);
    void askQuitApp();
    void cleanupAction(CleanupCommand command, const std::string& target = {});
    void showCleanupDialog(const CleanupDialog& dialog);
    std::string text(std::string_view utf8) const;
    std::string cell(std::string_view utf8, std::size_t width) const;
    std::string cellRight(std::string_view utf8, std::size_t width) const;

    MonitorStore& monitor_;
    CleanupStore& cleanup_;
    CleanupPresenter presenter_;
    FrontEndSeams seams_;

    Page page_ = Page::overview;
    bool help_ = false;
    bool editingFilter_ = false;
    std::optional<Ask> dialog_;
    AppSort sort_ = AppSort::memory;
    std::string filter_;
    std::string selectedApp_;  // by id, so the selection stays on its app as the order changes
    std::size_t selectedItem_ = 0;
    std::size_t selectedSetting_ = 0;
    std::string status_;
    screens::Tone statusTone_ = screens::Tone::plain;
};

}  // namespace brimlet::tui
