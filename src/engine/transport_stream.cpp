#include "transport_stream.h"

#include "engine_limits.h"
#include "index.h"

#include <array>
#include <map>
#include <optional>
#include <vector>

namespace qv_transport {
namespace {

constexpr std::size_t kPacket = 188;
constexpr std::uint8_t kSync = 0x47;
constexpr std::uint16_t kPatPid = 0;
constexpr std::uint16_t kNullPid = 0x1FFF;
constexpr std::uint8_t kPatTable = 0;
constexpr std::uint8_t kPmtTable = 2;
constexpr std::uint32_t kMinSectionLength = 9;
constexpr std::uint32_t kMaxSectionLength = 1021;

struct Grid {
    std::size_t size = 0;
    std::size_t start = 0;
};

Grid findGrid(std::span<const std::uint8_t> data)
{
    for (std::size_t size : {188u, 192u, 204u}) {
        for (std::size_t start : {0u, 4u}) {
            if (data.size() < start + 5 * size) continue;
            bool aligned = true;
            for (std::size_t i = 0; i < 5 && aligned; ++i)
                aligned = data[start + i * size] == kSync;
            if (aligned) return {size, start};
        }
    }
    return {};
}

// The kind of track a programme map stream type carries; none for other types.
std::optional<qv::TrackKind> streamKind(std::uint8_t type)
{
    switch (type) {
    case 0x01:
    case 0x02:
    case 0x10:
    case 0x1B:
    case 0x24:
    case 0x33:
        return qv::kVideo;
    case 0x03:
    case 0x04:
    case 0x0F:
    case 0x11:
    case 0x81:
    case 0x87:
        return qv::kAudio;
    default:
        return std::nullopt;
    }
}

std::uint32_t presenceBit(std::optional<qv::TrackKind> kind)
{
    if (!kind) return 0;
    return *kind == qv::kVideo ? QV_MEDIA_HAS_VIDEO : QV_MEDIA_HAS_AUDIO;
}

class Scan {
public:
    std::uint32_t found = 0;

    void packet(std::span<const std::uint8_t, kPacket> p)
    {
        if (p[0] != kSync || (p[1] & 0x80)) return;
        const auto pid = static_cast<std::uint16_t>(((p[1] & 0x1F) << 8) | p[2]);
        if (pid != kPatPid && !isPmtPid(pid)) return;
        if ((p[3] & 0xD0) != 0x10) return; // scrambled, or no payload
        std::size_t payload = 4;
        if (p[3] & 0x20) {
            payload = 5 + std::size_t{p[4]};
            if (payload >= kPacket) return;
        }
        std::vector<std::uint8_t>& buffer = m_sections[pid];
        if (p[1] & 0x40) {
            buffer.clear();
            const std::size_t pointer = p[payload];
            ++payload;
            if (pointer >= kPacket - payload) return;
            payload += pointer;
        } else if (buffer.empty()) {
            return;
        }
        buffer.insert(buffer.end(), p.begin() + static_cast<std::ptrdiff_t>(payload), p.end());
        section(pid, buffer);
    }

private:
    std::vector<std::uint16_t> m_pmtPids;
    std::map<std::uint16_t, std::vector<std::uint8_t>> m_sections;

    bool isPmtPid(std::uint16_t pid) const
    {
        for (std::uint16_t known : m_pmtPids)
            if (known == pid) return true;
        return false;
    }

    void section(std::uint16_t pid, std::vector<std::uint8_t>& s)
    {
        if (s.size() < 3) return;
        const std::uint32_t length = ((s[1] & 0x0Fu) << 8) | s[2];
        if (!(s[1] & 0x80) || length < kMinSectionLength || length > kMaxSectionLength) {
            s.clear();
            return;
        }
        if (s.size() < length + 3) return;
        const std::span<const std::uint8_t> whole(s.data(), length + 3);
        if (sectionCrc(whole) != 0 || !(s[5] & 1)) {
            s.clear();
            return;
        }
        if (pid == kPatPid && s[0] == kPatTable)
            programs(whole, length);
        else if (pid != kPatPid && s[0] == kPmtTable)
            streams(whole, length);
        s.clear();
    }

    void programs(std::span<const std::uint8_t> s, std::uint32_t length)
    {
        for (std::size_t offset = 0; offset + 12 <= length - 1; offset += 4) {
            const std::uint8_t* entry = s.data() + 8 + offset;
            const unsigned number = (unsigned{entry[0]} << 8) | entry[1];
            const auto pmt = static_cast<std::uint16_t>(((entry[2] & 0x1F) << 8) | entry[3]);
            if (number != 0 && pmt != kPatPid && pmt != kNullPid && !isPmtPid(pmt) &&
                m_pmtPids.size() < qv::limits::kMaxTransportPrograms)
                m_pmtPids.push_back(pmt);
        }
    }

    void streams(std::span<const std::uint8_t> s, std::uint32_t length)
    {
        if (length < 13) return;
        const std::size_t infoLength = ((s[10] & 0x0Fu) << 8) | s[11];
        std::size_t offset = 12 + infoLength;
        if (offset > length - 1) return;
        std::uint32_t kinds = 0;
        while (offset + 5 <= length - 1) {
            const std::size_t esInfo = ((s[offset + 3] & 0x0Fu) << 8) | s[offset + 4];
            if (esInfo > length - 6 - offset) return;
            kinds |= presenceBit(streamKind(s[offset]));
            offset += esInfo + 5;
        }
        // Only a loop that ends exactly at the CRC describes the section faithfully.
        if (offset == length - 1) found |= kinds;
    }
};

} // namespace

std::uint32_t sectionCrc(std::span<const std::uint8_t> bytes)
{
    static const std::array<std::uint32_t, 256> table = [] {
        std::array<std::uint32_t, 256> t{};
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t c = i << 24;
            for (int k = 0; k < 8; ++k)
                c = (c & 0x80000000u) ? (c << 1) ^ 0x04C11DB7u : c << 1;
            t[i] = c;
        }
        return t;
    }();
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::uint8_t byte : bytes)
        crc = (crc << 8) ^ table[((crc >> 24) ^ byte) & 0xFF];
    return crc;
}

std::uint32_t presence(std::span<const std::uint8_t> data)
{
    const Grid grid = findGrid(data);
    if (grid.size == 0) return 0;
    Scan scan;
    for (std::size_t at = grid.start; at + kPacket <= data.size(); at += grid.size) {
        scan.packet(data.subspan(at).first<kPacket>());
        if (scan.found == (QV_MEDIA_HAS_AUDIO | QV_MEDIA_HAS_VIDEO)) break;
    }
    return scan.found;
}

} // namespace qv_transport
