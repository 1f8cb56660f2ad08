#include "engine/audio/mpeg_audio.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using namespace qv_audio;
using qv_test::Bytes;

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
    for (const Case& c : cases) {
        const auto f = mpegAudioFrame(c.header);
        const std::vector<std::uint32_t> got{f.layer,     f.sampleRate,      f.channels,  f.bitrate,
                                             f.frameSize, f.samplesPerFrame, f.objectType};
        EXPECT_EQ(f.version, c.version) << c.bitrate;
        EXPECT_EQ(got, (std::vector<std::uint32_t>{c.layer, c.rate, c.channels, c.bitrate,
                                                   c.frameSize, c.samples, c.objectType}));
    }
    const std::vector<Bytes> malformed{
        {0xff, 0xfb, 0x90},       // truncated
        {0xff, 0x1b, 0x90, 0x64}, // no sync word
        {0xff, 0xeb, 0x90, 0x64}, // reserved version
        {0xff, 0xf9, 0x90, 0x64}, // reserved layer
        {0xff, 0xfb, 0xf0, 0x64}, // forbidden bit rate index
        {0xff, 0xfb, 0x9c, 0x64}, // reserved sampling frequency
    };
    for (const Bytes& header : malformed)
        EXPECT_EQ(qv_test::codeOf([&] { mpegAudioFrame(header); }), 1u) << int(header[1]);
}
