// Matroska below and beside the samples: damaged EBML and laces as a hostile file can hold them
// (well-formed elements, unknown sizes, floats and lacing are judged end to end by the oracle's
// fixtures); where the audio facts of FLAC, AC-3, MP3 and ALAC tracks come from; and what the
// engine tells about each track: kind, codec, language and name, through the C queries and in the
// movie, with languages mapped to ISO 639-2/T and names kept to whole, valid UTF-8 characters.
#include "engine/ebml.h"
#include "engine/lacing.h"
#include "engine/language.h"
#include "engine/matroska.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <functional>

using namespace qv_test;
using qv::ebml::element;

TEST(Ebml, MalformedElementsAndLacesAreRefused)
{
    const auto lace = [](std::uint64_t end, qv::Lacing lacing) {
        return [=](qv::Reader& r) {
            qv::Frames frames;
            qv::splitLaces(r, 0, end, lacing, frames);
        };
    };
    const std::pair<Bytes, std::function<void(qv::Reader&)>> cases[] = {
        // A zero first byte (a length above 8), and a vint running past its end.
        {{0x00, 0x81}, [](qv::Reader& r) { qv::ebml::vint(r, 0, 2, false); }},
        {{0x40, 0x02}, [](qv::Reader& r) { qv::ebml::vint(r, 0, 1, false); }},
        // An element in a parent that ends one byte early.
        {el(0x4282, text("webm")), [](qv::Reader& r) { element(r, 0, r.size() - 1); }},
        // A float of three bytes; an empty unsigned integer, deliberately stricter than EBML's
        // default of 0.
        {el(0xB5, {0x47, 0x3B, 0x80}),
         [](qv::Reader& r) { qv::ebml::floating(r, element(r, 0, r.size())); }},
        {el(0xD7, {}),
         [](qv::Reader& r) { qv::ebml::unsignedInteger(r, element(r, 0, r.size())); }},
        // Eight bytes do not split into three equal frames; Xiph and EBML lace sizes that add up
        // past the block end are malformed, not wrapped around.
        {cat({{0x02}, Bytes(8, 0xCC)}), lace(9, qv::Lacing::Fixed)},
        {cat({{0x02, 0xFF, 0x2D, 0x02}, Bytes(306, 0xAA)}), lace(200, qv::Lacing::Xiph)},
        {cat({{0x03, 0x8A, 0xC1, 0xBC}, Bytes(36, 0xBB)}), lace(20, qv::Lacing::Ebml)},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(codeOf([&] { parsed(cases[i].first, cases[i].second); }), qv::kMalformed) << i;
}

TEST(CodecTracks, FactsComeFromTheStream)
{
    const auto rate = [](double hz) {
        return el(0xE1, el(0xB5, be(std::bit_cast<std::uint64_t>(hz), 8)));
    };
    const Bytes ac3 = cat({{0x0b, 0x77, 0, 0, 0, 0x40, 0x40}, Bytes(121, 0)}); // 48 kHz, 128 bytes
    Bytes layer2{0xff, 0xfd, 0x94, 0x00};
    layer2.resize(480, 0);
    const Bytes flac = cat({{'f', 'L', 'a', 'C', 0x80, 0, 0, 34}, kStreamInfo});
    // ALAC: 4096-sample frames, 24 bits, stereo, 96 kHz; a full frame, then a last one of 100.
    const Bytes alac{0, 0, 0x10, 0, 0, 24, 40, 10, 14, 2, 0,    255,
                     0, 0, 0,    0, 0, 0,  0,  0,  0,  1, 0x77, 0x00};
    const Bytes full = pack({{1, 3}, {0, 4}, {0, 12}, {0, 1}}, 8);
    const Bytes last = pack({{1, 3}, {0, 4}, {0, 12}, {1, 1}, {0, 2}, {0, 1}, {100, 32}}, 8);
    const auto one = [](const Bytes& frame) { return simpleBlock(0, true, frame); };
    struct Case {
        std::string codec;
        Bytes extra, blocks;
        std::uint32_t code;
        // The rate the track claims, the stream's rate, channels and bits per sample (0:
        // unchecked).
        std::array<std::uint32_t, 4> facts;
        std::vector<std::uint64_t> pcmSamples;
    };
    const Case cases[] = {
        // No Audio element: Matroska's 8 kHz default stands in until the first frame says
        // 48 kHz (frames inside one block are timed at the stand-in rate, which once divided by
        // zero). Laced frames then sit 192 ms apart where the stream says 32 ms: the container
        // contradicts the stream, and the file is refused rather than played with gaps.
        {"A_AC3", {}, one(ac3), 0, {8000, 0, 0, 0}, {1536}},
        {"A_AC3", {}, el(0xA3, cat({{0x81, 0, 0, 0x80 | 0x04, 1}, ac3, ac3})), 2, {}, {}},
        // Two AC-3 sync frames in one block are two frames' worth of samples; bytes after the last
        // frame that do not start a new one are not counted.
        {"A_AC3", rate(48000), one(cat({ac3, ac3})), 0, {}, {3072}},
        {"A_AC3", rate(48000), one(cat({ac3, Bytes(16, 0)})), 0, {}, {1536}},
        {"A_MPEG/L3", rate(44100), one(layer2), 2, {}, {}}, // layer II in an MP3 track
        // The stream's own configuration wins over what the track claims (48 kHz, mono).
        {"A_FLAC",
         cat({el(0x63A2, flac), rate(48000)}),
         one({0xff, 0xf8, 0x59, 0x88, 0x00, 0x8a, 0, 0}),
         0,
         {0, 44100, 2, 16},
         {4608}},
        {"A_ALAC",
         cat({el(0x63A2, alac), rate(48000)}),
         cat({one(full), simpleBlock(43, true, last)}),
         0,
         {0, 96000, 2, 24},
         {4096, 100}},
        // An ALAC configuration cut short fails the file.
        {"A_ALAC", el(0x63A2, Bytes(alac.begin(), alac.end() - 1)), one(full), 1, {}, {}},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto& c = cases[i];
        const Bytes file = matroskaFile(audioTrack(c.codec, c.extra), cluster(0, c.blocks));
        EXPECT_EQ(openCode(file), c.code) << i;
        if (c.code != 0) continue;
        const auto track =
            parsed(file, [](qv::Reader& reader) { return qv::matroska(reader).tracks.at(0); });
        const std::array<std::uint32_t, 4> got{track.audio.sampleRate, track.sampleRate,
                                               track.audio.channels, track.audio.bitsPerSample};
        for (std::size_t k = 0; k < 4; ++k) // a fact of 0 is not checked
            EXPECT_EQ(c.facts[k] ? got[k] : 0, c.facts[k]) << i << " " << k;
        std::vector<std::uint64_t> pcm;
        for (const auto& s : track.samples)
            pcm.push_back(s.pcmSamples);
        EXPECT_EQ(pcm, c.pcmSamples) << i;
    }
}

TEST(TrackInfo, QueriesAndMovieCarryLanguagesAndNames)
{
    const std::string longName = std::string(254, 'x') + "\xC3\xA4"; // 256 bytes
    const Bytes tracks = cat({
        aacTrack(1, cat({el(0x22B59C, text("eng")), el(0x22B59D, text("en-GB")),
                         el(0x536E, text("Commentary"))})),
        aacTrack(2, cat({el(0x22B59C, text("klingon!")), el(0x536E, text(longName))})),
    });
    Bytes blocks;
    for (std::uint8_t n = 1; n <= 2; ++n)
        for (std::int16_t at : {0, 21})
            blocks =
                cat({blocks,
                     el(0xA3, cat({{std::uint8_t(0x80 | n)}, be(at, 2), {0x80}, Bytes(20, n)}))});
    std::uint32_t code = 99;
    const Bytes file = matroskaFile(tracks, cluster(0, blocks));
    QVMedia* media = openBytes(file, code);
    ASSERT_NE(media, nullptr) << code;

    ASSERT_EQ(qv_media_track_count(media), 2u);
    EXPECT_EQ(qv_media_track_kind(media, 0), std::uint32_t{QV_MEDIA_TRACK_AUDIO});
    EXPECT_STREQ(qv_media_track_codec(media, 0), "aac");
    EXPECT_STREQ(qv_media_track_language(media, 0), "eng"); // LanguageBCP47 wins
    EXPECT_STREQ(qv_media_track_name(media, 0), "Commentary");
    EXPECT_STREQ(qv_media_track_language(media, 1), "und");
    EXPECT_EQ(qv_media_track_name(media, 1), std::string(254, 'x')); // never half a character
    // Past the last track and without a handle: nothing.
    EXPECT_EQ(qv_media_track_kind(media, 2), 0u);
    EXPECT_STREQ(qv_media_track_name(media, 2), "");
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
        {"en-GB", "eng"},     {"zh-Hans-CN", "zho"}, {"yue-HK", "yue"},
        {"x-klingon", "und"}, {"qq", "und"},         {"e", "und"},
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

// A large file is indexed in runs of clusters on several threads when its source has a second
// handle (MemorySource has, TestSource has not); here a megabyte counts as large. Samples,
// subtitle events and failures must be exactly those of one walk.
TEST(Matroska, RunsOfClustersIndexedAtOnceMatchOneWalk)
{
    const auto subtitleTrack =
        el(0xAE, cat({uintEl(0xD7, 2, 1), uintEl(0x83, 0x11, 1), textEl(0x86, "S_TEXT/UTF8")}));
    // Clusters of equal size: runs, about equal in bytes and at least 8 of them, end after
    // cluster 1. `extra` ends cluster `at`.
    const auto file = [&](const Bytes& extra, std::uint64_t at) {
        Bytes clusters;
        for (std::uint64_t c = 0; c < 16; ++c) {
            Bytes blocks;
            for (std::int16_t b = 0; b < 12; ++b)
                blocks = cat({blocks, simpleBlock(std::int16_t(b * 21), b == 0,
                                                  Bytes(6000 + b, std::uint8_t(c)))});
            const auto line = text("line " + std::to_string(c % 10));
            blocks = cat({blocks, el(0xA3, cat({{0x82, 0, 5, 0x80}, line}))});
            clusters = cat({clusters, cluster(c * 252, cat({blocks, c == at ? extra : Bytes{}}))});
        }
        return matroskaFile(cat({aacTrack(), subtitleTrack}), clusters);
    };
    const auto index = [](const Bytes& bytes, bool runs) {
        std::unique_ptr<qv::Source> source =
            runs ? std::make_unique<qv::MemorySource>(bytes) : sourceOf(bytes);
        qv::Reader reader(std::move(source), nullptr, nullptr);
        return qv::matroska(reader, 1u << 20);
    };
    const auto padded = el(0xA0, cat({el(0xA1, {0x81, 0, 0, 0, 7}), el(0x75A2, {0x10})}));
    const std::pair<Bytes, std::uint32_t> cases[] = {
        {file({}, 0), 0},
        // DiscardPadding at the end of the first run, then the next run's blocks.
        {file(padded, 1), qv::kUnsupported},
        {file(el(0xA3, {0x81, 0, 0}), 15), qv::kMalformed}, // a block cut short at the end
    };
    for (const auto& [bytes, code] : cases) {
        ASSERT_GT(bytes.size(), 1u << 20);
        ASSERT_EQ(codeOf([&] { index(bytes, true); }), code);
        ASSERT_EQ(codeOf([&] { index(bytes, false); }), code);
        if (code != 0) continue;
        const auto runs = index(bytes, true), one = index(bytes, false);
        const auto& a = runs.tracks[0].samples;
        const auto& b = one.tracks[0].samples;
        ASSERT_EQ(a.size(), 16u * 12u);
        ASSERT_EQ(runs.sampleCount, one.sampleCount);
        for (std::size_t i = 0; i < a.size(); ++i)
            EXPECT_TRUE(a[i].position == b[i].position && a[i].time == b[i].time &&
                        a[i].size == b[i].size && a[i].key == b[i].key)
                << i;
        const auto& x = runs.subtitles[0];
        const auto& y = one.subtitles[0];
        ASSERT_EQ(x.events.size(), 16u);
        EXPECT_EQ(x.textBytes, y.textBytes);
        for (std::size_t i = 0; i < x.events.size(); ++i)
            EXPECT_TRUE(x.events[i].start == y.events[i].start &&
                        x.events[i].text == y.events[i].text)
                << i;
    }
}
