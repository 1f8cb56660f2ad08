#pragma once
// Track preparation: checks every track, converts sample times to each track's timescale and
// works out decode durations, composition offsets and the edit that places the track in the movie.
#include "index.h"
#include "reader.h"

namespace qv {

void prepareTracks(Reader& reader, Index& index);

// Timescale of a video track for a source with this tick length (nanoseconds).
std::uint32_t videoTimescale(std::uint64_t tickNs);

// round(ns * timescale / 1e9), the conversion every sample time goes through.
std::int64_t toTrackUnits(std::int64_t ns, std::uint32_t timescale);

} // namespace qv
