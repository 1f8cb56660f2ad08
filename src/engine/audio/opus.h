#pragma once
// Opus in Matroska: the OpusHead identification header and the packet TOC (RFC 6716, 7845).
#include "engine/failure.h"

#include <cstdint>
#include <vector>

namespace qv_audio {

struct OpusHead {
    std::uint8_t channels = 0;
    std::uint16_t preSkip = 0;
    std::uint32_t inputRate = 0;
    std::int16_t outputGain = 0;
    std::uint8_t mappingFamily = 0;
    std::uint8_t streamCount = 0;
    std::uint8_t coupledCount = 0;
    std::vector<std::uint8_t> mapping; // one entry per channel when the family is not 0
};

// kUnsupported unless the data is at least 19 bytes and begins with "OpusHead"; kMalformed for a
// channel count outside 1 to 8 or a truncated mapping table.
OpusHead opusHead(const std::vector<std::uint8_t>& data);

// The payload of the dOps box built from the identification header.
std::vector<std::uint8_t> opusSpecificBox(const OpusHead& head);

// Samples at 48 kHz that one packet decodes to, from its TOC byte (and frame count byte for
// code 3). kMalformed for an empty or inconsistent packet or more than 120 ms.
std::uint32_t opusPacketSamples(const std::uint8_t* packet, std::uint64_t size);

} // namespace qv_audio
