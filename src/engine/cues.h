#pragma once
// Matroska Cues: where a file's clusters start, found without reading the clusters themselves.
#include "matroska.h"
#include "reader.h"

#include <cstdint>
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

} // namespace qv
