// Track languages and names as the movie carries them: Matroska and BCP 47 codes to ISO 639-2/T,
// the mdhd packing, and names kept to whole, valid UTF-8 characters.
#include "engine/language.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

TEST(Language, MatroskaAndBcp47ValuesBecomeIso639T)
{
    const std::pair<std::string, std::string> iso639[] = {
        {"eng", "eng"},     {"ger", "deu"}, {"FRE", "fra"}, {"yue", "yue"},
        {"english", "und"}, {"", "und"},    {"e1g", "und"}, {"en", "und"},
    };
    for (const auto& [in, out] : iso639)
        EXPECT_EQ(qv::languageFromIso639(in), out) << in;
    const std::pair<std::string, std::string> bcp47[] = {
        {"en", "eng"},         {"en-GB", "eng"},  {"ja", "jpn"},
        {"zh-Hans-CN", "zho"}, {"yue-HK", "yue"}, {"x-klingon", "und"},
        {"qq", "und"},         {"", "und"},       {"e", "und"},
    };
    for (const auto& [in, out] : bcp47)
        EXPECT_EQ(qv::languageFromBcp47(in), out) << in;
    EXPECT_EQ(qv::packedLanguage("und"), 0x55C4);
    EXPECT_EQ(qv::packedLanguage("eng"), 0x15C7);
}

TEST(Language, NamesAreCutAtCharacterBoundaries)
{
    const std::string word = "K\xC3\xA4se"; // "Käse": ä takes two bytes
    EXPECT_EQ(qv::cutUtf8(word, 2), "K");   // never half a character
    EXPECT_EQ(qv::cutUtf8(word, 3), "K\xC3\xA4");
    EXPECT_EQ(qv::cutUtf8("\xE6\x97\xA5\xE6\x9C\xAC", 5), "\xE6\x97\xA5"); // 日本
    EXPECT_EQ(qv::cutUtf8(word, 100), word);

    // Damaged UTF-8 (a stray continuation byte, a truncated sequence, an overlong form, a
    // surrogate) becomes U+FFFD byte by byte; well-formed text passes unchanged.
    const std::string bad = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> utf8[] = {
        {word, word},
        {"a\x80"
         "b",
         "a" + bad + "b"},
        {"K\xC3", "K" + bad},
        {"\xC0\xAF", bad + bad},
        {"\xED\xA0\x80", bad + bad + bad},
        {"\xF0\x9F\x8E\xAC", "\xF0\x9F\x8E\xAC"}, // a clapper board
    };
    for (const auto& [in, out] : utf8)
        EXPECT_EQ(qv::validUtf8(in), out) << in;
}
