#include "UnicodeCase.hpp"

#include <optional>

namespace kestrow {

namespace {

// In a run of pairs starting at `first`, each upper-case letter is followed by its lower-case one.
constexpr bool upperOfPair(char32_t c, char32_t first, char32_t last) {
    return c >= first && c <= last && (c - first) % 2 == 0;
}

char32_t latin(char32_t c) {
    if (c >= U'A' && c <= U'Z') return c + 0x20;
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 0x20;  // À–Þ, not ×
    if (c == 0x130) return U'i';                               // İ (its full mapping adds U+0307)
    if (c == 0x178) return 0xFF;                               // Ÿ → ÿ
    // Latin Extended-A pairs: Ā/ā … Ķ/ķ and Ŋ/ŋ … Ŷ/ŷ start on even points, Ĺ/ĺ … Ň/ň and Ź/ź … Ž/ž
    // on odd ones; ı, ĸ, ŉ and ſ have no upper-case partner here.
    if (upperOfPair(c, 0x100, 0x12F) || upperOfPair(c, 0x132, 0x137) || upperOfPair(c, 0x14A, 0x177)) return c + 1;
    if (upperOfPair(c, 0x139, 0x148) || upperOfPair(c, 0x179, 0x17E)) return c + 1;
    return c;
}

char32_t greek(char32_t c) {
    if (upperOfPair(c, 0x370, 0x373) || c == 0x376) return c + 1;  // Ͱ, Ͳ, Ͷ
    if (c == 0x37F) return 0x3F3;                                  // Ϳ → ϳ
    if (c == 0x386) return 0x3AC;                                  // Ά
    if (c >= 0x388 && c <= 0x38A) return c + 0x25;                 // Έ Ή Ί
    if (c == 0x38C) return 0x3CC;                                  // Ό
    if (c == 0x38E || c == 0x38F) return c + 0x3F;                 // Ύ Ώ
    if (c >= 0x391 && c <= 0x3AB && c != 0x3A2) return c + 0x20;   // Α–Ω, Ϊ, Ϋ
    if (c == 0x3CF) return 0x3D7;                                  // Ϗ → ϗ
    if (upperOfPair(c, 0x3D8, 0x3EF)) return c + 1;                // archaic letters and Coptic
    if (c == 0x3F4) return 0x3B8;                                  // ϴ → θ
    if (c == 0x3F7 || c == 0x3FA) return c + 1;                    // Ϸ, Ϻ
    if (c == 0x3F9) return 0x3F2;                                  // Ϲ → ϲ
    if (c >= 0x3FD && c <= 0x3FF) return c - 0x82;                 // Ͻ Ͼ Ͽ → ͻ ͼ ͽ
    return c;
}

char32_t cyrillic(char32_t c) {
    if (c >= 0x400 && c <= 0x40F) return c + 0x50;  // Ѐ–Џ
    if (c >= 0x410 && c <= 0x42F) return c + 0x20;  // А–Я
    if (upperOfPair(c, 0x460, 0x481) || upperOfPair(c, 0x48A, 0x4BF)) return c + 1;
    if (c == 0x4C0) return 0x4CF;  // Ӏ → ӏ
    if (upperOfPair(c, 0x4C1, 0x4CE)) return c + 1;
    if (upperOfPair(c, 0x4D0, 0x52F)) return c + 1;  // Ӑ … and the Cyrillic Supplement
    return c;
}

}  // namespace

std::optional<std::pair<char32_t, std::size_t>> decodeUtf8(std::string_view text) {
    if (text.empty()) return std::nullopt;
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return std::pair<char32_t, std::size_t>{lead, 1};
    std::size_t length;
    char32_t scalar, minimum;
    if ((lead & 0xE0) == 0xC0) length = 2, scalar = lead & 0x1F, minimum = 0x80;
    else if ((lead & 0xF0) == 0xE0) length = 3, scalar = lead & 0x0F, minimum = 0x800;
    else if ((lead & 0xF8) == 0xF0) length = 4, scalar = lead & 0x07, minimum = 0x10000;
    else return std::nullopt;
    if (text.size() < length) return std::nullopt;
    for (std::size_t k = 1; k < length; ++k) {
        if ((byte(k) & 0xC0) != 0x80) return std::nullopt;
        scalar = (scalar << 6) | (byte(k) & 0x3F);
    }
    if (scalar < minimum || scalar > 0x10FFFF || (scalar >= 0xD800 && scalar <= 0xDFFF)) return std::nullopt;
    return std::pair<char32_t, std::size_t>{scalar, length};
}

void appendUtf8(char32_t c, std::string& out) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

namespace {

std::string lowercasedWith(std::string_view text, bool foldFinalSigma) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const auto decoded = decodeUtf8(text);
        if (!decoded) {
            out += text.front();
            text.remove_prefix(1);
            continue;
        }
        const auto [scalar, length] = *decoded;
        text.remove_prefix(length);
        if (scalar == 0x130) {
            out += 'i';
            appendUtf8(0x307, out);
            continue;
        }
        const char32_t lower = lowercase(scalar);
        appendUtf8(foldFinalSigma && lower == 0x3C2 ? 0x3C3 : lower, out);
    }
    return out;
}

}  // namespace

char32_t lowercase(char32_t c) {
    if (c < 0x250) return latin(c);
    if (c >= 0x370 && c < 0x400) return greek(c);
    if (c >= 0x400 && c < 0x530) return cyrillic(c);
    return c;
}

std::string lowercased(std::string_view utf8) { return lowercasedWith(utf8, false); }

std::string caseInsensitiveKey(std::string_view utf8) { return lowercasedWith(utf8, true); }

}  // namespace kestrow
