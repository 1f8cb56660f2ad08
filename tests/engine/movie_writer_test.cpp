// The movie header from synthetic tracks: constant size across both builds, 64-bit chunk offsets
// and the edit of a late track. Box sizes, the enabled track, sync samples and B-frame reordering
// are judged on real files by the oracle.
#include "engine/movie_writer.h"
#include "engine/timing.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using namespace qv_test;

namespace {

// A 320x240 AVC track with one 10-byte key frame per presentation time (ms).
qv::Track videoTrack(const std::vector<std::int64_t>& ptsMs)
{
    qv::Track t;
    t.kind = qv::kVideo;
    t.codec = qv::Codec::Avc;
    t.codecPrivate = {1, 0x64, 0, 0x1E, 0xFF, 0xE1, 0, 0};
    t.pixelWidth = 320;
    t.pixelHeight = 240;
    for (std::size_t i = 0; i < ptsMs.size(); ++i) {
        qv::Sample s;
        s.position = 1000 * (i + 1);
        s.size = 10;
        s.time = ptsMs[i] * 1'000'000;
        s.key = true;
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

TEST(MovieWriter, ConstantSizeWideOffsetsAndLateTracks)
{
    qv::Index index;
    index.tracks.push_back(videoTrack({500, 533, 567}));
    index.tracks.push_back(videoTrack({0, 33, 67, 100}));
    const Bytes bytes(64, 0);
    qv::Reader reader(sourceOf(bytes), nullptr, nullptr);
    qv::prepareTracks(reader, index);
    EXPECT_EQ(index.tracks[0].timing.movieOffset, 500u);

    // The size does not depend on the chunk offsets written into it.
    const auto first = qv::writeMovie(index, {{0, 0, 0}, {0, 0, 0, 0}});
    const auto moov = qv::writeMovie(index, {{1ull << 40, 5, 6}, {~0ull, 1, 2, 3}});
    EXPECT_EQ(first.size(), moov.size());
    // Chunk offsets are 64-bit and keep offsets above 4 GiB, which no fixture reaches.
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
