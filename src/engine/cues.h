#pragma once
// Matroska Cues: where a file's clusters start, found without reading the clusters themselves.
#include "matroska.h"
#include "reader.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace qv {

struct CueCluster {
    std::uint64_t position = 0; // absolute offset of the Cluster element
    std::uint64_t ticks = 0;    // smallest CueTime pointing at it, in TimecodeScale ticks
};

// The clusters the Cues point at, ordered by position and each listed once. Follows the SeekHead
// (and one SeekHead it points to) when the Cues come after the clusters. Empty when the file has
// no Cues; kMalformed when the Cues are damaged.
std::vector<CueCluster> cueClusters(Reader& reader, const MatroskaHead& head);

// A cue that points at one block of a track.
struct CueBlock {
    std::uint64_t track = 0;
    std::uint64_t cluster = 0; // absolute offset of the Cluster element
    // CueRelativePosition: where the block element starts in the Cluster's payload.
    std::optional<std::uint64_t> relative;
    std::uint64_t ticks = 0;
};

// The cues of the given track numbers, in the Cues' order. Empty when the file has no Cues;
// kMalformed when they are damaged.
std::vector<CueBlock> cueBlocks(Reader& reader, const MatroskaHead& head,
                                const std::vector<std::uint64_t>& tracks);

} // namespace qv
