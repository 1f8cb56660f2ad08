#pragma once
// Whether an MPEG transport stream carries audio and video, from the stream types that its
// programme map tables list. The player does not remux transport streams; it only needs this
// answer to choose a playback backend.
#include <cstdint>
#include <span>

namespace qv_transport {

// Scans the start of a file (the caller reads at most limits::kTransportScanBytes) and returns
// QV_MEDIA_HAS_AUDIO | QV_MEDIA_HAS_VIDEO as found, 0 when the data is not a transport stream or
// lists neither. Never throws for bad data: damaged packets and sections are skipped.
std::uint32_t presence(std::span<const std::uint8_t> data);

// The MPEG-2 section CRC-32 (polynomial 0x04C11DB7, all-ones start, no final inversion). Run over a
// whole section including its CRC field it gives 0.
std::uint32_t sectionCrc(std::span<const std::uint8_t> bytes);

} // namespace qv_transport
