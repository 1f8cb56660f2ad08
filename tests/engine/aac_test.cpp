#include "engine/audio/aac.h"
#include "engine/audio/bits.h"
#include "engine/audio/opus.h"

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

std::uint32_t codeOf(const Bytes& config)
{
    try {
        qv_audio::aac(config);
    } catch (const qv_audio::Error& e) {
        return e.code();
    }
    return 0;
}

// Packs (value, bits) fields most significant bit first.
Bytes pack(std::initializer_list<std::pair<std::uint32_t, unsigned>> fields)
{
    Bytes out;
    unsigned used = 0;
    for (const auto& [value, bits] : fields) {
        for (unsigned i = bits; i-- > 0;) {
            if (used % 8 == 0) out.push_back(0);
            out.back() |= static_cast<std::uint8_t>(((value >> i) & 1u) << (7 - used % 8));
            ++used;
        }
    }
    return out;
}

} // namespace

TEST(Aac, PlainAndExplicitConfigurations)
{
    auto f = qv_audio::aac({0x12, 0x10}); // LC, 44100 Hz, stereo
    EXPECT_EQ(f.sampleRate, 44100u);
    EXPECT_EQ(f.channels, 2u);
    EXPECT_EQ(f.samplesPerFrame, 1024u);
    EXPECT_EQ(f.bitsPerSample, 16u);

    // HE-AAC: core 24000 Hz, extension 48000 Hz, then the LC core type.
    f = qv_audio::aac(pack({{5, 5}, {6, 4}, {2, 4}, {3, 4}, {2, 5}, {0, 3}}));
    EXPECT_EQ(f.sampleRate, 48000u);
    EXPECT_EQ(f.samplesPerFrame, 2048u);

    // HE-AAC v2 needs a mono core and reports stereo.
    f = qv_audio::aac(pack({{29, 5}, {6, 4}, {1, 4}, {3, 4}, {2, 5}, {0, 3}}));
    EXPECT_EQ(f.channels, 2u);
    EXPECT_EQ(codeOf(pack({{29, 5}, {6, 4}, {2, 4}, {3, 4}, {2, 5}, {0, 3}})), 2u);

    // Channel configuration 7 is eight channels; 960-sample frames; an explicit 24-bit rate.
    EXPECT_EQ(qv_audio::aac(pack({{2, 5}, {3, 4}, {7, 4}, {0, 3}})).channels, 8u);
    EXPECT_EQ(qv_audio::aac(pack({{2, 5}, {3, 4}, {2, 4}, {4, 3}})).samplesPerFrame, 960u);
    EXPECT_EQ(qv_audio::aac(pack({{2, 5}, {15, 4}, {22050, 24}, {1, 4}, {0, 3}})).sampleRate,
              22050u);
}

TEST(Aac, BackwardCompatibleExtension)
{
    // LC 24000 Hz + sync 0x2B7, SBR, extension index 3 (48000), then PS sync 0x548 with PS.
    const auto sbr = pack(
        {{2, 5}, {6, 4}, {1, 4}, {0, 3}, {0x2B7, 11}, {5, 5}, {1, 1}, {3, 4}, {0x548, 11}, {1, 1}});
    const auto f = qv_audio::aac(sbr);
    EXPECT_EQ(f.sampleRate, 48000u);
    EXPECT_EQ(f.channels, 2u);
    EXPECT_EQ(f.samplesPerFrame, 2048u);
    // SBR flagged off: the core alone.
    EXPECT_EQ(qv_audio::aac(pack({{2, 5}, {6, 4}, {2, 4}, {0, 3}, {0x2B7, 11}, {5, 5}, {0, 1}}))
                  .sampleRate,
              24000u);
    // An extension rate equal to the core rate is fine; four times is not.
    EXPECT_EQ(
        qv_audio::aac(pack({{2, 5}, {3, 4}, {2, 4}, {0, 3}, {0x2B7, 11}, {5, 5}, {1, 1}, {3, 4}}))
            .sampleRate,
        48000u);
    EXPECT_EQ(codeOf(pack({{2, 5}, {8, 4}, {2, 4}, {0, 3}, {0x2B7, 11}, {5, 5}, {1, 1}, {1, 4}})),
              2u);
    // An unknown sync word.
    EXPECT_EQ(codeOf(pack({{2, 5}, {3, 4}, {2, 4}, {0, 3}, {0x2B6, 11}, {5, 5}, {1, 1}})), 2u);
}

TEST(Aac, RefusedAndMalformedConfigurations)
{
    EXPECT_EQ(codeOf({0x12}), 1u);                                  // truncated
    EXPECT_EQ(codeOf(pack({{2, 5}, {13, 4}, {2, 4}, {0, 3}})), 1u); // reserved rate index
    EXPECT_EQ(codeOf(pack({{31, 5}, {3, 4}, {2, 4}, {0, 3}})), 2u); // escape object type
    EXPECT_EQ(codeOf(pack({{1, 5}, {3, 4}, {2, 4}, {0, 3}})), 2u);  // AAC Main
    EXPECT_EQ(codeOf(pack({{2, 5}, {3, 4}, {0, 4}, {0, 3}})), 2u);  // channel configuration 0
    EXPECT_EQ(codeOf(pack({{2, 5}, {3, 4}, {2, 4}, {1, 3}})), 2u);  // extension flag
    EXPECT_EQ(codeOf(pack({{2, 5}, {15, 4}, {7000, 24}, {2, 4}, {0, 3}})), 2u); // rate below 8000
}

TEST(Bits, ReadsAcrossBytesAndRefusesOverruns)
{
    const Bytes data = {0xA5, 0x0F};
    qv_audio::Bits bits(data);
    EXPECT_EQ(bits.get(0), 0u);
    EXPECT_EQ(bits.get(3), 0b101u);
    EXPECT_EQ(bits.get(9), 0b001010000u);
    EXPECT_THROW(bits.get(5), qv_audio::Error);
    EXPECT_THROW(bits.get(33), qv_audio::Error);
}

TEST(Opus, HeadAndPacketDurations)
{
    Bytes head = {'O',  'p',  'u',  's',  'H', 'e', 'a', 'd', 1, 2,
                  0x38, 0x01, 0x80, 0xBB, 0,   0,   0,   0,   0};
    const auto h = qv_audio::opusHead(head);
    EXPECT_EQ(h.channels, 2u);
    EXPECT_EQ(h.preSkip, 312u);
    EXPECT_EQ(qv_audio::opusSpecificBox(h), (Bytes{0, 2, 0x01, 0x38, 0, 0, 0xBB, 0x80, 0, 0, 0}));
    head[9] = 9;
    EXPECT_THROW(qv_audio::opusHead(head), qv_audio::Error);
    EXPECT_THROW(qv_audio::opusHead(Bytes(head.begin(), head.begin() + 18)), qv_audio::Error);

    const std::uint8_t celt20ms[1] = {(31 << 3) | 0};
    const std::uint8_t silk60msTwice[1] = {(3 << 3) | 1};
    const std::uint8_t code3[2] = {(16 << 3) | 3, 4};  // four 2.5 ms frames
    const std::uint8_t tooLong[2] = {(3 << 3) | 3, 3}; // three 60 ms frames
    EXPECT_EQ(qv_audio::opusPacketSamples(celt20ms, 1), 960u);
    EXPECT_EQ(qv_audio::opusPacketSamples(silk60msTwice, 1), 5760u);
    EXPECT_EQ(qv_audio::opusPacketSamples(code3, 2), 480u);
    EXPECT_THROW(qv_audio::opusPacketSamples(tooLong, 2), qv_audio::Error);
    EXPECT_THROW(qv_audio::opusPacketSamples(code3, 1), qv_audio::Error);
}
