#include "alac.h"

#include "engine/bit_cursor.h"
#include "engine/engine_limits.h"
#include "engine/failure.h"

#include <algorithm>
#include <cstring>

namespace qv_audio {
namespace {

constexpr std::size_t kConfigSize = 24;
constexpr std::size_t kAtomHeader = 12; // size, "alac", version and flags

std::uint32_t be32(const std::uint8_t* p)
{
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
           p[3];
}

} // namespace

AlacConfiguration alacConfiguration(std::span<const std::uint8_t> data)
{
    if (data.size() >= kAtomHeader + kConfigSize && std::memcmp(data.data() + 4, "alac", 4) == 0)
        data = data.subspan(kAtomHeader);
    qv::require(data.size() >= kConfigSize);
    AlacConfiguration c;
    c.frameLength = be32(data.data());
    c.bitDepth = data[5];
    c.channels = data[9];
    c.sampleRate = be32(data.data() + 20);
    qv::require(c.frameLength >= 1 && c.frameLength <= qv::limits::kMaxAlacFrameLength);
    qv::require(c.bitDepth == 16 || c.bitDepth == 20 || c.bitDepth == 24 || c.bitDepth == 32);
    qv::require(c.channels >= 1 && c.channels <= qv::limits::kMaxChannels);
    qv::require(c.sampleRate >= 1);
    std::copy_n(data.begin(), kConfigSize, c.config.begin());
    return c;
}

std::uint32_t alacFrameSamples(std::span<const std::uint8_t> frame, std::uint32_t frameLength)
{
    qv::BitCursor bits(frame);
    bits.skip(3 + 4 + 12); // element type, instance tag, unused bits
    const bool statesCount = bits.flag();
    if (!statesCount) return frameLength;
    bits.skip(2 + 1); // bytes of uncompressed low bits, not-compressed flag
    const auto count = bits.bits(32);
    qv::require(count >= 1 && count <= frameLength);
    return static_cast<std::uint32_t>(count);
}

} // namespace qv_audio
