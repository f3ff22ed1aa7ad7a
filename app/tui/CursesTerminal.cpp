#include "CursesTerminal.hpp"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <cwchar>
#include <string>

#include "TerminalText.hpp"

// The wide-character functions (waddnwstr, wget_wch) are declared only when asked for: ncursesw
// looks at NCURSES_WIDECHAR, the Mac's ncurses 5.7 at _XOPEN_SOURCE_EXTENDED.
#ifndef NCURSES_WIDECHAR
#define NCURSES_WIDECHAR 1
#endif
#ifndef _XOPEN_SOURCE_EXTENDED
#define _XOPEN_SOURCE_EXTENDED 1
#endif
#include <curses.h>

namespace brimlet::tui {

namespace {

enum Pair : short { plainPair = 1, secondaryPair, successPair, warningPair, failurePair };

short pairFor(screens::Tone tone) {
    switch (tone) {
    case screens::Tone::plain: return plainPair;
    case screens::Tone::secondary: return secondaryPair;
    case screens::Tone::success: return successPair;
    case screens::Tone::warning: return warningPair;
    case screens::Tone::failure: return failurePair;
    }
    return plainPair;
}

int translate(wint_t key, bool function) {
    if (!function) return key == L'\r' ? Key::enter : static_cast<int>(key);
    switch (key) {
    case KEY_UP: return Key::up;
    case KEY_DOWN: return Key::down;
    case KEY_LEFT: return Key::left;
    case KEY_RIGHT: return Key::right;
    case KEY_PPAGE: return Key::pageUp;
    case KEY_NPAGE: return Key::pageDown;
    case KEY_HOME: return Key::home;
    case KEY_END: return Key::end;
    case KEY_BACKSPACE: return Key::backspace;
    case KEY_BTAB: return Key::backTab;
    case KEY_ENTER: return Key::enter;
    default: return 0;
    }
}

}  // namespace

std::unique_ptr<CursesTerminal> CursesTerminal::open() {
    if (!::isatty(STDIN_FILENO) || !::isatty(STDOUT_FILENO)) return nullptr;
    // Only the terminal's character set is taken from the environment: numbers, dates and sorting
    // everywhere else stay in the C locale's form.
    std::setlocale(LC_CTYPE, "");
    std::unique_ptr<CursesTerminal> terminal(new CursesTerminal());
    const char* codeset = ::nl_langinfo(CODESET);
    terminal->unicode_ = isUTF8Codeset(codeset ? codeset : "");
    // newterm, unlike initscr, reports a terminal it cannot drive instead of ending the process.
    if (!newterm(nullptr, stdout, stdin)) return nullptr;
    cbreak();  // Ctrl-C still interrupts: the loop stops and the app shuts down cleanly
    noecho();
    nonl();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    set_escdelay(25);
    curs_set(0);
    terminal->color_ = wantsColor(std::getenv("NO_COLOR"), has_colors());
    if (terminal->color_) {
        start_color();
        use_default_colors();
        init_pair(plainPair, -1, -1);
        init_pair(secondaryPair, COLOR_CYAN, -1);
        init_pair(successPair, COLOR_GREEN, -1);
        init_pair(warningPair, COLOR_YELLOW, -1);
        init_pair(failurePair, COLOR_RED, -1);
    }
    return terminal;
}

CursesTerminal::~CursesTerminal() { endwin(); }

std::size_t CursesTerminal::rows() const { return static_cast<std::size_t>(std::max(getmaxy(stdscr), 0)); }
std::size_t CursesTerminal::columns() const { return static_cast<std::size_t>(std::max(getmaxx(stdscr), 0)); }

void CursesTerminal::resized() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0)
        resizeterm(size.ws_row, size.ws_col);
    clearok(stdscr, TRUE);
}

void CursesTerminal::draw(const Frame& frame) {
    const int height = getmaxy(stdscr), width = getmaxx(stdscr);
    for (int row = 0; row < height && row < static_cast<int>(frame.lines.size()); ++row) {
        const Line& line = frame.lines[static_cast<std::size_t>(row)];
        attr_t attributes = A_NORMAL;
        if (line.strong) attributes |= A_BOLD;
        if (line.selected) attributes |= A_REVERSE;
        if (!color_ && line.tone == screens::Tone::secondary) attributes |= A_DIM;
        const short pair = color_ ? pairFor(line.tone) : 0;
        wattr_set(stdscr, attributes, pair, nullptr);
        // The last cell of the last row is left alone: writing it would scroll some terminals.
        const std::string& text = line.text;
        std::wstring wide(text.size() + 1, L'\0');
        std::mbstate_t state{};
        const char* source = text.c_str();
        const std::size_t converted = std::mbsrtowcs(wide.data(), &source, wide.size(), &state);
        if (converted == static_cast<std::size_t>(-1)) {
            mvwaddnstr(stdscr, row, 0, text.c_str(), width - (row == height - 1 ? 1 : 0));
        } else {
            wide.resize(converted);
            mvwaddnwstr(stdscr, row, 0, wide.c_str(), static_cast<int>(wide.size()) - (row == height - 1 ? 1 : 0));
        }
        wclrtoeol(stdscr);
    }
    wattr_set(stdscr, A_NORMAL, 0, nullptr);
    wrefresh(stdscr);
}

std::vector<int> CursesTerminal::readKeys() {
    std::vector<int> keys;
    for (;;) {
        wint_t key = 0;
        const int kind = wget_wch(stdscr, &key);
        if (kind == ERR) break;
        if (kind == KEY_CODE_YES && key == KEY_RESIZE) continue;  // the loop's own signal watch redraws
        if (const int translated = translate(key, kind == KEY_CODE_YES)) keys.push_back(translated);
    }
    return keys;
}

}  // namespace brimlet::tui
