// FLAC, AC-3, MP3 and ALAC tracks in hand-built Matroska files: where their audio facts come from
// and which frames are refused.
#include "engine/matroska.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

#include <bit>

using namespace qv_test;

TEST(CodecTracks, FactsComeFromTheStream)
{
    const auto rate = [](double hz) {
        return el(0xE1, el(0xB5, be(std::bit_cast<std::uint64_t>(hz), 8)));
    };
    const Bytes ac3 = cat({{0x0b, 0x77, 0, 0, 0, 0x40, 0x40}, Bytes(121, 0)}); // 48 kHz, 128 bytes
    Bytes layer2{0xff, 0xfd, 0x94, 0x00};
    layer2.resize(480, 0);
    const Bytes flac = cat({{'f', 'L', 'a', 'C', 0x80, 0, 0, 34}, kStreamInfo});
    // ALAC: 4096-sample frames, 24 bits, stereo, 96 kHz; a full frame, then a last one of 100.
    const Bytes alac{0, 0, 0x10, 0, 0, 24, 40, 10, 14, 2, 0,    255,
                     0, 0, 0,    0, 0, 0,  0,  0,  0,  1, 0x77, 0x00};
    const Bytes full = pack({{1, 3}, {0, 4}, {0, 12}, {0, 1}}, 8);
    const Bytes last = pack({{1, 3}, {0, 4}, {0, 12}, {1, 1}, {0, 2}, {0, 1}, {100, 32}}, 8);
    const auto one = [](const Bytes& frame) { return simpleBlock(0, true, frame); };
    struct Case {
        std::string codec;
        Bytes extra, blocks;
        std::uint32_t code;
        // The rate the track claims, the stream's rate, channels and bits per sample (0:
        // unchecked).
        std::array<std::uint32_t, 4> facts;
        std::vector<std::uint64_t> pcmSamples;
    };
    const Case cases[] = {
        // No Audio element: Matroska's 8 kHz default stands in until the first frame says
        // 48 kHz (frames inside one block are timed at the stand-in rate, which once divided by
        // zero). Laced frames then sit 192 ms apart where the stream says 32 ms: the container
        // contradicts the stream, and the file is refused rather than played with gaps.
        {"A_AC3", {}, one(ac3), 0, {8000, 0, 0, 0}, {1536}},
        {"A_AC3", {}, el(0xA3, cat({{0x81, 0, 0, 0x80 | 0x04, 1}, ac3, ac3})), 2, {}, {}},
        // Two AC-3 sync frames in one block are two frames' worth of samples; bytes after the last
        // frame that do not start a new one are not counted.
        {"A_AC3", rate(48000), one(cat({ac3, ac3})), 0, {}, {3072}},
        {"A_AC3", rate(48000), one(cat({ac3, Bytes(16, 0)})), 0, {}, {1536}},
        {"A_MPEG/L3", rate(44100), one(layer2), 2, {}, {}}, // layer II in an MP3 track
        // The stream's own configuration wins over what the track claims (48 kHz, mono).
        {"A_FLAC",
         cat({el(0x63A2, flac), rate(48000)}),
         one({0xff, 0xf8, 0x59, 0x88, 0x00, 0x8a, 0, 0}),
         0,
         {0, 44100, 2, 16},
         {4608}},
        {"A_ALAC",
         cat({el(0x63A2, alac), rate(48000)}),
         cat({one(full), simpleBlock(43, true, last)}),
         0,
         {0, 96000, 2, 24},
         {4096, 100}},
        // An ALAC configuration cut short fails the file.
        {"A_ALAC", el(0x63A2, Bytes(alac.begin(), alac.end() - 1)), one(full), 1, {}, {}},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto& c = cases[i];
        const Bytes file = matroskaFile(audioTrack(c.codec, c.extra), cluster(0, c.blocks));
        EXPECT_EQ(openCode(file), c.code) << i;
        if (c.code != 0) continue;
        const auto track =
            parsed(file, [](qv::Reader& reader) { return qv::matroska(reader).tracks.at(0); });
        const std::array<std::uint32_t, 4> got{track.audio.sampleRate, track.sampleRate,
                                               track.audio.channels, track.audio.bitsPerSample};
        for (std::size_t k = 0; k < 4; ++k) // a fact of 0 is not checked
            EXPECT_EQ(c.facts[k] ? got[k] : 0, c.facts[k]) << i << " " << k;
        std::vector<std::uint64_t> pcm;
        for (const auto& s : track.samples)
            pcm.push_back(s.pcmSamples);
        EXPECT_EQ(pcm, c.pcmSamples) << i;
    }
}
