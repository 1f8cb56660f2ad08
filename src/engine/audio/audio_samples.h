#pragma once
// How many PCM samples one audio frame decodes to, by codec.
#include "engine/index.h"
#include "engine/reader.h"

#include <cstdint>

namespace qv_audio {

// The frame lies at position with size bytes in the source. Throws kMalformed for a frame whose
// header is malformed and kUnsupported for a codec without frame logic.
std::uint32_t audioSamples(qv::Reader& reader, const qv::Track& track, std::uint64_t position,
                           std::uint64_t size);

} // namespace qv_audio
