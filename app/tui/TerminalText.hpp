// Text for a character-cell terminal: how many cells a UTF-8 string takes, fitting and wrapping it
// to a width, the ASCII spelling of the few symbols the screens use (for terminals whose locale is
// not UTF-8), and the block characters of charts and progress bars. Pure functions, so every rule
// of the terminal front end's layout can be tested without a terminal.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimlet::tui {

// The cells a string takes: wide (East Asian, emoji) characters two, combining marks none, others
// one. Bytes that are not UTF-8 count one cell each (they are drawn as a replacement).
std::size_t displayWidth(std::string_view utf8);

// Exactly `width` cells: cut with an ellipsis (one cell) when longer, padded with spaces when
// shorter. A wide character that would straddle the edge is replaced by a space.
std::string fit(std::string_view utf8, std::size_t width, std::string_view ellipsis = "\u2026");
// The same, right-aligned: numbers line up on their last digit.
std::string fitRight(std::string_view utf8, std::size_t width, std::string_view ellipsis = "\u2026");

// Lines of at most `width` cells, broken at spaces where possible; explicit newlines kept. A word
// longer than the width is cut across lines.
std::vector<std::string> wrap(std::string_view utf8, std::size_t width);

// The same text in ASCII: dashes, ellipses, arrows, bullets, blocks and quotes spelled with their
// nearest ASCII form; any other non-ASCII character as "?".
std::string ascii(std::string_view utf8);

// A chart of one series, one cell per column, newest on the right: the last `width` values (the
// older ones dropped) scaled against `ceiling` to eight block heights; an unknown value is a blank.
// Without Unicode the heights are drawn with " .:-=+*#".
std::string chart(const std::vector<std::optional<double>>& values, double ceiling, std::size_t width, bool unicode);

// A bar of `width` cells filled to `fraction` (0…1), in eighths of a cell with Unicode, in whole
// "#" cells otherwise; the rest is light shade, or ".".
std::string bar(double fraction, std::size_t width, bool unicode);

// Whether the terminal's character set (nl_langinfo(CODESET)) is UTF-8.
bool isUTF8Codeset(std::string_view codeset);
// Color unless NO_COLOR is set to anything but the empty string, and only where the terminal has colors.
bool wantsColor(const char* noColorVariable, bool terminalHasColors);

}  // namespace brimlet::tui
