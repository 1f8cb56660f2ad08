// The headers and configurations of every carried codec, from bytes real encoders wrote or built
// field by field: the facts each parser reports, the boxes it derives, and one table of the codes
// damaged or unsupported input fails with.
#include "engine/audio/aac.h"
#include "engine/audio/ac3.h"
#include "engine/audio/alac.h"
#include "engine/audio/flac.h"
#include "engine/audio/mpeg_audio.h"
#include "engine/audio/opus.h"
#include "engine/avc_sps.h"
#include "engine/codec_config.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using namespace qv_audio;
using qv::avcFirstSps;
using qv::avcPictureSize;
using namespace qv_test;

namespace {

// What a parser reports, in one shape for all: sample rate (picture width), channels (picture
// height), samples per frame (an Opus head's pre-skip), and one more: bits per sample for AAC,
// FLAC and ALAC, bytes per frame for AC-3 and MPEG audio.
using Facts = std::array<std::uint32_t, 4>;
using Parse = Facts (*)(const Bytes&);

template <typename F> Facts facts(const F& f, std::uint32_t F::*extra = nullptr)
{
    return {f.sampleRate, f.channels, f.samplesPerFrame, extra ? f.*extra : 0};
}

const Parse kAac = [](const Bytes& b) { return facts(aac(b), &qv::AudioFacts::bitsPerSample); };
const Parse kAc3 = [](const Bytes& b) { return facts(ac3Frame(b), &Ac3Frame::frameSize); };
const Parse kEac3 = [](const Bytes& b) { return facts(eac3Frame(b)); };
const Parse kMpeg = [](const Bytes& b) {
    return facts(mpegAudioFrame(b), &MpegAudioFrame::frameSize);
};
const Parse kFlac = [](const Bytes& b) {
    const auto f = flacConfiguration(b).info;
    return Facts{f.sampleRate, f.channels, f.minBlockSize, f.bitsPerSample};
};
const Parse kFlacFrame = [](const Bytes& b) { return Facts{0, 0, flacFrameSamples(b), 0}; };
const Parse kAlac = [](const Bytes& b) {
    const auto f = alacConfiguration(b);
    return Facts{f.sampleRate, f.channels, f.frameLength, f.bitDepth};
};
const Parse kAlacFrame = [](const Bytes& b) { return Facts{0, 0, alacFrameSamples(b, 4096), 0}; };
const Parse kOpusConfig = [](const Bytes& b) {
    const auto h = opusHead(b);
    return Facts{0, h.channels, h.preSkip, 0};
};
const Parse kOpusPacket = [](const Bytes& b) {
    return Facts{0, 0, opusPacketSamples(b.data(), b.size()), 0};
};
const Parse kSps = [](const Bytes& b) {
    const auto s = avcPictureSize(b);
    return Facts{s.width, s.height, 0, 0};
};
// Only refused here (their good forms are judged on real files, or their boxes below).
const Parse kRecordSps = [](const Bytes& b) { return avcFirstSps(b), Facts{}; };
const Parse kVp9 = [](const Bytes& b) {
    qv::Track t;
    t.pixelWidth = 320;
    t.pixelHeight = 240;
    return vp9Config(b, t), Facts{};
};

Bytes with(Bytes bytes, std::size_t at, std::uint8_t value)
{
    bytes.at(at) = value;
    return bytes;
}

Bytes resized(Bytes bytes, std::size_t size)
{
    bytes.resize(size, 0);
    return bytes;
}

Bytes flacBlock(std::uint8_t head, const Bytes& body)
{
    return cat({{head, 0}, be(body.size(), 2), body});
}

// An encoder's 44.1 kHz stereo E-AC-3 sync frame of 834 bytes (its first 24 bytes, then zeros).
const Bytes kEac3Stereo =
    resized({0x0b, 0x77, 0x01, 0xa0, 0x74, 0x87, 0xc0, 0x00, 0x20, 0x84, 0x01, 0x00,
             0x39, 0x00, 0xae, 0x06, 0x06, 0x01, 0x81, 0x87, 0xbd, 0xc7, 0xcf, 0x9f},
            834);
// A dependent substream that adds the rear surround pair to a 44.1 kHz programme: dependent, id
// 0, 64 bytes; 44.1 kHz, 6 blocks, 2/0, no LFE; bsid 16, dialnorm, no compression, custom channel
// map Lrs/Rrs, no mixing or informational metadata.
const Bytes kRearPair = resized(
    cat({pack({{0x0B77, 16}, {1, 2}, {0, 3}, {31, 11}}), pack({{1, 2}, {3, 2}, {2, 3}, {0, 1}}),
         pack({{16, 5}, {31, 5}, {0, 1}, {1, 1}, {0x0200, 16}, {0, 1}, {0, 1}})}),
    64);
const Bytes kAc3Surround{0x0b, 0x77, 0x1e, 0x8b, 0x1c, 0x40, 0xeb, 0xf8}; // 48 kHz 5.1, 384 kbit/s
// ALACSpecificConfig: 4096-sample frames, 16 bits, stereo, 44.1 kHz.
const Bytes kAlacConfig{0, 0, 0x10, 0, 0, 16, 40, 10, 14, 2, 0,    255,
                        0, 0, 0,    0, 0, 0,  0,  0,  0,  0, 0xAC, 0x44};
const Bytes kOpusHead =
    cat({{'O', 'p', 'u', 's', 'H', 'e', 'a', 'd', 1, 2, 0x38, 0x01, 0x80, 0xBB}, Bytes(5, 0)});
// H.264 parameter sets an encoder wrote. High 4:2:0 1920x1080: 1088 coded lines, 8 cropped.
const Bytes kHigh1080{0x67, 0x64, 0x00, 0x28, 0xac, 0xd9, 0x40, 0x78, 0x02,
                      0x27, 0xe5, 0xc0, 0x44, 0x00, 0x00, 0x03, 0x00, 0x04,
                      0x00, 0x00, 0x03, 0x00, 0xc8, 0x3c, 0x60, 0xc6, 0x58};
const Bytes kSpsRecord = cat({{1, 0x64, 0, 0x28, 0xff, 0xe1},
                              be(kHigh1080.size(), 2),
                              kHigh1080,
                              {1, 0, 4, 0x68, 0xeb, 0xe3, 0xcb}});

} // namespace

// Real encoders' common configurations are judged end to end by the oracle; these are the
// rarer ones.
TEST(CodecHeaders, FactsOfGoodStreams)
{
    const Bytes sbr = pack({{0x2B7, 11}, {5, 5}}); // backward-compatible SBR signalling
    const struct {
        Parse parse;
        Bytes bytes;
        Facts facts;
    } cases[] = {
        // HE-AAC: core 24 kHz, extension 48 kHz, then the LC core type; v2 needs a mono core.
        {kAac, pack({{5, 5}, {6, 4}, {2, 4}, {3, 4}, {2, 5}, {0, 3}}), {48000, 2, 2048, 16}},
        {kAac, pack({{29, 5}, {6, 4}, {1, 4}, {3, 4}, {2, 5}, {0, 3}}), {48000, 2, 2048, 16}},
        // Channel configuration 7 is eight channels; 960-sample frames; an explicit 24-bit rate.
        {kAac, pack({{2, 5}, {3, 4}, {7, 4}, {0, 3}}), {48000, 8, 1024, 16}},
        {kAac, pack({{2, 5}, {3, 4}, {2, 4}, {4, 3}}), {48000, 2, 960, 16}},
        {kAac, pack({{2, 5}, {15, 4}, {22050, 24}, {1, 4}, {0, 3}}), {22050, 1, 1024, 16}},
        // LC 24 kHz with SBR at 48 kHz and PS; SBR flagged off; an extension rate equal to the
        // core's (downsampled SBR).
        {kAac,
         cat({pack({{2, 5}, {6, 4}, {1, 4}, {0, 3}}), sbr,
              pack({{1, 1}, {3, 4}, {0x548, 11}, {1, 1}})}),
         {48000, 2, 2048, 16}},
        {kAac, cat({pack({{2, 5}, {6, 4}, {2, 4}, {0, 3}}), sbr, {0}}), {24000, 2, 1024, 16}},
        {kAac,
         cat({pack({{2, 5}, {3, 4}, {2, 4}, {0, 3}}), sbr, pack({{1, 1}, {3, 4}})}),
         {48000, 2, 1024, 16}},
        // MPEG-2.5; layer II; layer I; free format (no frame size from the header).
        {kMpeg, {0xff, 0xe3, 0x18, 0xc4}, {8000, 1, 576, 72}},
        {kMpeg, {0xff, 0xfd, 0x94, 0x00}, {48000, 2, 1152, 480}},
        {kMpeg, {0xff, 0xff, 0x10, 0x00}, {44100, 2, 384, 32}},
        {kMpeg, {0xff, 0xfb, 0x00, 0x00}, {44100, 2, 1152, 0}},
        // 24-bit FLAC samples are carried (bits per sample - 1 = 0b10111).
        {kFlac, flacBlock(0, with(with(kStreamInfo, 12, 0x43), 13, 0x70)), {44100, 2, 4608, 24}},
        // FLAC block-size codes that carry the size at the end of the header; CRC-8 with x^8 +
        // x^2 + x + 1.
        {kFlacFrame, {0xff, 0xf8, 0x69, 0x18, 0x00, 0x0f, 0x92}, {0, 0, 16, 0}},
        {kFlacFrame, {0xff, 0xf8, 0x79, 0x18, 0x00, 0x12, 0x33, 0xe2}, {0, 0, 4660, 0}},
        {kFlacFrame, {0xff, 0xf8, 0x19, 0x18, 0x00, 0xed}, {0, 0, 192, 0}},
        // A full ALAC frame states no count; a shorter last frame does, after 23 header bits.
        {kAlacFrame, pack({{1, 3}, {0, 4}, {0, 12}, {0, 1}}, 7), {0, 0, 4096, 0}},
        {kAlacFrame,
         pack({{1, 3}, {0, 4}, {0, 12}, {1, 1}, {0, 2}, {0, 1}, {1000, 32}}),
         {0, 0, 1000, 0}},
        // Opus: two SILK 60 ms frames; code 3 with four 2.5 ms frames.
        {kOpusPacket, {(3 << 3) | 1}, {0, 0, 5760, 0}},
        {kOpusPacket, {(16 << 3) | 3, 4}, {0, 0, 480, 0}},
        // H.264: High 4:4:4 1918x1078 crops in single samples; interlaced doubles the vertical
        // unit.
        {kSps,
         {0x67, 0xf4, 0x00, 0x28, 0x91, 0x9b, 0x28, 0x0f, 0x00, 0x44, 0xf7, 0x17, 0x80, 0x88,
          0x00, 0x00, 0x03, 0x00, 0x08, 0x00, 0x00, 0x03, 0x01, 0x90, 0x78, 0xc1, 0x8c, 0xb0},
         {1918, 1078, 0, 0}},
        {kSps, kHigh1080, {1920, 1080, 0, 0}},
        {kSps,
         {0x67, 0x64, 0x00, 0x1e, 0xac, 0xd9, 0x40, 0xb4, 0x24, 0xf5, 0x58, 0x08, 0x80,
          0x00, 0x00, 0x03, 0x00, 0x80, 0x00, 0x00, 0x19, 0x0f, 0x8a, 0x14, 0xcb},
         {718, 572, 0, 0}},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(cases[i].parse(cases[i].bytes), cases[i].facts) << i;
}

// The Opus and VP9 boxes are judged by the oracle through ffmpeg's decoding of real files.
TEST(CodecHeaders, DerivedBoxes)
{
    // What MP4 writers store for these streams. E-AC-3 with a dependent substream: (834 + 64)
    // bytes per frame, fscod to lfeon, reserved, num_dep_sub, chan_loc.
    EXPECT_EQ(eac3Frame(cat({kEac3Stereo, kRearPair})).dec3,
              cat({pack({{206, 13}, {0, 3}}),
                   pack({{1, 2}, {16, 5}, {0, 1}, {0, 1}, {0, 3}, {2, 3}, {0, 1}}),
                   pack({{0, 3}, {1, 4}, {0x080, 9}})}));
    EXPECT_EQ(mpegAudioFrame(Bytes{0xff, 0xf3, 0x70, 0xc0}).objectType, 0x69);
    EXPECT_EQ(mpegAudioFrame(Bytes{0xff, 0xe3, 0x18, 0xc4}).objectType, 0x69);
    // FLAC padding goes, and the last-block flag moves to the comment that is now last; a single
    // bare block becomes that block flagged last, as other MP4 writers produce it.
    const Bytes comment = flacBlock(4, Bytes(21, 'x'));
    const auto flac = flacConfiguration(
        cat({text("fLaC"), flacBlock(0, kStreamInfo), comment, flacBlock(0x81, Bytes(16, 0))}));
    EXPECT_EQ(flac.dfla, cat({flacBlock(0, kStreamInfo), with(comment, 0, 0x84)}));
    EXPECT_EQ(flacConfiguration(flacBlock(0, kStreamInfo)).dfla, flacBlock(0x80, kStreamInfo));
}

TEST(CodecHeaders, RefusalCodes)
{
    constexpr auto kBad = qv::kMalformed, kNo = qv::kUnsupported;
    Bytes zeroRate = kStreamInfo;
    zeroRate[10] = zeroRate[11] = 0;
    zeroRate[12] &= 0x0F;
    const struct {
        Parse parse;
        Bytes bytes;
        std::uint32_t code;
    } cases[] = {
        {kAac, {0x12}, kBad},                                                 // truncated
        {kAac, pack({{2, 5}, {13, 4}, {2, 4}, {0, 3}}), kBad},                // reserved rate index
        {kAac, pack({{31, 5}, {3, 4}, {2, 4}, {0, 3}}), kNo},                 // escape object type
        {kAac, pack({{2, 5}, {15, 4}, {7000, 24}, {2, 4}, {0, 3}}), kNo},     // rate below 8000
        {kAac, pack({{29, 5}, {6, 4}, {2, 4}, {3, 4}, {2, 5}, {0, 3}}), kNo}, // v2, stereo core
        {kAac, pack({{2, 5}, {3, 4}, {2, 4}, {0, 3}, {0x2B6, 11}, {5, 5}, {1, 1}}), kNo}, // sync
        // AC-3: reserved rate, frame-size code out of range (both index tables), truncated; then
        // E-AC-3, which is not plain AC-3.
        {kAc3, {0x0b, 0x77, 0, 0, 0xdc, 0x40, 0xeb, 0xf8}, kBad},
        {kAc3, {0x0b, 0x77, 0, 0, 0x26, 0x40, 0xeb, 0xf8}, kBad},
        {kAc3, {0x0b, 0x77, 0, 0, 0x1c, 0x40}, kBad},
        {kAc3, kEac3Stereo, kNo},
        // E-AC-3: a dependent substream with nothing to depend on, more bytes claimed than the
        // block holds, plain AC-3.
        {kEac3, kRearPair, kBad},
        {kEac3, resized(kEac3Stereo, 24), kBad},
        {kEac3, resized(kAc3Surround, 1536), kNo},
        // MPEG audio: truncated, forbidden bit rate index, reserved sampling frequency (both
        // index tables).
        {kMpeg, {0xff, 0xfb, 0x90}, kBad},
        {kMpeg, {0xff, 0xfb, 0xf0, 0x64}, kBad},
        {kMpeg, {0xff, 0xfb, 0x9c, 0x64}, kBad},
        // FLAC configurations: truncated, STREAMINFO not first, a second STREAMINFO, rate 0,
        // minimum block size 0.
        {kFlac, resized(flacBlock(0, kStreamInfo), 37), kBad},
        {kFlac, flacBlock(4, Bytes(8, 'x')), kBad},
        {kFlac, cat({flacBlock(0, kStreamInfo), flacBlock(0x80, kStreamInfo)}), kBad},
        {kFlac, flacBlock(0, zeroRate), kBad},
        {kFlac, flacBlock(0, with(with(kStreamInfo, 0, 0), 1, 0)), kBad},
        // FLAC frames: CRC mismatch, truncated before the CRC, reserved block-size code 0, a
        // continuation byte leading the number, a 7-byte number.
        {kFlacFrame, {0xff, 0xf8, 0x59, 0x88, 0x00, 0x8b}, kBad},
        {kFlacFrame, {0xff, 0xf8, 0x59, 0x88, 0x00}, kBad},
        {kFlacFrame, {0xff, 0xf8, 0x09, 0x88, 0x00, 0x8a}, kBad},
        {kFlacFrame, {0xff, 0xf8, 0x59, 0x88, 0x80, 0x8a}, kBad},
        {kFlacFrame, {0xff, 0xf8, 0x59, 0x88, 0xfe, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0}, kBad},
        // ALAC: a short configuration, an atom header of size 0, a last frame longer than a full.
        {kAlac, resized(kAlacConfig, 23), kBad},
        {kAlac, cat({be(0, 4), Bytes(kAlacConfig.begin() + 4, kAlacConfig.end())}), kBad},
        {kAlacFrame, pack({{1, 3}, {0, 4}, {0, 12}, {1, 1}, {0, 2}, {0, 1}, {5000, 32}}), kBad},
        // Opus: nine channels without a channel mapping, a head cut short; three 60 ms frames; a
        // code-3 packet without its frame count.
        {kOpusConfig, with(kOpusHead, 9, 9), kBad},
        {kOpusConfig, resized(kOpusHead, 18), kNo},
        {kOpusPacket, {(3 << 3) | 3, 3}, kBad},
        {kOpusPacket, {(16 << 3) | 3}, kBad},
        // SPS: not an SPS, 32 leading zero bits (no encoder writes this), and cropping that
        // removes the whole 16x16 picture.
        {kSps, with(kHigh1080, 0, 0x68), kBad},
        {kSps, {0x67, 0x42, 0, 0x0d, 0, 0, 0, 0, 1}, kBad},
        {kSps, {0x67, 0x42, 0, 0x0d, 0xda, 0x7f, 0x89, 0x40}, kBad},
        // Decoder configuration records: version 2, no SPS, an SPS running past the record, a
        // PPS where the SPS should be.
        {kRecordSps, with(kSpsRecord, 0, 2), kNo},
        {kRecordSps, with(kSpsRecord, 5, 0xe0), kNo},
        {kRecordSps, with(kSpsRecord, 7, std::uint8_t(kSpsRecord.size() - 7)), kBad},
        {kRecordSps, with(kSpsRecord, 8, 0x68), kBad},
        // VP9: sync code, profile 1, RGB, cut short.
        {kVp9, {0x82, 0x49, 0x83, 0x43, 0x40}, kBad},
        {kVp9, {0xA2, 0x49, 0x83, 0x42, 0x40}, kNo},
        {kVp9, {0x82, 0x49, 0x83, 0x42, 0xE0}, kNo},
        {kVp9, {0x82, 0x49}, kBad},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(codeOf([&] { cases[i].parse(cases[i].bytes); }), cases[i].code) << i;
    // Every SPS prefix that ends before the cropping fields runs out of bits.
    for (std::size_t n = 0; n < 11; ++n)
        EXPECT_EQ(codeOf([&] { kSps(resized(kHigh1080, n)); }), kBad) << n;
}
