#pragma once
// AC-3 and E-AC-3 sync frames, for Dolby audio tracks carried in Matroska and written to MP4 as
// "ac-3" + "dac3" and "ec-3" + "dec3" sample entries.
#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace qv_audio {

struct Ac3Frame {
    std::uint32_t sampleRate = 0;
    std::uint32_t channels = 0;         // full-bandwidth channels plus the LFE channel
    std::uint32_t samplesPerFrame = 0;  // 1536 for AC-3; 256 per audio block for E-AC-3
    std::uint32_t frameSize = 0;        // bytes of this sync frame
    std::uint32_t bitrate = 0;          // bits per second
    std::array<std::uint8_t, 3> dac3{}; // payload of the "dac3" box
};

// Parses the sync frame at the start of `frame` (an A_AC3 block). Throws kMalformed for a bad sync
// word or reserved codes, kUnsupported for bitstream versions that are not plain AC-3.
Ac3Frame ac3Frame(std::span<const std::uint8_t> frame);

struct Eac3Frame {
    std::uint32_t sampleRate = 0;
    std::uint32_t channels = 0;        // of the first independent substream
    std::uint32_t samplesPerFrame = 0; // 256 × audio blocks per sync frame
    std::vector<std::uint8_t> dec3;    // payload of the "dec3" box
};

// Parses every sync frame in `frame` (an A_EAC3 block: one independent substream and its
// dependent substreams, possibly followed by further programmes) into the facts of the first
// independent substream and the "dec3" payload that describes them all. Throws kMalformed for
// damaged frames, kUnsupported for bitstream versions outside E-AC-3.
Eac3Frame eac3Frame(std::span<const std::uint8_t> frame);

// The fields of one E-AC-3 sync frame header needed to walk an access unit and count its samples
// (at least 5 bytes are read). Throws like eac3Frame.
struct Eac3Header {
    bool dependent = false;
    std::uint32_t substream = 0;
    std::uint32_t frameSize = 0; // bytes
    std::uint32_t samples = 0;   // per channel
};
Eac3Header eac3Header(std::span<const std::uint8_t> frame);

} // namespace qv_audio
