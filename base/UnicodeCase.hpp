// Lower-casing beyond ASCII, for comparisons that must ignore case the way the platform's own
// lower-casing does (macOS's default file system ignores case, in every script). Covers Basic Latin,
// the Latin-1 Supplement, Latin Extended-A, Greek and Coptic, and Cyrillic with its Supplement;
// other characters are left as they are.
#pragma once

#include <string>
#include <string_view>

namespace kestrow {

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
