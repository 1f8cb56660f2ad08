// The movie header from synthetic tracks: track selection, constant size across both builds,
// optional tables and the edit of a late track. (B-frame reordering and box sizes are judged on
// real files by the oracle.)
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

} // namespace

TEST(MovieWriter, OneEnabledTrackPerKindAndLateTracks)
{
    qv::Index index;
    index.tracks.push_back(videoTrack({500, 533, 567}, false));
    index.tracks.push_back(videoTrack({0, 33, 67, 100}, true, {0, 3}));
    const Bytes bytes(64, 0);
    auto reader = readerOf(bytes);
    qv::prepareTracks(reader, index);
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
