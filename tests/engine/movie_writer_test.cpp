// The movie header from synthetic tracks: track selection, constant size across both builds,
// optional tables and the edits for late tracks and B-frame reordering.
#include "engine/codec_config.h"
#include "engine/movie_writer.h"
#include "engine/timing.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using namespace qv_test;

namespace {

// A 320x240 AVC track with one 10-byte sample per presentation time (ms); only the listed
// samples are key frames (all of them when none are listed).
qv::Track videoTrack(const std::vector<std::int64_t>& ptsMs, bool isDefault,
                     const std::vector<std::size_t>& keys = {})
{
    qv::Track t;
    t.kind = qv::kVideo;
    t.codec = qv::Codec::Avc;
    t.codecPrivate = {1, 0x64, 0, 0x1E, 0xFF, 0xE1, 0, 0};
    t.pixelWidth = 320;
    t.pixelHeight = 240;
    t.isDefault = isDefault;
    for (std::size_t i = 0; i < ptsMs.size(); ++i) {
        qv::Sample s;
        s.position = 1000 * (i + 1);
        s.size = 10;
        s.time = ptsMs[i] * 1'000'000;
        s.key = keys.empty() || std::find(keys.begin(), keys.end(), i) != keys.end();
        t.samples.push_back(s);
    }
    return t;
}

// Offsets of every box of this type in the bytes (a plain scan is enough for test data).
std::vector<std::size_t> find(const Bytes& data, const std::string& type)
{
    std::vector<std::size_t> at;
    for (std::size_t i = 4; i + 4 <= data.size(); ++i)
        if (std::equal(type.begin(), type.end(), data.begin() + static_cast<std::ptrdiff_t>(i)))
            at.push_back(i - 4);
    return at;
}

void prepare(qv::Index& index)
{
    const Bytes bytes(64, 0);
    auto reader = readerOf(bytes);
    qv::prepareTracks(reader, index);
}

} // namespace

TEST(MovieWriter, OneEnabledTrackPerKindAndLateTracks)
{
    qv::Index index;
    index.tracks.push_back(videoTrack({500, 533, 567}, false));
    index.tracks.push_back(videoTrack({0, 33, 67, 100}, true, {0, 3}));
    prepare(index);
    EXPECT_EQ(index.tracks[0].timing.movieOffset, 500u);

    // The size does not depend on the chunk offsets written into it.
    const auto first = qv::writeMovie(index, {{0, 0, 0}, {0, 0, 0, 0}});
    const auto moov = qv::writeMovie(index, {{1ull << 40, 5, 6}, {~0ull, 1, 2, 3}});
    EXPECT_EQ(first.size(), moov.size());
    EXPECT_EQ(be32(first, 0), first.size());

    // tkhd flags: only the track flagged default is enabled (3); the other is in the movie only.
    const auto tkhd = find(moov, "tkhd");
    ASSERT_EQ(tkhd.size(), 2u);
    EXPECT_EQ(moov[tkhd[0] + 11], 2);
    EXPECT_EQ(moov[tkhd[1] + 11], 3);
    // Sync samples are listed only for the track that has non-key frames; chunk offsets are 64-bit.
    EXPECT_EQ(find(moov, "stss").size(), 1u);
    EXPECT_EQ(find(moov, "stco").size(), 0u);
    ASSERT_EQ(find(moov, "co64").size(), 2u);
    EXPECT_EQ(be32(moov, find(moov, "co64")[1] + 16), 0xFFFFFFFFu);
    // The late track starts with an empty edit (media time -1) before its media edit.
    const auto elst = find(moov, "elst");
    ASSERT_EQ(elst.size(), 2u);
    EXPECT_EQ(be32(moov, elst[0] + 12), 2u);
    EXPECT_EQ(be32(moov, elst[0] + 24), 0xFFFFFFFFu);
    // The movie lasts until the late track ends: 500 ms + 67 ms + a last frame of 34 ms.
    EXPECT_EQ(be32(moov, find(moov, "mvhd")[0] + 36), 601u);
}

TEST(MovieWriter, ReorderedFramesGetOffsetsAndAnEditThatSkipsThem)
{
    // Decode order I P B B with presentation 0, 100, 33, 67 ms.
    qv::Index index;
    index.tracks.push_back(videoTrack({0, 100, 33, 67}, true, {0}));
    prepare(index);
    const auto& timing = index.tracks[0].timing;
    EXPECT_EQ(timing.timescale, 90'000u);
    // Decode times are the sorted presentation times (0, 33, 67, 100 ms); the shift of 34 ms is
    // the most any picture is decoded after its presentation time, so no offset is negative.
    EXPECT_EQ(timing.compositions, (std::vector<std::int32_t>{3060, 9090, 0, 90}));
    EXPECT_EQ(timing.mediaStart, 3060u); // the first picture, after the shift
    EXPECT_EQ(timing.movieOffset, 0u);

    const auto moov = qv::writeMovie(index, {{0, 0, 0, 0}});
    const auto ctts = find(moov, "ctts");
    ASSERT_EQ(ctts.size(), 1u);
    EXPECT_EQ(moov[ctts[0] + 8], 1); // version 1: signed offsets
    const auto elst = find(moov, "elst");
    ASSERT_EQ(elst.size(), 1u);
    EXPECT_EQ(be32(moov, elst[0] + 12), 1u);    // one edit
    EXPECT_EQ(be32(moov, elst[0] + 28), 3060u); // its media time (low word)
}

TEST(CodecConfig, Vp9FirstFrameDecidesTheStream)
{
    qv::Track t;
    t.pixelWidth = 320;
    t.pixelHeight = 240;
    // marker 10, profile 0, shown key frame, sync code, colour space BT.709, limited range.
    const Bytes profile0 = {0x82, 0x49, 0x83, 0x42, 0x40, 0, 0, 0};
    // Level 2.0 for 320x240; 8 bits, 4:2:0, unspecified primaries and transfer, BT.709 matrix.
    EXPECT_EQ(qv::vp9Config(profile0, t), (Bytes{0, 20, 0x82, 2, 2, 1, 0, 0}));
    // Profile 2 (low bit 0, high bit 1) with ten_or_twelve_bit 0: 10 bits.
    const Bytes profile2 = {0x92, 0x49, 0x83, 0x42, 0x20, 0, 0, 0};
    EXPECT_EQ(qv::vp9Config(profile2, t)[2] >> 4, 10);
    const std::vector<std::pair<Bytes, std::uint32_t>> refused{
        {{0x42, 0x49, 0x83, 0x42, 0x40}, qv::kMalformed},   // frame marker 01
        {{0x82, 0x49, 0x83, 0x43, 0x40}, qv::kMalformed},   // sync code
        {{0x86, 0x49, 0x83, 0x42, 0x40}, qv::kUnsupported}, // not a key frame
        {{0xA2, 0x49, 0x83, 0x42, 0x40}, qv::kUnsupported}, // profile 1
        {{0x82, 0x49, 0x83, 0x42, 0xE0}, qv::kUnsupported}, // RGB
        {{0x82, 0x49}, qv::kMalformed},                     // cut short
    };
    for (const auto& [header, code] : refused)
        EXPECT_EQ(codeOf([&] { qv::vp9Config(header, t); }), code) << int(header[0]);
}
