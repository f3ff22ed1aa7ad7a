// Lower-casing beyond ASCII, for comparisons that must ignore case the way the platform's own
// lower-casing does (macOS's default file system ignores case, in every script). Covers Basic Latin,
// the Latin-1 Supplement, Latin Extended-A, Greek and Coptic, and Cyrillic with its Supplement;
// other characters are left as they are.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kestrow {

// One scalar from well-formed UTF-8 at the front of `text`, with its length in bytes; none when the
// bytes there are ill-formed (a stray continuation, a cut, overlong or surrogate sequence).
std::optional<std::pair<char32_t, std::size_t>> decodeUtf8(std::string_view text);
// Appends the UTF-8 encoding of a scalar.
void appendUtf8(char32_t scalar, std::string& out);

// The simple lower-case mapping of one scalar (U+0130 "İ" gives "i"; see lowercased for the rest).
char32_t lowercase(char32_t scalar);

// The text with every covered letter lower-cased. "İ" becomes "i" followed by U+0307, as the full
// mapping has it. Bytes that are not well-formed UTF-8 are kept as they are.
std::string lowercased(std::string_view utf8);

// A form of the text for comparisons that ignore case: lower-cased, and a final sigma "ς" written as
// "σ", since which of the two a lower-casing writes depends on the letters around it. Texts that
// differ only in case have equal keys, and a key's prefix is the key of the text's prefix.
std::string caseInsensitiveKey(std::string_view utf8);

}  // namespace kestrow
