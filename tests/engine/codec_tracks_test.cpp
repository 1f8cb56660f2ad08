// FLAC, AC-3 and MP3 tracks in hand-built Matroska files: where their audio facts come from and
// which frames are refused.
#include "engine/audio/audio_error.h"
#include "engine/matroska.h"
#include "engine/qv_media.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace qv_test;

namespace {

Bytes audioTrack(const std::string& codec, const Bytes& extra = {})
{
    return el(0xAE, cat({uintEl(0xD7, 1, 1), uintEl(0x83, 2, 1), textEl(0x86, codec), extra}));
}

// Sampling frequency element as an 8-byte float.
Bytes rate(double hz)
{
    std::uint64_t bits;
    static_assert(sizeof bits == sizeof hz);
    std::memcpy(&bits, &hz, sizeof bits);
    Bytes payload;
    for (int shift = 56; shift >= 0; shift -= 8)
        payload.push_back(std::uint8_t(bits >> shift));
    return el(0xE1, el(0xB5, payload));
}

// A 48 kHz stereo AC-3 frame of 128 bytes (32 kbit/s).
Bytes ac3Frame()
{
    Bytes f{0x0b, 0x77, 0x00, 0x00, 0x00, 0x40, 0x40};
    f.resize(128, 0);
    return f;
}

std::uint32_t openCode(const Bytes& bytes)
{
    TempFile file(bytes);
    std::uint32_t code = 99;
    qv_media_close(qv_media_open(file.path().c_str(), nullptr, nullptr, &code));
    return code;
}

qv::Index demux(const Bytes& bytes)
{
    TempFile file(bytes);
    qv::Reader reader(file.path().c_str(), nullptr, nullptr);
    return qv::matroska(reader);
}

} // namespace

TEST(CodecTracks, Ac3WithoutAudioElement)
{
    // No Audio element: Matroska's 8 kHz default stands in until the first frame says 48 kHz
    // (frames inside one block are timed at the stand-in rate, which once divided by zero).
    const Bytes one =
        matroskaFile(audioTrack("A_AC3"), cluster(0, simpleBlock(0, true, ac3Frame())));
    EXPECT_EQ(demux(one).tracks.at(0).audio.sampleRate, 8000u);
    EXPECT_EQ(openCode(one), 0u);
    // Laced frames then sit 192 ms apart where the stream says 32 ms: the container contradicts
    // the stream, and the file is refused rather than played with gaps.
    const Bytes laced = cat({{0x81, 0, 0, 0x80 | 0x04, 1}, ac3Frame(), ac3Frame()});
    EXPECT_EQ(openCode(matroskaFile(audioTrack("A_AC3"), cluster(0, el(0xA3, laced)))), 2u);
}

TEST(CodecTracks, JoinedAc3SyncFramesCountTogether)
{
    // Two sync frames in one block decode to two frames' worth of samples; bytes after the last
    // frame that do not start a new one are not counted.
    const auto track = audioTrack("A_AC3", rate(48000));
    const Bytes two = cat({ac3Frame(), ac3Frame()});
    const Bytes tail = cat({ac3Frame(), Bytes(16, 0)});
    EXPECT_EQ(demux(matroskaFile(track, cluster(0, simpleBlock(0, true, two))))
                  .tracks.at(0)
                  .samples.at(0)
                  .pcmSamples,
              3072u);
    EXPECT_EQ(demux(matroskaFile(track, cluster(0, simpleBlock(0, true, tail))))
                  .tracks.at(0)
                  .samples.at(0)
                  .pcmSamples,
              1536u);
}

TEST(CodecTracks, FlacStreamInfoRateWins)
{
    // STREAMINFO of 44.1 kHz stereo 16-bit, in a track that claims 48 kHz.
    const Bytes info{0x12, 0x00, 0x12, 0x00, 0x00, 0x04, 0xa3, 0x00, 0x05, 0x08, 0x0a, 0xc4,
                     0x42, 0xf0, 0x00, 0x00, 0x22, 0x74, 0x5d, 0x10, 0x5c, 0xeb, 0x21, 0x2a,
                     0xd5, 0xd3, 0x6e, 0x4f, 0x56, 0x08, 0xde, 0xf3, 0xd8, 0xb7};
    const Bytes codecPrivate = cat({{'f', 'L', 'a', 'C', 0x80, 0, 0, 34}, info});
    const Bytes frame{0xff, 0xf8, 0x59, 0x88, 0x00, 0x8a, 0, 0};
    const auto index =
        demux(matroskaFile(audioTrack("A_FLAC", cat({el(0x63A2, codecPrivate), rate(48000)})),
                           cluster(0, simpleBlock(0, true, frame))));
    const auto& track = index.tracks.at(0);
    EXPECT_EQ(track.sampleRate, 44100u);
    EXPECT_EQ(track.audio.bitsPerSample, 16u);
    EXPECT_EQ(track.samples.at(0).pcmSamples, 4608u);
}

TEST(CodecTracks, Mp3TrackRefusesOtherLayers)
{
    Bytes layer3{0xff, 0xfb, 0x90, 0x64};
    layer3.resize(417, 0);
    Bytes layer2{0xff, 0xfd, 0x94, 0x00};
    layer2.resize(480, 0);
    const auto track = audioTrack("A_MPEG/L3", rate(44100));
    EXPECT_EQ(demux(matroskaFile(track, cluster(0, simpleBlock(0, true, layer3))))
                  .tracks.at(0)
                  .samples.at(0)
                  .pcmSamples,
              1152u);
    try {
        demux(matroskaFile(track, cluster(0, simpleBlock(0, true, layer2))));
        ADD_FAILURE() << "layer II accepted";
    } catch (const qv_audio::Error& e) {
        EXPECT_EQ(e.code(), 2u);
    }
}
