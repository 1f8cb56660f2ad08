#pragma once
// MPEG-1/2/2.5 audio frame headers (layers I to III), for A_MPEG/L3 tracks carried in Matroska and
// written to MP4 as an ".mp3" sample entry.
#include <cstdint>
#include <span>

namespace qv_audio {

enum class MpegVersion : std::uint8_t { Mpeg1 = 1, Mpeg2 = 2, Mpeg25 = 3 };

struct MpegAudioFrame {
    MpegVersion version = MpegVersion::Mpeg1;
    std::uint32_t layer = 0; // 1, 2 or 3
    std::uint32_t sampleRate = 0;
    std::uint32_t channels = 0;
    std::uint32_t bitrate = 0;   // bits per second; 0 for free format
    std::uint32_t frameSize = 0; // bytes including the header; 0 for free format
    std::uint32_t samplesPerFrame = 0;
    // MPEG-4 object type indication for an elementary stream descriptor: 0x6B for MPEG-1 audio,
    // 0x69 for the MPEG-2 low sampling frequency extension (MPEG-2.5 uses it too).
    std::uint8_t objectType = 0;
};

// Parses the 4-byte header at the start of `frame`. Throws kMalformed for a missing sync word or
// reserved fields.
MpegAudioFrame mpegAudioFrame(std::span<const std::uint8_t> frame);

} // namespace qv_audio
