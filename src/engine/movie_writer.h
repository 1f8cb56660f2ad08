#pragma once
// Builds the moov box of the virtual MP4 from the prepared tracks. Every chunk offset is written
// as a 64-bit value, so the box has the same size whatever the offsets are.
#include "box_writer.h"
#include "index.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace qv {

// chunkOffsets holds, per track, one virtual-file offset per sample (each sample is its own
// chunk); all zeros for the first, measuring build.
std::vector<std::uint8_t> writeMovie(const Index& index,
                                     const std::vector<std::vector<std::uint64_t>>& chunkOffsets);

// The same, with more boxes written by tail at the end of the moov (the fragmented layout's mvex).
std::vector<std::uint8_t> writeMovie(const Index& index,
                                     const std::vector<std::vector<std::uint64_t>>& chunkOffsets,
                                     const std::function<void(BoxWriter&)>& tail);

// Which tracks play by default: per kind, the first flagged default, else the first of its kind.
std::vector<bool> enabledTracks(const Index& index);

} // namespace qv
