// FLV tags to an index: AVC and AAC samples with their times and places, and the refusals.
#include "engine/flv.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using namespace qv_test;

namespace {

// Baseline 320x240 parameter set in a decoder configuration record with one picture set.
const Bytes kAvcRecord{1,    0x42, 0xc0, 0x0d, 0xff, 0xe1, 0x00, 0x08, 0x67, 0x42, 0xc0, 0x0d,
                       0xda, 0x05, 0x07, 0xe4, 0x01, 0x00, 0x04, 0x68, 0xce, 0x3c, 0x80};
const Bytes kAacLc44{0x12, 0x10}; // AAC-LC, 44.1 kHz, stereo

Bytes header(std::uint8_t flags = 5, std::uint8_t version = 1)
{
    return cat({{'F', 'L', 'V', version, flags}, be(9, 4), be(0, 4)});
}

// One tag with its trailing previous-tag-size field (`sizeSkew` damages that field).
Bytes tag(std::uint8_t type, std::uint32_t timestamp, const Bytes& data, int sizeSkew = 0)
{
    return cat({{type},
                be(data.size(), 3),
                be(timestamp & 0xFFFFFF, 3),
                {std::uint8_t(timestamp >> 24)},
                be(0, 3),
                data,
                be(data.size() + 11 + sizeSkew, 4)});
}

Bytes videoTag(std::uint32_t ms, std::uint8_t packetType, std::int32_t composition,
               const Bytes& payload, bool key = true)
{
    return tag(9, ms,
               cat({{std::uint8_t((key ? 0x10 : 0x20) | 7), packetType},
                    be(composition & 0xFFFFFF, 3),
                    payload}));
}

Bytes audioTag(std::uint32_t ms, std::uint8_t packetType, const Bytes& payload,
               std::uint8_t format = 10)
{
    return tag(8, ms, cat({{std::uint8_t(format << 4 | 0x0F), packetType}, payload}));
}

const Bytes kScript = tag(18, 0, cat({{0x02, 0x00, 0x0A}, text("onMetaData"), {0x05}}));

qv::Index demux(const Bytes& bytes)
{
    return parsed(bytes, [](qv::Reader& reader) { return qv::flv(reader); });
}

Bytes goodFile()
{
    return cat({header(), kScript, videoTag(0, 0, 0, kAvcRecord), audioTag(0, 0, kAacLc44),
                videoTag(0, 1, 0, {0, 0, 0, 2, 0x65, 0x88}), audioTag(0, 1, {0x21, 0x10, 0x04}),
                videoTag(40, 1, -1, {0, 0, 0, 2, 0x41, 0x9a}, false), kScript,
                videoTag(80, 2, 0, {}), audioTag(23, 1, {0x21, 0x10, 0x05, 0x06})});
}

} // namespace

// The common case (samples, their places, key flags and times) is judged end to end by the oracle
// on an encoder's FLV; these are the forms it does not hold.
TEST(Flv, NegativeCompositionExtendedTimesAndUnannouncedStreams)
{
    // A composition time of -1 shows the picture 1 ms before it is decoded.
    const auto late = demux(goodFile()).tracks.at(0).samples.at(1);
    EXPECT_EQ(late.decodeTime, 40'000'000);
    EXPECT_EQ(late.time, 39'000'000);
    // The extended timestamp is the upper byte.
    EXPECT_EQ(demux(cat({header(4), audioTag(0, 0, kAacLc44), audioTag(0x01000010, 1, {0x21})}))
                  .tracks[0]
                  .samples[0]
                  .time,
              0x01000010LL * 1'000'000);
    // A header that announces nothing: whatever has samples becomes a track; sequence headers
    // without samples leave nothing behind.
    const auto unannounced = demux(cat({header(0), kScript, audioTag(0, 0, kAacLc44),
                                        videoTag(0, 0, 0, kAvcRecord), audioTag(0, 1, {0x21})}));
    ASSERT_EQ(unannounced.tracks.size(), 1u);
    EXPECT_EQ(unannounced.tracks[0].codec, qv::Codec::Aac);
    EXPECT_TRUE(demux(cat({header(0), kScript})).tracks.empty());
}

TEST(Flv, DamagedAndRefusedFiles)
{
    const Bytes good = goodFile();
    Bytes lowOffset = good, notSps = kAvcRecord;
    lowOffset[8] = 8; // data offset 8
    notSps[8] = 0x68; // a parameter set that is not an SPS
    const Bytes video = cat({videoTag(0, 0, 0, kAvcRecord), videoTag(0, 1, 0, {1, 2})});
    const Bytes audio = cat({audioTag(0, 0, kAacLc44), audioTag(0, 1, {0x21})});
    const std::vector<std::pair<Bytes, std::uint32_t>> cases{
        {cat({header(5, 2), Bytes(good.begin() + 13, good.end())}), 1}, // version 2
        {lowOffset, 1},
        // A previous-tag-size off by one, a truncated last tag.
        {cat({header(), audioTag(0, 0, kAacLc44), tag(8, 0, {0xAF, 1, 0x21}, 1)}), 1},
        {Bytes(good.begin(), good.end() - 1), 1},
        // An AAC packet type other than header or frame.
        {cat({header(4), audioTag(0, 0, kAacLc44), audioTag(0, 2, {0x21})}), 1},
        {cat({header(1), videoTag(0, 0, 0, notSps), videoTag(0, 1, 0, {1})}), 1},
        // Sorenson H.263 video, and an audio tag too short to name its packet type.
        {cat({header(1), tag(9, 0, {0x12, 0, 0, 0, 0})}), 2},
        {cat({header(4), tag(8, 0, {0xAF})}), 2},
        // A second audio sequence header (the video one is in the oracle's fixtures).
        {cat({header(), video, audio, audioTag(0, 0, kAacLc44)}), 2},
        {cat({header(1), video, videoTag(0, 3, 0, {})}), 2}, // unknown AVC packet type
        // An announced stream without samples.
        {cat({header(5), video}), 2},
        // Pictures without a usable configuration record, and sound without its configuration.
        {cat({header(1), videoTag(0, 1, 0, {1})}), 2},
        {cat({header(4), audioTag(0, 1, {0x21})}), 2},
        // An AAC configuration the MP4 side cannot carry (AAC Main).
        {cat({header(4), audioTag(0, 0, {0x0A, 0x10}), audioTag(0, 1, {0x21})}), 2},
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(codeOf([&] { demux(cases[i].first); }), cases[i].second) << i;
}
