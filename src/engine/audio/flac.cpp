#include "flac.h"

#include "engine/bit_cursor.h"
#include "engine/failure.h"

#include <array>

namespace qv_audio {
namespace {

using Cursor = qv::BitCursor;

constexpr std::uint8_t kStreamInfo = 0;
constexpr std::uint8_t kPadding = 1;
constexpr std::uint8_t kInvalidBlock = 127;
constexpr std::size_t kStreamInfoSize = 34;

FlacStreamInfo readStreamInfo(std::span<const std::uint8_t> body)
{
    Cursor bits(body);
    FlacStreamInfo info;
    info.minBlockSize = static_cast<std::uint32_t>(bits.bits(16));
    info.maxBlockSize = static_cast<std::uint32_t>(bits.bits(16));
    bits.skip(48); // minimum and maximum frame size
    info.sampleRate = static_cast<std::uint32_t>(bits.bits(20));
    info.channels = static_cast<std::uint32_t>(bits.bits(3)) + 1;
    info.bitsPerSample = static_cast<std::uint32_t>(bits.bits(5)) + 1;
    info.totalSamples = bits.bits(36);
    // Block sizes below 16 samples are forbidden except for a stream's last frame.
    if (info.minBlockSize < 16 || info.maxBlockSize < info.minBlockSize) qv::fail(qv::kMalformed);
    if (info.sampleRate == 0) qv::fail(qv::kMalformed);
    if (info.bitsPerSample < 4) qv::fail(qv::kMalformed);
    // 32-bit samples are a late addition to the format that platform decoders do not take.
    if (info.bitsPerSample > 24) qv::fail(qv::kUnsupported);
    return info;
}

std::uint8_t crc8(std::span<const std::uint8_t> bytes)
{
    std::uint8_t crc = 0;
    for (std::uint8_t byte : bytes) {
        crc ^= byte;
        for (int i = 0; i < 8; ++i)
            crc = (crc & 0x80) ? static_cast<std::uint8_t>((crc << 1) ^ 0x07)
                               : static_cast<std::uint8_t>(crc << 1);
    }
    return crc;
}

} // namespace

FlacConfiguration flacConfiguration(std::span<const std::uint8_t> data)
{
    static constexpr std::array<std::uint8_t, 4> kMarker{'f', 'L', 'a', 'C'};
    if (data.size() >= 4 && std::equal(kMarker.begin(), kMarker.end(), data.begin()))
        data = data.subspan(4);

    FlacConfiguration result;
    std::size_t position = 0;
    bool sawStreamInfo = false;
    std::size_t lastHeader = 0;
    bool last = false;
    while (!last) {
        if (data.size() - position < 4) qv::fail(qv::kMalformed);
        const std::uint8_t head = data[position];
        last = (head & 0x80) != 0;
        const std::uint8_t type = head & 0x7F;
        const std::size_t length = (std::size_t{data[position + 1]} << 16) |
                                   (std::size_t{data[position + 2]} << 8) | data[position + 3];
        if (length > data.size() - position - 4) qv::fail(qv::kMalformed);
        const auto body = data.subspan(position + 4, length);
        if (type == kInvalidBlock) qv::fail(qv::kMalformed);
        if (!sawStreamInfo) {
            if (type != kStreamInfo || length != kStreamInfoSize) qv::fail(qv::kMalformed);
            result.info = readStreamInfo(body);
            sawStreamInfo = true;
        } else if (type == kStreamInfo) {
            qv::fail(qv::kMalformed); // only one STREAMINFO per stream
        }
        if (type != kPadding) {
            lastHeader = result.dfla.size();
            result.dfla.push_back(type);
            result.dfla.insert(result.dfla.end(), data.begin() + position + 1,
                               data.begin() + position + 4 + length);
        }
        position += 4 + length;
        // Muxers are known to leave out the last-block flag; the end of the data ends the list.
        if (position == data.size()) last = true;
    }
    result.dfla[lastHeader] |= 0x80;
    return result;
}

std::uint32_t flacFrameSamples(std::span<const std::uint8_t> frame)
{
    Cursor bits(frame);
    if (bits.bits(14) != 0x3FFE) qv::fail(qv::kMalformed);
    if (bits.flag()) qv::fail(qv::kMalformed); // reserved
    const bool variableBlocking = bits.flag();
    const auto blockCode = static_cast<unsigned>(bits.bits(4));
    const auto rateCode = static_cast<unsigned>(bits.bits(4));
    const auto channelCode = static_cast<unsigned>(bits.bits(4));
    const auto sizeCode = static_cast<unsigned>(bits.bits(3));
    if (bits.flag()) qv::fail(qv::kMalformed); // reserved
    if (blockCode == 0 || rateCode == 15 || channelCode > 10 || sizeCode == 3)
        qv::fail(qv::kMalformed);

    // The coded frame or sample number: UTF-8 style, up to 7 bytes for 36-bit sample numbers.
    const auto lead = static_cast<std::uint8_t>(bits.bits(8));
    int extra = 0;
    if (lead >= 0x80) {
        if (lead == 0xFF || (lead & 0xC0) == 0x80) qv::fail(qv::kMalformed);
        for (std::uint8_t mask = 0x40; lead & mask; mask >>= 1)
            ++extra;
        if (extra > (variableBlocking ? 6 : 5)) qv::fail(qv::kMalformed);
    }
    for (int i = 0; i < extra; ++i) {
        if ((bits.bits(8) & 0xC0) != 0x80) qv::fail(qv::kMalformed);
    }

    std::uint32_t samples = 0;
    if (blockCode == 1)
        samples = 192;
    else if (blockCode <= 5)
        samples = 576u << (blockCode - 2);
    else if (blockCode == 6)
        samples = static_cast<std::uint32_t>(bits.bits(8)) + 1;
    else if (blockCode == 7)
        samples = static_cast<std::uint32_t>(bits.bits(16)) + 1;
    else
        samples = 256u << (blockCode - 8);

    if (rateCode == 12)
        bits.skip(8);
    else if (rateCode == 13 || rateCode == 14)
        bits.skip(16);

    const auto headerBytes = static_cast<std::size_t>(bits.position() / 8);
    const auto crc = static_cast<std::uint8_t>(bits.bits(8));
    if (crc8(frame.first(headerBytes)) != crc) qv::fail(qv::kMalformed);
    return samples;
}

} // namespace qv_audio
