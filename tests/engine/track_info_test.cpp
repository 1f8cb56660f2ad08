// What the engine tells about each track beyond its samples: kind, codec, language and name,
// through the C queries and in the exported movie's mdhd, hdlr and udta boxes; and Apple Lossless.
#include "engine/audio/alac.h"
#include "engine/language.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace qv_test;

namespace {

// A SimpleBlock of track `number` (below 127), key frame, no lacing.
Bytes blockOf(std::uint8_t number, std::int16_t relative, const Bytes& payload)
{
    return el(0xA3, cat({{static_cast<std::uint8_t>(0x80 | number)},
                         be(static_cast<std::uint16_t>(relative), 2),
                         {0x80},
                         payload}));
}

// The virtual file's header (ftyp + moov + mdat header) of an opened file.
Bytes header(QVMedia* media)
{
    Bytes bytes(4096);
    const auto n = qv_media_read(media, 0, bytes.data(), bytes.size());
    bytes.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return bytes;
}

bool contains(const Bytes& data, const Bytes& part)
{
    return std::search(data.begin(), data.end(), part.begin(), part.end()) != data.end();
}

Bytes text(const std::string& s)
{
    return Bytes(s.begin(), s.end());
}

// An ALACSpecificConfig: 4096-sample frames, 16 bits, stereo, 44.1 kHz.
const Bytes kAlacConfig{0, 0, 0x10, 0, 0, 16, 40, 10, 14, 2, 0,    255,
                        0, 0, 0,    0, 0, 0,  0,  0,  0,  0, 0xAC, 0x44};

} // namespace

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
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(qv::validUtf8(word), word);
    EXPECT_EQ(qv::validUtf8("a\x80"
                            "b"),
              "a" + replacement + "b");
    EXPECT_EQ(qv::validUtf8("K\xC3"), "K" + replacement);
    EXPECT_EQ(qv::validUtf8("\xC0\xAF"), replacement + replacement);
    EXPECT_EQ(qv::validUtf8("\xED\xA0\x80"), replacement + replacement + replacement);
    EXPECT_EQ(qv::validUtf8("\xF0\x9F\x8E\xAC"), "\xF0\x9F\x8E\xAC"); // a clapper board
}

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
        blocks = cat({blocks, blockOf(n, 0, Bytes(20, n)), blockOf(n, 21, Bytes(20, n))});
    const Bytes file = matroskaFile(tracks, cluster(0, blocks));
    std::uint32_t code = 99;
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
    EXPECT_EQ(qv_media_track_name(media, 2), std::string(254, 'x'));
    // Past the last track and without a handle: nothing.
    EXPECT_EQ(qv_media_track_kind(media, 3), 0u);
    EXPECT_STREQ(qv_media_track_name(media, 3), "");
    EXPECT_STREQ(qv_media_track_language(nullptr, 0), "");
    EXPECT_EQ(qv_media_track_count(nullptr), 0u);

    const Bytes moov = header(media);
    EXPECT_TRUE(contains(moov, cat({text("soun"), Bytes(12, 0), text("Commentary"), {0}})));
    EXPECT_TRUE(contains(moov, cat({be(18, 4), text("nameCommentary")})));
    EXPECT_TRUE(contains(moov, cat({text("soun"), Bytes(12, 0), text("Audio"), {0}})));
    EXPECT_TRUE(contains(moov, be(qv::packedLanguage("deu"), 2)));
    qv_media_close(media);
}

TEST(Alac, ConfigurationAndFrames)
{
    const auto c = qv_audio::alacConfiguration(kAlacConfig);
    EXPECT_EQ(c.frameLength, 4096u);
    EXPECT_EQ(c.bitDepth, 16u);
    EXPECT_EQ(c.channels, 2u);
    EXPECT_EQ(c.sampleRate, 44100u);
    // Inside its atom header, as some muxers store it.
    const Bytes atom = cat({be(36, 4), text("alac"), be(0, 4), kAlacConfig});
    EXPECT_EQ(qv_audio::alacConfiguration(atom).config, c.config);

    const std::pair<Bytes, std::uint32_t> broken[] = {
        {Bytes(kAlacConfig.begin(), kAlacConfig.end() - 1), qv::kMalformed}, // short
        {cat({be(0, 4), Bytes(kAlacConfig.begin() + 4, kAlacConfig.end())}), qv::kMalformed},
    };
    for (const auto& [bytes, code] : broken)
        EXPECT_EQ(codeOf([&] { qv_audio::alacConfiguration(bytes); }), code);

    // A full frame states no count; a shorter last frame does, after 23 header bits.
    EXPECT_EQ(qv_audio::alacFrameSamples(pack({{1, 3}, {0, 4}, {0, 12}, {0, 1}}, 7), 4096), 4096u);
    EXPECT_EQ(qv_audio::alacFrameSamples(
                  pack({{1, 3}, {0, 4}, {0, 12}, {1, 1}, {0, 2}, {0, 1}, {1000, 32}}), 4096),
              1000u);
    EXPECT_EQ(codeOf([&] {
                  qv_audio::alacFrameSamples(
                      pack({{1, 3}, {0, 4}, {0, 12}, {1, 1}, {0, 2}, {0, 1}, {5000, 32}}), 4096);
              }),
              qv::kMalformed);
}
