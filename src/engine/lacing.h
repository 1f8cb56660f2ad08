#pragma once
// Splitting a Matroska block's payload into frames: no lacing, Xiph, fixed-size or EBML lacing.
#include "reader.h"

#include <cstdint>
#include <vector>

namespace qv {

enum class Lacing : std::uint8_t { None = 0, Xiph = 1, Fixed = 2, Ebml = 3 };

struct Frames {
    std::uint64_t dataStart = 0;      // first byte of the first frame
    std::vector<std::uint64_t> sizes; // one per frame; they end exactly at the block's end
};

// position is the first byte after the block's flags; end is the block's end. frames is
// overwritten (its storage is reused from block to block).
void splitLaces(Reader& reader, std::uint64_t position, std::uint64_t end, Lacing lacing,
                Frames& frames);

} // namespace qv
