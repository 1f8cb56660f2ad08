#pragma once
// Apple Lossless in Matroska ("A_ALAC"): the ALACSpecificConfig in CodecPrivate and the frame
// header, for an "alac" sample entry with its "alac" box.
#include <array>
#include <cstdint>
#include <span>

namespace qv_audio {

struct AlacConfiguration {
    std::uint32_t frameLength = 0; // samples per channel in every frame but the last
    std::uint32_t bitDepth = 0;
    std::uint32_t channels = 0;
    std::uint32_t sampleRate = 0;
    std::array<std::uint8_t, 24> config{}; // payload of the "alac" box after version and flags
};

// Parses the 24-byte ALACSpecificConfig, bare or inside its 12-byte "alac" atom header as some
// muxers store it. Throws kMalformed when it is shorter or its values are out of range.
AlacConfiguration alacConfiguration(std::span<const std::uint8_t> codecPrivate);

// Samples per channel in the frame starting with these bytes: the count a shorter (last) frame
// states in its header, else the configuration's frame length. Throws kMalformed for a stated
// count of 0 or above the frame length.
std::uint32_t alacFrameSamples(std::span<const std::uint8_t> frame, std::uint32_t frameLength);

} // namespace qv_audio
