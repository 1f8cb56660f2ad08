#pragma once
// Picture size from an H.264 sequence parameter set, for AVC tracks whose container does not state
// it (FLV) or states it without cropping.
#include <cstdint>
#include <span>

namespace qv {

struct AvcPictureSize {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

// Reads the cropped picture size from one sequence parameter set NAL unit (header byte included,
// emulation-prevention bytes still in place). Throws Failure(1) for malformed or truncated data,
// a picture without area or one beyond the engine's dimension limit.
AvcPictureSize avcPictureSize(std::span<const std::uint8_t> sps);

// The first sequence parameter set of an AVC decoder configuration record ("avcC"). Throws
// Failure(2) for a record of another version or without parameter sets, Failure(1) when the
// first parameter set is shorter than 4 bytes, overruns the record or is not an SPS NAL unit.
std::span<const std::uint8_t> avcFirstSps(std::span<const std::uint8_t> record);

} // namespace qv
