#pragma once
// The one sample description of a track inside its stsd box, by codec.
#include "box_writer.h"
#include "index.h"

namespace qv {

void writeSampleEntry(BoxWriter& w, const Track& track);

// Display width and height of a video track in pixels (its aspect from the display size).
std::pair<std::uint32_t, std::uint32_t> displaySize(const Track& track);

} // namespace qv
