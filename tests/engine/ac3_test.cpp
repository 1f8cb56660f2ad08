#include "engine/audio/ac3.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using namespace qv_audio;
using namespace qv_test;

namespace {

// The first 24 bytes of an encoder's 44.1 kHz stereo E-AC-3 sync frame of 834 bytes.
Bytes eac3Stereo()
{
    Bytes frame{0x0b, 0x77, 0x01, 0xa0, 0x74, 0x87, 0xc0, 0x00, 0x20, 0x84, 0x01, 0x00,
                0x39, 0x00, 0xae, 0x06, 0x06, 0x01, 0x81, 0x87, 0xbd, 0xc7, 0xcf, 0x9f};
    frame.resize(834, 0);
    return frame;
}

// A dependent substream that adds the rear surround pair to a 44.1 kHz programme.
Bytes rearPair()
{
    Bytes out = cat({pack({{0x0B77, 16}, {1, 2}, {0, 3}, {31, 11}}), // dependent, id 0, 64 bytes
                     pack({{1, 2}, {3, 2}, {2, 3}, {0, 1}}), // 44.1 kHz, 6 blocks, 2/0, no LFE
                     // bsid, dialnorm, no compression; custom channel map Lrs/Rrs; no mixing or
                     // informational metadata.
                     pack({{16, 5}, {31, 5}, {0, 1}, {1, 1}, {0x0200, 16}, {0, 1}, {0, 1}})});
    out.resize(64, 0);
    return out;
}

// An encoder's 48 kHz 5.1 frame at 384 kbit/s.
const Bytes kSurround{0x0b, 0x77, 0x1e, 0x8b, 0x1c, 0x40, 0xeb, 0xf8};

} // namespace

TEST(Ac3, SyncFrames)
{
    // The dac3 bytes are what MP4 writers store.
    const auto surround = ac3Frame(kSurround);
    EXPECT_EQ(surround.sampleRate, 48000u);
    EXPECT_EQ(surround.channels, 6u);
    EXPECT_EQ(surround.samplesPerFrame, 1536u);
    EXPECT_EQ(surround.frameSize, 1536u);
    EXPECT_EQ(surround.bitrate, 384000u);
    EXPECT_EQ(surround.dac3, (std::array<std::uint8_t, 3>{0x10, 0x3d, 0xc0}));
    // 44.1 kHz frames alternate between two sizes; the odd frame-size code takes the longer one.
    const auto mono = ac3Frame(Bytes{0x0b, 0x77, 0, 0, 0x41, 0x40, 0x20});
    EXPECT_EQ(mono.sampleRate, 44100u);
    EXPECT_EQ(mono.channels, 1u);
    EXPECT_EQ(mono.frameSize, 140u);
    EXPECT_EQ(mono.dac3, (std::array<std::uint8_t, 3>{0x50, 0x08, 0x00}));

    // Bad sync word, reserved rate, frame-size code out of range, truncated; then half-rate
    // AC-3 and E-AC-3, which are not plain AC-3.
    const std::vector<std::pair<Bytes, std::uint32_t>> refused{
        {{0x0b, 0x78, 0, 0, 0x1c, 0x40, 0xeb, 0xf8}, 1},
        {{0x0b, 0x77, 0, 0, 0xdc, 0x40, 0xeb, 0xf8}, 1},
        {{0x0b, 0x77, 0, 0, 0x26, 0x40, 0xeb, 0xf8}, 1},
        {{0x0b, 0x77, 0, 0, 0x1c, 0x40}, 1},
        {{0x0b, 0x77, 0, 0, 0x1c, 0x48, 0xeb, 0xf8}, 2},
        {eac3Stereo(), 2}};
    for (const auto& [frame, code] : refused)
        EXPECT_EQ(codeOf([&] { ac3Frame(frame); }), code) << int(frame[4]);
}

TEST(Eac3, SubstreamsAndDec3)
{
    const auto frame = eac3Frame(eac3Stereo());
    EXPECT_EQ(frame.sampleRate, 44100u);
    EXPECT_EQ(frame.channels, 2u);
    EXPECT_EQ(frame.samplesPerFrame, 1536u);
    // What MP4 writers store for this stream: 192 kbit/s, one programme, 44.1 kHz, bsid 16, 2/0.
    EXPECT_EQ(frame.dec3, (Bytes{0x06, 0x00, 0x60, 0x04, 0x00}));

    // A dependent substream adds its channel locations to the programme it depends on.
    const auto both = eac3Frame(cat({eac3Stereo(), rearPair()}));
    EXPECT_EQ(both.channels, 2u);
    EXPECT_EQ(both.dec3,
              cat({pack({{206, 13}, {0, 3}}), // (834 + 64) bytes per frame
                   pack({{1, 2}, {16, 5}, {0, 1}, {0, 1}, {0, 3}, {2, 3}, {0, 1}}), // fscod - lfeon
                   pack({{0, 3}, {1, 4}, {0x080, 9}})})); // reserved, num_dep_sub, chan_loc
}

TEST(Eac3, RefusedAccessUnits)
{
    const Bytes whole = eac3Stereo();
    Bytes ac3 = kSurround;
    ac3.resize(1536, 0);
    const std::vector<std::pair<Bytes, std::uint32_t>> cases{
        {rearPair(), 1},          // a dependent substream with nothing to depend on
        {cat({whole, whole}), 1}, // a second programme numbered 0
        {Bytes(whole.begin(), whole.begin() + 24), 1}, // more bytes claimed than the block holds
        {{}, 1},
        {ac3, 2}, // plain AC-3 where E-AC-3 is expected
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(codeOf([&] { eac3Frame(cases[i].first); }), cases[i].second) << i;
}
