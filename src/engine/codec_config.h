#pragma once
// Checks each accepted track's codec setup and builds the payload of its MP4 configuration box.
#include "index.h"
#include "reader.h"

namespace qv {

void prepareCodecConfig(Reader& reader, Track& track);

// The vpcC payload for a VP9 track whose first frame starts with these bytes (at most 16 are
// looked at): kMalformed for a broken frame header, kUnsupported for a stream we do not play
// (a first frame that is not a key frame, profiles 1 and 3, RGB).
std::vector<std::uint8_t> vp9Config(const std::vector<std::uint8_t>& firstBytes,
                                    const Track& track);

} // namespace qv
