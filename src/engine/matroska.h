#pragma once
// The Matroska/WebM demuxer: validates the file, keeps the tracks the MP4 side can carry and
// indexes every one of their samples.
#include "engine_limits.h"
#include "index.h"
#include "reader.h"

#include <utility>
#include <vector>

namespace qv {

// True when the file starts with the EBML magic.
bool probeMatroska(Reader& reader);

// Clusters spanning parallelFrom bytes or more are indexed by several threads at once (given a
// source with independent handles).
Index matroska(Reader& reader, std::uint64_t parallelFrom = limits::kParallelIndexBytes);

// What a Matroska file says before its first Cluster, for the fragmented layout that indexes
// clusters only when they are read.
struct MatroskaHead {
    Index index;                    // the accepted tracks, without samples
    std::uint64_t segmentStart = 0; // first payload byte of the Segment; Cues count from here
    std::uint64_t segmentEnd = 0;
    std::uint64_t firstCluster = 0; // 0 when the Segment holds no Cluster
    std::uint64_t cues = 0;         // the Cues element when it comes before the first Cluster
    std::vector<std::pair<std::uint64_t, std::uint64_t>> seekHeads; // payload start and end
};

// Reads the header elements up to the first Cluster and nothing after it.
MatroskaHead matroskaHead(Reader& reader);

// Appends the samples of every Cluster in [start, end) to the head's tracks (index as made by
// matroskaHead); other top-level elements in the range are skipped by their size.
void matroskaClusters(Reader& reader, Index& index, std::uint64_t start, std::uint64_t end);

// Appends the one block at `relative` bytes into the payload of the Cluster at `cluster` (where a
// cue points), timed by that Cluster's Timecode.
void matroskaBlock(Reader& reader, Index& index, std::uint64_t cluster, std::uint64_t relative);

// Only the text subtitle tracks (with every event, in time order) and the attachments of a file
// whose other tracks may be anything: the header elements are read leniently (no track entry is
// refused; a Segment cut short is read up to the cut). Events come from the blocks the Cues place
// when they place every text track's blocks, else from one walk of the clusters that stops at the
// first damage, keeping what came before. Fails only when the header cannot be read.
Index matroskaTextTracks(Reader& reader);

} // namespace qv
