#include "engine/avc_sps.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using qv::avcFirstSps;
using qv::avcPictureSize;
using namespace qv_test;

namespace {

// Parameter sets written by an H.264 encoder.
// High 4:4:4, 1918x1078: cropping in single-sample units.
const Bytes kHigh444{0x67, 0xf4, 0x00, 0x28, 0x91, 0x9b, 0x28, 0x0f, 0x00, 0x44,
                     0xf7, 0x17, 0x80, 0x88, 0x00, 0x00, 0x03, 0x00, 0x08, 0x00,
                     0x00, 0x03, 0x01, 0x90, 0x78, 0xc1, 0x8c, 0xb0};
// High 4:2:0, 1920x1080: 1088 coded lines, 8 cropped at the bottom.
const Bytes kHigh1080{0x67, 0x64, 0x00, 0x28, 0xac, 0xd9, 0x40, 0x78, 0x02,
                      0x27, 0xe5, 0xc0, 0x44, 0x00, 0x00, 0x03, 0x00, 0x04,
                      0x00, 0x00, 0x03, 0x00, 0xc8, 0x3c, 0x60, 0xc6, 0x58};
// High 4:2:0 interlaced, 718x572: field coding doubles the vertical cropping unit.
const Bytes kInterlaced{0x67, 0x64, 0x00, 0x1e, 0xac, 0xd9, 0x40, 0xb4, 0x24,
                        0xf5, 0x58, 0x08, 0x80, 0x00, 0x00, 0x03, 0x00, 0x80,
                        0x00, 0x00, 0x19, 0x0f, 0x8a, 0x14, 0xcb};
// Baseline 320x240 without cropping (profile 66 carries no chroma information).
const Bytes kBaseline{0x67, 0x42, 0xc0, 0x0d, 0xda, 0x05, 0x07, 0xe4};

} // namespace

TEST(AvcSps, PictureSizeWithCropping)
{
    struct Case {
        const Bytes& sps;
        std::uint32_t width, height;
    };
    for (const Case& c : {Case{kHigh444, 1918, 1078}, Case{kHigh1080, 1920, 1080},
                          Case{kInterlaced, 718, 572}, Case{kBaseline, 320, 240}}) {
        const auto size = avcPictureSize(c.sps);
        EXPECT_EQ(std::pair(size.width, size.height), std::pair(c.width, c.height));
    }
}

TEST(AvcSps, MalformedParameterSets)
{
    // Every prefix that ends before the cropping fields runs out of bits (the rest is not read).
    for (std::size_t n = 0; n < 11; ++n)
        EXPECT_EQ(codeOf([&] { avcPictureSize(std::span(kHigh1080).first(n)); }), 1u) << n;
    Bytes notSps = kHigh1080, forbiddenBit = kHigh1080;
    notSps[0] = 0x68;
    forbiddenBit[0] |= 0x80;
    const std::vector<Bytes> cases{
        notSps,
        forbiddenBit,
        {0x67, 0x42, 0, 0x0d, 0, 0, 0, 0, 1}, // 32 leading zero bits: no encoder writes this
        // Cropping that removes the whole picture: 16x16 with 8 units (16 lines) off the bottom.
        {0x67, 0x42, 0, 0x0d, 0xda, 0x7f, 0x89, 0x40}};
    for (const Bytes& sps : cases)
        EXPECT_EQ(codeOf([&] { avcPictureSize(sps); }), 1u);
}

TEST(AvcSps, FirstSpsOfRecord)
{
    const Bytes rec = cat({{1, 0x64, 0, 0x28, 0xff, 0xe1},
                           be(kHigh1080.size(), 2),
                           kHigh1080,
                           {1, 0, 4, 0x68, 0xeb, 0xe3, 0xcb}});
    const auto sps = avcFirstSps(rec);
    EXPECT_EQ(Bytes(sps.begin(), sps.end()), kHigh1080);

    // (byte, value, code): version 2, no SPS, an SPS running past the record, one too short to
    // hold its header, and a PPS where the SPS should be.
    const std::vector<std::tuple<std::size_t, std::uint8_t, std::uint32_t>> damage{
        {0, 2, 2}, {5, 0xe0, 2}, {7, std::uint8_t(rec.size() - 7), 1}, {7, 3, 1}, {8, 0x68, 1}};
    for (const auto& [at, value, code] : damage) {
        Bytes damaged = rec;
        damaged[at] = value;
        EXPECT_EQ(codeOf([&] { avcFirstSps(damaged); }), code) << at;
    }
    EXPECT_EQ(codeOf([&] { avcFirstSps(Bytes{1, 0x64, 0, 0x28, 0xff, 0xe1, 0}); }), 2u);
}
