#include "opus.h"

#include "engine/engine_limits.h"

#include <cstring>

namespace qv_audio {

OpusHead opusHead(const std::vector<std::uint8_t>& data)
{
    if (data.size() < 19 || std::memcmp(data.data(), "OpusHead", 8) != 0)
        qv::fail(qv::kUnsupported);
    OpusHead head;
    head.channels = data[9];
    if (head.channels < 1 || head.channels > qv::limits::kMaxChannels) qv::fail(qv::kMalformed);
    head.preSkip = static_cast<std::uint16_t>(data[10] | (data[11] << 8));
    head.inputRate = static_cast<std::uint32_t>(data[12] | (data[13] << 8) | (data[14] << 16)) |
                     (static_cast<std::uint32_t>(data[15]) << 24);
    head.outputGain = static_cast<std::int16_t>(data[16] | (data[17] << 8));
    head.mappingFamily = data[18];
    if (head.mappingFamily != 0) {
        if (data.size() < 21u + head.channels) qv::fail(qv::kMalformed);
        head.streamCount = data[19];
        head.coupledCount = data[20];
        if (head.streamCount == 0 || head.coupledCount > head.streamCount) qv::fail(qv::kMalformed);
        head.mapping.assign(data.begin() + 21, data.begin() + 21 + head.channels);
    } else if (head.channels > 2) {
        qv::fail(qv::kMalformed);
    }
    return head;
}

std::vector<std::uint8_t> opusSpecificBox(const OpusHead& head)
{
    // Same fields as OpusHead, but big-endian and with version 0.
    std::vector<std::uint8_t> out;
    out.push_back(0);
    out.push_back(head.channels);
    out.push_back(static_cast<std::uint8_t>(head.preSkip >> 8));
    out.push_back(static_cast<std::uint8_t>(head.preSkip));
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<std::uint8_t>(head.inputRate >> shift));
    const auto gain = static_cast<std::uint16_t>(head.outputGain);
    out.push_back(static_cast<std::uint8_t>(gain >> 8));
    out.push_back(static_cast<std::uint8_t>(gain));
    out.push_back(head.mappingFamily);
    if (head.mappingFamily != 0) {
        out.push_back(head.streamCount);
        out.push_back(head.coupledCount);
        out.insert(out.end(), head.mapping.begin(), head.mapping.end());
    }
    return out;
}

std::uint32_t opusPacketSamples(const std::uint8_t* packet, std::uint64_t size)
{
    if (size < 1) qv::fail(qv::kMalformed);
    const unsigned toc = packet[0];
    const unsigned config = toc >> 3;
    // Frame length in 48 kHz samples for each configuration (RFC 6716 table 2).
    std::uint32_t frame;
    if (config < 12) {
        static constexpr std::uint32_t kSilk[4] = {480, 960, 1920, 2880};
        frame = kSilk[config & 3];
    } else if (config < 16) {
        frame = (config & 1) ? 960 : 480;
    } else {
        static constexpr std::uint32_t kCelt[4] = {120, 240, 480, 960};
        frame = kCelt[config & 3];
    }
    std::uint32_t frames;
    switch (toc & 3) {
    case 0:
        frames = 1;
        break;
    case 1:
    case 2:
        frames = 2;
        break;
    default:
        if (size < 2) qv::fail(qv::kMalformed);
        frames = packet[1] & 0x3F;
        if (frames == 0) qv::fail(qv::kMalformed);
        break;
    }
    const std::uint32_t total = frames * frame;
    if (total > qv::limits::kMaxOpusPacketSamples) qv::fail(qv::kMalformed);
    return total;
}

} // namespace qv_audio
