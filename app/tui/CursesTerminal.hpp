// The terminal itself, through ncurses' wide-character interface: full screen on the alternate
// screen, keys without echo, colors where wanted. It draws finished lines and reads keys; what the
// lines say and what the keys do is the front end's.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "TerminalFrontEnd.hpp"

namespace brimlet::tui {

class CursesTerminal {
public:
    // None when standard input or output is not a terminal, or curses cannot start on it.
    static std::unique_ptr<CursesTerminal> open();
    ~CursesTerminal();
    CursesTerminal(const CursesTerminal&) = delete;
    CursesTerminal& operator=(const CursesTerminal&) = delete;

    bool unicode() const { return unicode_; }
    std::size_t rows() const;
    std::size_t columns() const;
    // After the terminal changed size: asks the kernel for the new size and tells curses.
    void resized();
    void draw(const Frame& frame);
    // Every key waiting now, translated to the front end's keys; never blocks.
    std::vector<int> readKeys();

private:
    CursesTerminal() = default;
    bool unicode_ = true;
    bool color_ = false;
};

}  // namespace brimlet::tui
