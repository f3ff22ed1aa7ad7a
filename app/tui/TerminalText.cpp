#include "TerminalText.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "base/Rounding.hpp"
#include "base/UnicodeCase.hpp"

namespace brimlet::tui {

namespace {

constexpr char32_t invalid = 0xFFFD;

// One character of `text` from `at`: its code point and its length in bytes. A byte that starts no
// valid sequence is one invalid character of one byte.
std::pair<char32_t, std::size_t> decode(std::string_view text, std::size_t at) {
    if (const auto decoded = kestrow::decodeUtf8(text.substr(at))) return *decoded;
    return {invalid, 1};
}

std::size_t cells(char32_t c) {
    if (c == 0) return 0;
    if ((c >= 0x0300 && c <= 0x036F) || (c >= 0x1AB0 && c <= 0x1AFF) || (c >= 0x20D0 && c <= 0x20FF) ||
        (c >= 0xFE00 && c <= 0xFE0F) || c == 0x200B || c == 0x200D)
        return 0;
    if ((c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0x303E) || (c >= 0x3041 && c <= 0x33FF) ||
        (c >= 0x3400 && c <= 0x4DBF) || (c >= 0x4E00 && c <= 0x9FFF) || (c >= 0xA000 && c <= 0xA4CF) ||
        (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xF900 && c <= 0xFAFF) || (c >= 0xFE30 && c <= 0xFE4F) ||
        (c >= 0xFF00 && c <= 0xFF60) || (c >= 0xFFE0 && c <= 0xFFE6) || (c >= 0x1F300 && c <= 0x1F64F) ||
        (c >= 0x1F900 && c <= 0x1F9FF) || (c >= 0x20000 && c <= 0x3FFFD))
        return 2;
    return 1;
}

// The longest prefix of at most `width` cells, and its cells.
std::pair<std::string, std::size_t> prefix(std::string_view text, std::size_t width) {
    std::string out;
    std::size_t used = 0;
    for (std::size_t at = 0; at < text.size();) {
        const auto [code, length] = decode(text, at);
        const std::size_t w = cells(code);
        if (used + w > width) break;
        if (code == invalid) kestrow::appendUtf8(invalid, out);
        else out.append(text.substr(at, length));
        used += w;
        at += length;
    }
    return {out, used};
}

}  // namespace

std::size_t displayWidth(std::string_view utf8) {
    std::size_t width = 0;
    for (std::size_t at = 0; at < utf8.size();) {
        const auto [code, length] = decode(utf8, at);
        width += cells(code);
        at += length;
    }
    return width;
}

std::string fit(std::string_view utf8, std::size_t width, std::string_view ellipsis) {
    if (width == 0) return {};
    const std::size_t full = displayWidth(utf8);
    if (full <= width) {
        auto [text, used] = prefix(utf8, width);
        return text + std::string(width - used, ' ');
    }
    auto [text, used] = prefix(utf8, width - 1);
    text += ellipsis;
    return text + std::string(width - 1 - used, ' ');
}

std::string fitRight(std::string_view utf8, std::size_t width, std::string_view ellipsis) {
    const std::size_t full = displayWidth(utf8);
    if (full >= width) return fit(utf8, width, ellipsis);
    return std::string(width - full, ' ') + std::string(prefix(utf8, full).first);
}

std::vector<std::string> wrap(std::string_view utf8, std::size_t width) {
    std::vector<std::string> lines;
    if (width == 0) return lines;
    std::size_t start = 0;
    while (start <= utf8.size()) {
        const std::size_t end = std::min(utf8.find('\n', start), utf8.size());
        std::string_view paragraph = utf8.substr(start, end - start);
        if (paragraph.empty()) lines.emplace_back();
        while (!paragraph.empty()) {
            if (displayWidth(paragraph) <= width) {
                lines.emplace_back(paragraph);
                break;
            }
            // The last space that keeps the line within the width; else cut the word.
            std::size_t used = 0, cut = 0, lastSpace = std::string_view::npos;
            for (std::size_t at = 0; at < paragraph.size();) {
                const auto [code, length] = decode(paragraph, at);
                if (used + cells(code) > width) break;
                if (code == ' ') lastSpace = at;
                used += cells(code);
                at += length;
                cut = at;
            }
            if (cut < paragraph.size() && paragraph[cut] == ' ') lastSpace = cut;  // the line ends at a word's end
            if (cut == 0) cut = decode(paragraph, 0).second;                       // a character wider than the line
            if (lastSpace != std::string_view::npos && lastSpace > 0) {
                lines.emplace_back(paragraph.substr(0, lastSpace));
                paragraph.remove_prefix(lastSpace + 1);
            } else {
                lines.emplace_back(paragraph.substr(0, cut));
                paragraph.remove_prefix(cut);
            }
        }
        if (end == utf8.size()) break;
        start = end + 1;
    }
    return lines;
}

std::string ascii(std::string_view utf8) {
    std::string out;
    for (std::size_t at = 0; at < utf8.size();) {
        const auto [code, length] = decode(utf8, at);
        at += length;
        if (code < 0x80) {
            out += static_cast<char>(code);
            continue;
        }
        switch (code) {
        case 0x2014:
        case 0x2013:
        case 0x2012:
        case 0x2212:
        case 0x2500: out += '-'; break;
        case 0x2026: out += "..."; break;
        case 0x00B7:
        case 0x2022:
        case 0x25CF: out += '*'; break;
        case 0x2191: out += '^'; break;
        case 0x2193: out += 'v'; break;
        case 0x2192: out += "->"; break;
        case 0x2190: out += "<-"; break;
        case 0x2018:
        case 0x2019: out += '\''; break;
        case 0x201C:
        case 0x201D: out += '"'; break;
        case 0x00D7: out += 'x'; break;
        case 0x00A0:
        case 0x2009:
        case 0x202F: out += ' '; break;
        case 0x2502: out += '|'; break;
        case 0x250C:
        case 0x2510:
        case 0x2514:
        case 0x2518: out += '+'; break;
        case 0x2591:
        case 0x2592: out += '.'; break;
        case 0x2581:
        case 0x2582:
        case 0x2583:
        case 0x2584:
        case 0x2585:
        case 0x2586:
        case 0x2587:
        case 0x2588:
        case 0x2589:
        case 0x258A:
        case 0x258B:
        case 0x258C:
        case 0x258D:
        case 0x258E:
        case 0x258F: out += '#'; break;
        case 0x2713:
        case 0x2714: out += 'x'; break;
        default: out += cells(code) == 2 ? "??" : (cells(code) == 0 ? "" : "?"); break;
        }
    }
    return out;
}

std::string chart(const std::vector<std::optional<double>>& values, double ceiling, std::size_t width, bool unicode) {
    static constexpr std::array<std::string_view, 9> blocks{" ",      "\u2581", "\u2582", "\u2583", "\u2584",
                                                            "\u2585", "\u2586", "\u2587", "\u2588"};
    static constexpr std::string_view plain = " .:-=+*#@";
    const std::size_t shown = std::min(width, values.size());
    std::string out(width - shown, ' ');
    const double top = ceiling > 0 ? ceiling : 1;
    for (std::size_t i = values.size() - shown; i < values.size(); ++i) {
        const auto& value = values[i];
        if (!value || !std::isfinite(*value)) {
            out += ' ';
            continue;
        }
        const double fraction = std::clamp(*value / top, 0.0, 1.0);
        // Any value above zero shows at least the lowest block, so a busy minute never reads as none.
        std::size_t level = static_cast<std::size_t>(kestrow::roundedToInteger(fraction * 8));
        if (level == 0 && *value > 0) level = 1;
        if (unicode) out += blocks[level];
        else out += plain[level];
    }
    return out;
}

std::string bar(double fraction, std::size_t width, bool unicode) {
    static constexpr std::array<std::string_view, 8> eighths{"",       "\u258F", "\u258E", "\u258D",
                                                             "\u258C", "\u258B", "\u258A", "\u2589"};
    const double f = std::isfinite(fraction) ? std::clamp(fraction, 0.0, 1.0) : 0.0;
    const auto filledEighths = static_cast<std::size_t>(std::floor(f * static_cast<double>(width) * 8 + 0.5));
    std::string out;
    if (!unicode) {
        const std::size_t full = (filledEighths + 4) / 8;
        return std::string(std::min(full, width), '#') + std::string(width - std::min(full, width), '.');
    }
    const std::size_t full = std::min(filledEighths / 8, width);
    for (std::size_t i = 0; i < full; ++i) out += "\u2588";
    std::size_t used = full;
    if (used < width && filledEighths % 8 != 0) {
        out += eighths[filledEighths % 8];
        ++used;
    }
    for (; used < width; ++used) out += "\u2591";
    return out;
}

bool isUTF8Codeset(std::string_view codeset) {
    std::string lowered;
    for (char c : codeset)
        if (c != '-' && c != '_') lowered += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    return lowered == "utf8";
}

bool wantsColor(const char* noColorVariable, bool terminalHasColors) {
    if (noColorVariable && noColorVariable[0] != '\0') return false;
    return terminalHasColors;
}

}  // namespace brimlet::tui
