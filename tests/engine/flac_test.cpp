#include "engine/audio/audio_error.h"
#include "engine/audio/flac.h"

#include <gtest/gtest.h>

#include <vector>

using namespace qv_audio;

namespace {

using Bytes = std::vector<std::uint8_t>;

// STREAMINFO of a 44.1 kHz stereo 16-bit stream with 4608-sample blocks, as a FLAC encoder wrote
// it.
const Bytes kStreamInfo{0x12, 0x00, 0x12, 0x00, 0x00, 0x04, 0xa3, 0x00, 0x05, 0x08, 0x0a, 0xc4,
                        0x42, 0xf0, 0x00, 0x00, 0x22, 0x74, 0x5d, 0x10, 0x5c, 0xeb, 0x21, 0x2a,
                        0xd5, 0xd3, 0x6e, 0x4f, 0x56, 0x08, 0xde, 0xf3, 0xd8, 0xb7};

Bytes block(std::uint8_t head, const Bytes& body)
{
    Bytes out{head, 0, static_cast<std::uint8_t>(body.size() >> 8),
              static_cast<std::uint8_t>(body.size())};
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

Bytes join(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

std::uint32_t codeOf(auto&& call)
{
    try {
        call();
    } catch (const Error& e) {
        return e.code();
    }
    return 0;
}

} // namespace

TEST(Flac, StreamInfoAndDfla)
{
    const Bytes marker{'f', 'L', 'a', 'C'};
    const Bytes comment = block(4, Bytes(21, 'x'));
    const Bytes padding = block(0x81, Bytes(16, 0));
    const auto config = flacConfiguration(join({marker, block(0, kStreamInfo), comment, padding}));
    EXPECT_EQ(config.info.sampleRate, 44100u);
    EXPECT_EQ(config.info.channels, 2u);
    EXPECT_EQ(config.info.bitsPerSample, 16u);
    EXPECT_EQ(config.info.minBlockSize, 4608u);
    EXPECT_EQ(config.info.totalSamples, 8820u);
    // Padding goes, and the last-block flag moves to the comment that is now last.
    Bytes expected = join({block(0, kStreamInfo), comment});
    expected[4 + 34] |= 0x80;
    EXPECT_EQ(config.dfla, expected);

    // Without the marker and with a single block the payload is that block, flagged last, as
    // other MP4 writers produce it.
    const auto bare = flacConfiguration(block(0, kStreamInfo));
    EXPECT_EQ(bare.dfla, block(0x80, kStreamInfo));
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
        block(4, Bytes(8, 'x')),                                 // STREAMINFO not first
        block(0, Bytes(33, 0)),                                  // STREAMINFO of the wrong size
        join({block(0, kStreamInfo), block(0x80, kStreamInfo)}), // a second STREAMINFO
        join({block(0, kStreamInfo), block(0x7F, {})}),          // the forbidden block type
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

TEST(Flac, FrameHeaderSamples)
{
    // A frame header from the encoder: 4608 samples, 44.1 kHz, left/side stereo, 16 bits.
    const Bytes encoded{0xff, 0xf8, 0x59, 0x88, 0x00, 0x8a};
    EXPECT_EQ(flacFrameSamples(encoded), 4608u);

    // Block-size codes that carry the size at the end of the header; CRC-8 values computed with
    // the polynomial x^8 + x^2 + x + 1.
    EXPECT_EQ(flacFrameSamples(Bytes{0xff, 0xf8, 0x69, 0x18, 0x00, 0x0f, 0x92}), 16u);
    EXPECT_EQ(flacFrameSamples(Bytes{0xff, 0xf8, 0x79, 0x18, 0x00, 0x12, 0x33, 0xe2}), 4660u);
    EXPECT_EQ(flacFrameSamples(Bytes{0xff, 0xf8, 0x19, 0x18, 0x00, 0xed}), 192u);
}

TEST(Flac, DamagedFrameHeadersAreMalformed)
{
    const std::vector<Bytes> cases{
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
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(codeOf([&] { flacFrameSamples(cases[i]); }), 1u) << "case " << i;
}
