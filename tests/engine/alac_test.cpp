// Apple Lossless: the ALACSpecificConfig (bare and inside its atom header) and the sample count of
// full and shortened frames.
#include "engine/audio/alac.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using namespace qv_test;

namespace {

// An ALACSpecificConfig: 4096-sample frames, 16 bits, stereo, 44.1 kHz.
const Bytes kAlacConfig{0, 0, 0x10, 0, 0, 16, 40, 10, 14, 2, 0,    255,
                        0, 0, 0,    0, 0, 0,  0,  0,  0,  0, 0xAC, 0x44};

} // namespace

TEST(Alac, ConfigurationAndFrames)
{
    const auto c = qv_audio::alacConfiguration(kAlacConfig);
    EXPECT_EQ(c.frameLength, 4096u);
    EXPECT_EQ(c.bitDepth, 16u);
    EXPECT_EQ(c.channels, 2u);
    EXPECT_EQ(c.sampleRate, 44100u);
    // Inside its atom header, as some muxers store it.
    const Bytes atom = cat({be(36, 4), text("alac"), be(0, 4), kAlacConfig});
    EXPECT_EQ(qv_audio::alacConfiguration(atom).config, c.config);

    const std::pair<Bytes, std::uint32_t> broken[] = {
        {Bytes(kAlacConfig.begin(), kAlacConfig.end() - 1), qv::kMalformed}, // short
        {cat({be(0, 4), Bytes(kAlacConfig.begin() + 4, kAlacConfig.end())}), qv::kMalformed},
    };
    for (const auto& [bytes, code] : broken)
        EXPECT_EQ(codeOf([&] { qv_audio::alacConfiguration(bytes); }), code);

    // A full frame states no count; a shorter last frame does, after 23 header bits.
    EXPECT_EQ(qv_audio::alacFrameSamples(pack({{1, 3}, {0, 4}, {0, 12}, {0, 1}}, 7), 4096), 4096u);
    EXPECT_EQ(qv_audio::alacFrameSamples(
                  pack({{1, 3}, {0, 4}, {0, 12}, {1, 1}, {0, 2}, {0, 1}, {1000, 32}}), 4096),
              1000u);
    EXPECT_EQ(codeOf([&] {
                  qv_audio::alacFrameSamples(
                      pack({{1, 3}, {0, 4}, {0, 12}, {1, 1}, {0, 2}, {0, 1}, {5000, 32}}), 4096);
              }),
              qv::kMalformed);
}
