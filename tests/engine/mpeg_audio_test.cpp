#include "engine/audio/audio_error.h"
#include "engine/audio/mpeg_audio.h"

#include <gtest/gtest.h>

#include <vector>

using namespace qv_audio;

namespace {

using Bytes = std::vector<std::uint8_t>;

std::uint32_t codeOf(const Bytes& header)
{
    try {
        mpegAudioFrame(header);
    } catch (const Error& e) {
        return e.code();
    }
    return 0;
}

} // namespace

TEST(MpegAudio, HeadersByVersionAndLayer)
{
    struct Case {
        Bytes header;
        MpegVersion version;
        std::uint32_t layer, rate, channels, bitrate, frameSize, samples;
        std::uint8_t objectType;
    };
    const std::vector<Case> cases{
        // An encoder's MPEG-2 layer III frame: 22.05 kHz mono at 56 kbit/s.
        {{0xff, 0xf3, 0x70, 0xc0}, MpegVersion::Mpeg2, 3, 22050, 1, 56000, 182, 576, 0x69},
        {{0xff, 0xfb, 0x90, 0x64}, MpegVersion::Mpeg1, 3, 44100, 2, 128000, 417, 1152, 0x6B},
        {{0xff, 0xfb, 0x92, 0x64}, MpegVersion::Mpeg1, 3, 44100, 2, 128000, 418, 1152, 0x6B},
        {{0xff, 0xe3, 0x18, 0xc4}, MpegVersion::Mpeg25, 3, 8000, 1, 8000, 72, 576, 0x69},
        {{0xff, 0xfd, 0x94, 0x00}, MpegVersion::Mpeg1, 2, 48000, 2, 160000, 480, 1152, 0x6B},
        {{0xff, 0xff, 0x10, 0x00}, MpegVersion::Mpeg1, 1, 44100, 2, 32000, 32, 384, 0x6B},
        // Free format: no bit rate and no frame size from the header.
        {{0xff, 0xfb, 0x00, 0x00}, MpegVersion::Mpeg1, 3, 44100, 2, 0, 0, 1152, 0x6B},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        const auto f = mpegAudioFrame(c.header);
        EXPECT_EQ(f.version, c.version) << i;
        EXPECT_EQ(f.layer, c.layer) << i;
        EXPECT_EQ(f.sampleRate, c.rate) << i;
        EXPECT_EQ(f.channels, c.channels) << i;
        EXPECT_EQ(f.bitrate, c.bitrate) << i;
        EXPECT_EQ(f.frameSize, c.frameSize) << i;
        EXPECT_EQ(f.samplesPerFrame, c.samples) << i;
        EXPECT_EQ(f.objectType, c.objectType) << i;
    }
}

TEST(MpegAudio, ReservedFieldsAreMalformed)
{
    EXPECT_EQ(codeOf({0xff, 0xfb, 0x90}), 1u);       // truncated
    EXPECT_EQ(codeOf({0xff, 0x1b, 0x90, 0x64}), 1u); // no sync word
    EXPECT_EQ(codeOf({0xff, 0xeb, 0x90, 0x64}), 1u); // reserved version
    EXPECT_EQ(codeOf({0xff, 0xf9, 0x90, 0x64}), 1u); // reserved layer
    EXPECT_EQ(codeOf({0xff, 0xfb, 0xf0, 0x64}), 1u); // forbidden bit rate index
    EXPECT_EQ(codeOf({0xff, 0xfb, 0x9c, 0x64}), 1u); // reserved sampling frequency
}
