#include "mpeg_audio.h"

#include "engine/failure.h"

#include <array>

namespace qv_audio {
namespace {

// kbit/s by bit rate index (1 to 14); index 0 is free format, 15 is forbidden.
constexpr std::array<std::array<std::uint16_t, 15>, 5> kBitrates{{
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448}, // MPEG-1 layer I
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},    // MPEG-1 layer II
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},     // MPEG-1 layer III
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},    // MPEG-2 layer I
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},         // MPEG-2 layers II, III
}};
constexpr std::array<std::uint32_t, 3> kMpeg1Rates{44100, 48000, 32000};

} // namespace

MpegAudioFrame mpegAudioFrame(std::span<const std::uint8_t> frame)
{
    if (frame.size() < 4) qv::fail(qv::kMalformed);
    const std::uint32_t header = (std::uint32_t{frame[0]} << 24) | (std::uint32_t{frame[1]} << 16) |
                                 (std::uint32_t{frame[2]} << 8) | frame[3];
    if ((header >> 21) != 0x7FF) qv::fail(qv::kMalformed);
    const unsigned versionBits = (header >> 19) & 3;
    const unsigned layerBits = (header >> 17) & 3;
    const unsigned bitrateIndex = (header >> 12) & 15;
    const unsigned rateIndex = (header >> 10) & 3;
    const unsigned padding = (header >> 9) & 1;
    const unsigned mode = (header >> 6) & 3;
    if (versionBits == 1 || layerBits == 0 || bitrateIndex == 15 || rateIndex == 3)
        qv::fail(qv::kMalformed);

    MpegAudioFrame result;
    result.version = versionBits == 3   ? MpegVersion::Mpeg1
                     : versionBits == 2 ? MpegVersion::Mpeg2
                                        : MpegVersion::Mpeg25;
    result.layer = 4 - layerBits;
    const bool mpeg1 = result.version == MpegVersion::Mpeg1;
    result.sampleRate = kMpeg1Rates[rateIndex] >> (mpeg1 ? 0 : versionBits == 2 ? 1 : 2);
    result.channels = mode == 3 ? 1 : 2;
    result.objectType = mpeg1 ? 0x6B : 0x69;

    const std::size_t table = mpeg1 ? result.layer - 1 : (result.layer == 1 ? 3 : 4);
    result.bitrate = std::uint32_t{kBitrates[table][bitrateIndex]} * 1000;
    if (result.layer == 1)
        result.samplesPerFrame = 384;
    else if (result.layer == 2 || mpeg1)
        result.samplesPerFrame = 1152;
    else
        result.samplesPerFrame = 576;

    if (result.bitrate != 0) {
        // Bytes per frame = samples / 8 × bitrate / rate, in slots of 4 bytes for layer I.
        if (result.layer == 1)
            result.frameSize = (12 * result.bitrate / result.sampleRate + padding) * 4;
        else
            result.frameSize =
                result.samplesPerFrame / 8 * result.bitrate / result.sampleRate + padding;
    }
    return result;
}

} // namespace qv_audio
