#include "engine/audio/flac.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using namespace qv_audio;
using namespace qv_test;

namespace {

Bytes block(std::uint8_t head, const Bytes& body)
{
    return cat({{head, 0}, be(body.size(), 2), body});
}

} // namespace

TEST(Flac, StreamInfoAndDfla)
{
    const Bytes comment = block(4, Bytes(21, 'x'));
    const auto config = flacConfiguration(
        cat({{'f', 'L', 'a', 'C'}, block(0, kStreamInfo), comment, block(0x81, Bytes(16, 0))}));
    EXPECT_EQ(config.info.sampleRate, 44100u);
    EXPECT_EQ(config.info.channels, 2u);
    EXPECT_EQ(config.info.bitsPerSample, 16u);
    EXPECT_EQ(config.info.minBlockSize, 4608u);
    EXPECT_EQ(config.info.totalSamples, 8820u);
    // Padding goes, and the last-block flag moves to the comment that is now last.
    Bytes expected = cat({block(0, kStreamInfo), comment});
    expected[4 + 34] |= 0x80;
    EXPECT_EQ(config.dfla, expected);
    // Without the marker and with a single block the payload is that block, flagged last, as
    // other MP4 writers produce it.
    EXPECT_EQ(flacConfiguration(block(0, kStreamInfo)).dfla, block(0x80, kStreamInfo));
}

TEST(Flac, DamagedConfigurationsAreMalformed)
{
    Bytes zeroRate = kStreamInfo;
    zeroRate[10] = zeroRate[11] = 0;
    zeroRate[12] &= 0x0F;
    Bytes shortBlocks = kStreamInfo;
    shortBlocks[0] = shortBlocks[1] = 0; // minimum block size 0
    Bytes truncated = block(0, kStreamInfo);
    truncated.pop_back();
    const std::vector<Bytes> cases{
        {},
        {'f', 'L', 'a', 'C'},
        truncated,
        block(4, Bytes(8, 'x')),                                // STREAMINFO not first
        block(0, Bytes(33, 0)),                                 // STREAMINFO of the wrong size
        cat({block(0, kStreamInfo), block(0x80, kStreamInfo)}), // a second STREAMINFO
        cat({block(0, kStreamInfo), block(0x7F, {})}),          // the forbidden block type
        block(0, zeroRate),
        block(0, shortBlocks),
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(codeOf([&] { flacConfiguration(cases[i]); }), 1u) << "case " << i;

    // 24-bit samples are carried, 32-bit ones are refused rather than left to fail in a decoder.
    Bytes wide = kStreamInfo;
    wide[12] = (wide[12] & 0xFE) | 1; // bits per sample - 1: 0b10111 (24)
    wide[13] = (wide[13] & 0x0F) | 0x70;
    EXPECT_EQ(flacConfiguration(block(0, wide)).info.bitsPerSample, 24u);
    wide[13] |= 0x80; // 0b11111: 32 bits
    EXPECT_EQ(codeOf([&] { flacConfiguration(block(0, wide)); }), 2u);
}

TEST(Flac, FrameHeaders)
{
    // An encoder's header (4608 samples, 44.1 kHz, left/side stereo, 16 bits), then block-size
    // codes that carry the size at the end of the header; CRC-8 with x^8 + x^2 + x + 1.
    const std::vector<std::pair<Bytes, std::uint32_t>> good{
        {{0xff, 0xf8, 0x59, 0x88, 0x00, 0x8a}, 4608},
        {{0xff, 0xf8, 0x69, 0x18, 0x00, 0x0f, 0x92}, 16},
        {{0xff, 0xf8, 0x79, 0x18, 0x00, 0x12, 0x33, 0xe2}, 4660},
        {{0xff, 0xf8, 0x19, 0x18, 0x00, 0xed}, 192}};
    for (const auto& [header, samples] : good)
        EXPECT_EQ(flacFrameSamples(header), samples);

    const std::vector<Bytes> malformed{
        {0xff, 0xf8, 0x59, 0x88, 0x00, 0x8b}, // CRC mismatch
        {0xff, 0xf8, 0x59, 0x88, 0x00},       // truncated before the CRC
        {0xff, 0xf0, 0x59, 0x88, 0x00, 0x8a}, // broken sync code
        {0xff, 0xfa, 0x59, 0x88, 0x00, 0x8a}, // reserved bit set
        {0xff, 0xf8, 0x09, 0x88, 0x00, 0x8a}, // reserved block-size code 0
        {0xff, 0xf8, 0x5f, 0x88, 0x00, 0x8a}, // invalid sample-rate code 15
        {0xff, 0xf8, 0x59, 0xb8, 0x00, 0x8a}, // reserved channel assignment
        {0xff, 0xf8, 0x59, 0x88, 0x80, 0x8a}, // a continuation byte cannot lead a number
        {0xff, 0xf8, 0x59, 0x88, 0xfe, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x00}, // 7-byte number
    };
    for (std::size_t i = 0; i < malformed.size(); ++i)
        EXPECT_EQ(codeOf([&] { flacFrameSamples(malformed[i]); }), 1u) << "case " << i;
}
