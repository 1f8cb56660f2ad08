#include "engine/audio/aac.h"
#include "engine/audio/opus.h"
#include "engine/bit_cursor.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using namespace qv_test;

TEST(Aac, Configurations)
{
    struct Case {
        Bytes config;
        std::uint32_t rate, channels, samples;
    };
    const std::vector<Case> cases{
        {{0x12, 0x10}, 44100, 2, 1024}, // LC, 44100 Hz, stereo
        // HE-AAC: core 24000 Hz, extension 48000 Hz, then the LC core type.
        {pack({{5, 5}, {6, 4}, {2, 4}, {3, 4}, {2, 5}, {0, 3}}), 48000, 2, 2048},
        // HE-AAC v2 needs a mono core and reports stereo.
        {pack({{29, 5}, {6, 4}, {1, 4}, {3, 4}, {2, 5}, {0, 3}}), 48000, 2, 2048},
        // Channel configuration 7 is eight channels; 960-sample frames; an explicit 24-bit rate.
        {pack({{2, 5}, {3, 4}, {7, 4}, {0, 3}}), 48000, 8, 1024},
        {pack({{2, 5}, {3, 4}, {2, 4}, {4, 3}}), 48000, 2, 960},
        {pack({{2, 5}, {15, 4}, {22050, 24}, {1, 4}, {0, 3}}), 22050, 1, 1024},
        // Backward-compatible signalling: LC 24000 Hz + sync 0x2B7, SBR, extension 48000 Hz,
        // then PS sync 0x548 with PS.
        {pack({{2, 5},
               {6, 4},
               {1, 4},
               {0, 3},
               {0x2B7, 11},
               {5, 5},
               {1, 1},
               {3, 4},
               {0x548, 11},
               {1, 1}}),
         48000, 2, 2048},
        // SBR flagged off: the core alone; an extension rate equal to the core rate is fine
        // (downsampled SBR: 1024 output samples).
        {pack({{2, 5}, {6, 4}, {2, 4}, {0, 3}, {0x2B7, 11}, {5, 5}, {0, 1}}), 24000, 2, 1024},
        {pack({{2, 5}, {3, 4}, {2, 4}, {0, 3}, {0x2B7, 11}, {5, 5}, {1, 1}, {3, 4}}), 48000, 2,
         1024},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto f = qv_audio::aac(cases[i].config);
        EXPECT_EQ(f.sampleRate, cases[i].rate) << i;
        EXPECT_EQ(f.channels, cases[i].channels) << i;
        EXPECT_EQ(f.samplesPerFrame, cases[i].samples) << i;
        EXPECT_EQ(f.bitsPerSample, 16u) << i;
    }
}

TEST(Aac, RefusedAndMalformedConfigurations)
{
    const std::vector<std::pair<Bytes, std::uint32_t>> cases{
        {{0x12}, 1},                                                  // truncated
        {pack({{2, 5}, {13, 4}, {2, 4}, {0, 3}}), 1},                 // reserved rate index
        {pack({{31, 5}, {3, 4}, {2, 4}, {0, 3}}), 2},                 // escape object type
        {pack({{1, 5}, {3, 4}, {2, 4}, {0, 3}}), 2},                  // AAC Main
        {pack({{2, 5}, {3, 4}, {0, 4}, {0, 3}}), 2},                  // channel configuration 0
        {pack({{2, 5}, {3, 4}, {2, 4}, {1, 3}}), 2},                  // extension flag
        {pack({{2, 5}, {15, 4}, {7000, 24}, {2, 4}, {0, 3}}), 2},     // rate below 8000
        {pack({{29, 5}, {6, 4}, {2, 4}, {3, 4}, {2, 5}, {0, 3}}), 2}, // HE-AAC v2, stereo core
        {pack({{2, 5}, {8, 4}, {2, 4}, {0, 3}, {0x2B7, 11}, {5, 5}, {1, 1}, {1, 4}}), 2}, // 4x rate
        {pack({{2, 5}, {3, 4}, {2, 4}, {0, 3}, {0x2B6, 11}, {5, 5}, {1, 1}}), 2}, // unknown sync
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(codeOf([&] { qv_audio::aac(cases[i].first); }), cases[i].second) << i;
}

TEST(BitCursor, ReadsAcrossBytesAndRefusesOverruns)
{
    const Bytes data = {0xA5, 0x0F};
    qv::BitCursor bits(data);
    EXPECT_EQ(bits.bits(0), 0u);
    EXPECT_EQ(bits.bits(3), 0b101u);
    EXPECT_EQ(bits.bits(9), 0b001010000u);
    EXPECT_EQ(codeOf([&] { bits.bits(5); }), qv::kMalformed);
    EXPECT_EQ(codeOf([&] { bits.bits(65); }), qv::kMalformed);
}

TEST(Opus, HeadAndPacketDurations)
{
    Bytes head =
        cat({{'O', 'p', 'u', 's', 'H', 'e', 'a', 'd', 1, 2, 0x38, 0x01, 0x80, 0xBB}, Bytes(5, 0)});
    const auto h = qv_audio::opusHead(head);
    EXPECT_EQ(h.channels, 2u);
    EXPECT_EQ(h.preSkip, 312u);
    EXPECT_EQ(qv_audio::opusSpecificBox(h), (Bytes{0, 2, 0x01, 0x38, 0, 0, 0xBB, 0x80, 0, 0, 0}));
    head[9] = 9;
    EXPECT_THROW(qv_audio::opusHead(head), qv::Failure);
    EXPECT_THROW(qv_audio::opusHead(Bytes(head.begin(), head.begin() + 18)), qv::Failure);

    const std::uint8_t celt20ms[1] = {(31 << 3) | 0};
    const std::uint8_t silk60msTwice[1] = {(3 << 3) | 1};
    const std::uint8_t code3[2] = {(16 << 3) | 3, 4};  // four 2.5 ms frames
    const std::uint8_t tooLong[2] = {(3 << 3) | 3, 3}; // three 60 ms frames
    EXPECT_EQ(qv_audio::opusPacketSamples(celt20ms, 1), 960u);
    EXPECT_EQ(qv_audio::opusPacketSamples(silk60msTwice, 1), 5760u);
    EXPECT_EQ(qv_audio::opusPacketSamples(code3, 2), 480u);
    EXPECT_THROW(qv_audio::opusPacketSamples(tooLong, 2), qv::Failure);
    EXPECT_THROW(qv_audio::opusPacketSamples(code3, 1), qv::Failure);
}
