#include <gtest/gtest.h>

#include "base/UnicodeCase.hpp"

namespace kestrow {
namespace {

TEST(UnicodeCase, LowerCasesLatinGreekAndCyrillic) {
    struct Case {
        const char* text;
        const char* lower;
    };
    const Case cases[] = {
        {"ABC xyz 09/-", "abc xyz 09/-"},
        {"ÄÖÜ ÀÉÎÕ Ø Þ × ß ÿ", "äöü àéîõ ø þ × ß ÿ"},  // × is no letter; ß and ÿ are lower already
        {"ĀĂĄĆ Ď Ę Ğ Ħ Į Ĳ Ķ ĸ", "āăąć ď ę ğ ħ į ĳ ķ ĸ"},
        {"Ĺ Ľ Ł Ń Ň ŉ Ŋ Ő Œ Ř Ś Š Ŧ Ů Ŵ Ŷ Ÿ Ź Ż Ž ſ", "ĺ ľ ł ń ň ŉ ŋ ő œ ř ś š ŧ ů ŵ ŷ ÿ ź ż ž ſ"},
        {"İstanbul ıi", "i\u0307stanbul ıi"},  // dotted capital I keeps its dot as a combining mark
        {"ΑΒΓΔ ΩΨ Ϊ Ϋ", "αβγδ ωψ ϊ ϋ"},
        {"Ά Έ Ή Ί Ό Ύ Ώ", "ά έ ή ί ό ύ ώ"},
        {"ΟΔΥΣΣΕΥΣ ς", "οδυσσευσ ς"},  // simple mapping: capital sigma is always σ
        {"Ϙ Ϣ Ϯ ϴ Ϲ Ϸ Ͻ Ͱ Ͷ Ϳ Ϗ", "ϙ ϣ ϯ θ ϲ ϸ ͻ ͱ ͷ ϳ ϗ"},
        {"МОСКВА Ёж Ђ Џ", "москва ёж ђ џ"},
        {"Ѡ Ҁ Ҋ Ҿ Ӏ Ӂ Ӎ Ӑ Ӹ Ԁ Ԯ", "ѡ ҁ ҋ ҿ ӏ ӂ ӎ ӑ ӹ ԁ ԯ"},
        {"日本 😀 Ա", "日本 😀 Ա"},  // scripts not covered stay as they are
        {"A\xFF"
         "B\xC3",
         "a\xFF"
         "b\xC3"},  // bytes that are not UTF-8 are kept
    };
    for (const Case& c : cases) EXPECT_EQ(lowercased(c.text), c.lower) << c.text;

    // Lower-casing twice changes nothing, for every scalar in the covered blocks.
    for (char32_t scalar = 0; scalar < 0x530; ++scalar) EXPECT_EQ(lowercase(lowercase(scalar)), lowercase(scalar));
    EXPECT_EQ(lowercase(0x130), U'i');
}

TEST(UnicodeCase, KeysIgnoreCaseAndTheFinalSigma) {
    EXPECT_EQ(caseInsensitiveKey("/Users/JÜRGEN"), caseInsensitiveKey("/users/jürgen"));
    EXPECT_EQ(caseInsensitiveKey("ΟΔΥΣΣΕΥΣ"), caseInsensitiveKey("Οδυσσευς"));
    EXPECT_EQ(caseInsensitiveKey("Ирина"), caseInsensitiveKey("ИРИНА"));
    EXPECT_NE(caseInsensitiveKey("Jurgen"), caseInsensitiveKey("Jürgen"));
}

}  // namespace
}  // namespace kestrow
