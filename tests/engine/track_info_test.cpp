// What the engine tells about each track beyond its samples: kind, codec, language and name,
// through the C queries and in the exported movie's mdhd, hdlr and udta boxes.
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

} // namespace

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
