#pragma once
// MPEG-4 AudioSpecificConfig: plain AAC-LC, optionally with SBR or parametric stereo (explicit or
// through the backward-compatible extension). Anything else the MP4 side cannot carry is refused.
#include "engine/failure.h"
#include "engine/index.h"

#include <cstdint>
#include <vector>

namespace qv_audio {

// Output rate, channels, samples per frame and 16 bits per sample; throws kMalformed for truncated
// or reserved data and kUnsupported for configurations we do not play.
qv::AudioFacts aac(const std::vector<std::uint8_t>& config);

} // namespace qv_audio
