// FLAC, AC-3 and MP3 tracks in hand-built Matroska files: where their audio facts come from and
// which frames are refused.
#include "engine/matroska.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

#include <bit>

using namespace qv_test;

namespace {

// Sampling frequency element as an 8-byte float.
Bytes rate(double hz)
{
    return el(0xE1, el(0xB5, be(std::bit_cast<std::uint64_t>(hz), 8)));
}

// A 48 kHz stereo AC-3 frame of 128 bytes (32 kbit/s).
Bytes ac3Frame()
{
    return cat({{0x0b, 0x77, 0x00, 0x00, 0x00, 0x40, 0x40}, Bytes(121, 0)});
}

qv::Track demux(const std::string& codec, const Bytes& extra, const Bytes& blocks)
{
    return parsed(matroskaFile(audioTrack(codec, extra), cluster(0, blocks)),
                  [](qv::Reader& reader) { return qv::matroska(reader).tracks.at(0); });
}

std::uint64_t pcmSamples(const std::string& codec, const Bytes& extra, const Bytes& frame)
{
    return demux(codec, extra, simpleBlock(0, true, frame)).samples.at(0).pcmSamples;
}

} // namespace

TEST(CodecTracks, Ac3WithoutAudioElement)
{
    // No Audio element: Matroska's 8 kHz default stands in until the first frame says 48 kHz
    // (frames inside one block are timed at the stand-in rate, which once divided by zero).
    EXPECT_EQ(demux("A_AC3", {}, simpleBlock(0, true, ac3Frame())).audio.sampleRate, 8000u);
    EXPECT_EQ(openCode(matroskaFile(audioTrack("A_AC3", {}),
                                    cluster(0, simpleBlock(0, true, ac3Frame())))),
              0u);
    // Laced frames then sit 192 ms apart where the stream says 32 ms: the container contradicts
    // the stream, and the file is refused rather than played with gaps.
    const Bytes laced = cat({{0x81, 0, 0, 0x80 | 0x04, 1}, ac3Frame(), ac3Frame()});
    EXPECT_EQ(openCode(matroskaFile(audioTrack("A_AC3", {}), cluster(0, el(0xA3, laced)))), 2u);
}

TEST(CodecTracks, SamplesComeFromTheFrames)
{
    // Two AC-3 sync frames in one block are two frames' worth of samples; bytes after the last
    // frame that do not start a new one are not counted.
    EXPECT_EQ(pcmSamples("A_AC3", rate(48000), cat({ac3Frame(), ac3Frame()})), 3072u);
    EXPECT_EQ(pcmSamples("A_AC3", rate(48000), cat({ac3Frame(), Bytes(16, 0)})), 1536u);
    Bytes layer3{0xff, 0xfb, 0x90, 0x64};
    layer3.resize(417, 0);
    EXPECT_EQ(pcmSamples("A_MPEG/L3", rate(44100), layer3), 1152u);
    // A layer II frame in an MP3 track is refused.
    Bytes layer2{0xff, 0xfd, 0x94, 0x00};
    layer2.resize(480, 0);
    EXPECT_EQ(codeOf([&] { pcmSamples("A_MPEG/L3", rate(44100), layer2); }), 2u);
}

TEST(CodecTracks, FlacStreamInfoRateWins)
{
    // STREAMINFO of 44.1 kHz stereo 16-bit, in a track that claims 48 kHz.
    const Bytes codecPrivate = cat({{'f', 'L', 'a', 'C', 0x80, 0, 0, 34}, kStreamInfo});
    const auto track = demux("A_FLAC", cat({el(0x63A2, codecPrivate), rate(48000)}),
                             simpleBlock(0, true, {0xff, 0xf8, 0x59, 0x88, 0x00, 0x8a, 0, 0}));
    EXPECT_EQ(track.sampleRate, 44100u);
    EXPECT_EQ(track.audio.bitsPerSample, 16u);
    EXPECT_EQ(track.samples.at(0).pcmSamples, 4608u);
}

TEST(CodecTracks, AlacTakesItsFactsFromTheConfiguration)
{
    // 4096-sample frames, 24 bits, stereo, 96 kHz, in a track that claims 48 kHz mono.
    const Bytes config{0, 0, 0x10, 0, 0, 24, 40, 10, 14, 2, 0,    255,
                       0, 0, 0,    0, 0, 0,  0,  0,  0,  1, 0x77, 0x00};
    const Bytes full = pack({{1, 3}, {0, 4}, {0, 12}, {0, 1}}, 8);
    const Bytes last = pack({{1, 3}, {0, 4}, {0, 12}, {1, 1}, {0, 2}, {0, 1}, {100, 32}}, 8);
    const auto track = demux("A_ALAC", cat({el(0x63A2, config), rate(48000)}),
                             cat({simpleBlock(0, true, full), simpleBlock(43, true, last)}));
    EXPECT_EQ(track.sampleRate, 96000u);
    EXPECT_EQ(track.audio.channels, 2u);
    EXPECT_EQ(track.audio.bitsPerSample, 24u);
    ASSERT_EQ(track.samples.size(), 2u);
    EXPECT_EQ(track.samples[0].pcmSamples, 4096u);
    EXPECT_EQ(track.samples[1].pcmSamples, 100u);
    // A configuration cut short fails the file.
    EXPECT_EQ(openCode(matroskaFile(
                  audioTrack("A_ALAC", el(0x63A2, Bytes(config.begin(), config.end() - 1))),
                  cluster(0, simpleBlock(0, true, full)))),
              qv::kMalformed);
}
