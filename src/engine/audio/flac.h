#pragma once
// FLAC stream information and frame headers, for FLAC tracks carried in Matroska and written to MP4
// as a "fLaC" sample entry with a "dfLa" box.
#include <cstdint>
#include <span>
#include <vector>

namespace qv_audio {

struct FlacStreamInfo {
    std::uint32_t minBlockSize = 0;
    std::uint32_t maxBlockSize = 0;
    std::uint32_t sampleRate = 0;
    std::uint32_t channels = 0;
    std::uint32_t bitsPerSample = 0;
    std::uint64_t totalSamples = 0; // 0 when unknown
};

struct FlacConfiguration {
    FlacStreamInfo info;
    // Payload of the "dfLa" full box (after its version and flags): the metadata blocks,
    // STREAMINFO first, padding dropped, and the last-block flag set on the last block only.
    std::vector<std::uint8_t> dfla;
};

// Parses codec private data: the "fLaC" marker (optional, as some muxers leave it out) followed by
// metadata blocks, the first being STREAMINFO. Throws kMalformed for truncated or inconsistent
// blocks, kUnsupported for streams the MP4 side cannot carry (samples wider than 24 bits).
FlacConfiguration flacConfiguration(std::span<const std::uint8_t> codecPrivate);

// Samples per channel in the frame that starts with the given bytes. The header's CRC-8 is
// checked. Throws kMalformed for a bad sync code, reserved values or a CRC mismatch.
std::uint32_t flacFrameSamples(std::span<const std::uint8_t> frame);

} // namespace qv_audio
