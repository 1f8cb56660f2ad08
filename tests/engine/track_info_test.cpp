// What the engine tells about each track beyond its samples: kind, codec, language and name,
// through the C queries and in the exported movie; languages mapped to ISO 639-2/T and names kept
// to whole, valid UTF-8 characters.
#include "engine/language.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace qv_test;

TEST(TrackInfo, QueriesAndMovieCarryLanguagesAndNames)
{
    const std::string longName = std::string(254, 'x') + "\xC3\xA4"; // 256 bytes
    const Bytes tracks = cat({
        aacTrack(1, cat({el(0x22B59C, text("eng")), el(0x22B59D, text("en-GB")),
                         el(0x536E, text("Commentary"))})),
        aacTrack(2, el(0x22B59C, text("ger"))),
        aacTrack(3, cat({el(0x22B59C, text("klingon!")), el(0x536E, text(longName))})),
    });
    Bytes blocks;
    for (std::uint8_t n = 1; n <= 3; ++n)
        for (std::int16_t at : {0, 21})
            blocks =
                cat({blocks,
                     el(0xA3, cat({{std::uint8_t(0x80 | n)}, be(at, 2), {0x80}, Bytes(20, n)}))});
    std::uint32_t code = 99;
    const Bytes file = matroskaFile(tracks, cluster(0, blocks));
    QVMedia* media = openBytes(file, code);
    ASSERT_NE(media, nullptr) << code;

    ASSERT_EQ(qv_media_track_count(media), 3u);
    EXPECT_EQ(qv_media_track_kind(media, 0), std::uint32_t{QV_MEDIA_TRACK_AUDIO});
    EXPECT_STREQ(qv_media_track_codec(media, 0), "aac");
    EXPECT_STREQ(qv_media_track_language(media, 0), "eng"); // LanguageBCP47 wins
    EXPECT_STREQ(qv_media_track_name(media, 0), "Commentary");
    EXPECT_STREQ(qv_media_track_language(media, 1), "deu");
    EXPECT_STREQ(qv_media_track_name(media, 1), "");
    EXPECT_STREQ(qv_media_track_language(media, 2), "und");
    EXPECT_EQ(qv_media_track_name(media, 2), std::string(254, 'x')); // never half a character
    // Past the last track and without a handle: nothing.
    EXPECT_EQ(qv_media_track_kind(media, 3), 0u);
    EXPECT_STREQ(qv_media_track_name(media, 3), "");
    EXPECT_STREQ(qv_media_track_language(nullptr, 0), "");
    EXPECT_EQ(qv_media_track_count(nullptr), 0u);

    // The name also goes into a udta name box, which ffprobe does not show.
    Bytes moov(4096);
    moov.resize(std::max<std::int64_t>(0, qv_media_read(media, 0, moov.data(), moov.size())));
    const Bytes name = cat({be(18, 4), text("nameCommentary")});
    EXPECT_NE(std::search(moov.begin(), moov.end(), name.begin(), name.end()), moov.end());
    qv_media_close(media);
}

TEST(TrackInfo, LanguageCodesAndUtf8)
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

    const std::string word = "K\xC3\xA4se"; // "Käse": ä takes two bytes
    const std::tuple<std::string, std::size_t, std::string> cuts[] = {
        {word, 2, "K"},
        {word, 3, "K\xC3\xA4"},
        {word, 100, word},
        {"\xE6\x97\xA5\xE6\x9C\xAC", 5, "\xE6\x97\xA5"}, // 日本
    };
    for (const auto& [in, size, out] : cuts)
        EXPECT_EQ(qv::cutUtf8(in, size), out) << size;
    // Damaged UTF-8 (a stray continuation byte, a truncated sequence, an overlong form, a
    // surrogate) becomes U+FFFD byte by byte; well-formed text passes unchanged.
    const std::string bad = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> utf8[] = {
        {word, word},
        {std::string("a\x80") + "b", "a" + bad + "b"},
        {"K\xC3", "K" + bad},
        {"\xC0\xAF", bad + bad},
        {"\xED\xA0\x80", bad + bad + bad},
        {"\xF0\x9F\x8E\xAC", "\xF0\x9F\x8E\xAC"}, // a clapper board
    };
    for (const auto& [in, out] : utf8)
        EXPECT_EQ(qv::validUtf8(in), out) << in;
}
