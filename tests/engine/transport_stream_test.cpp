#include "engine/transport_stream.h"

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

using namespace qv_transport;

namespace {

using Bytes = std::vector<std::uint8_t>;

void appendCrc(Bytes& section)
{
    const std::uint32_t crc = sectionCrc(section);
    for (int shift = 24; shift >= 0; shift -= 8)
        section.push_back(static_cast<std::uint8_t>(crc >> shift));
}

// A table section with syntax, version 0, current, section 0 of 0, and its CRC.
Bytes section(std::uint8_t table, std::uint16_t id, const Bytes& body)
{
    const std::size_t length = 5 + body.size() + 4;
    Bytes s{table,
            static_cast<std::uint8_t>(0xB0 | (length >> 8)),
            static_cast<std::uint8_t>(length),
            static_cast<std::uint8_t>(id >> 8),
            static_cast<std::uint8_t>(id),
            0xC1,
            0,
            0};
    s.insert(s.end(), body.begin(), body.end());
    appendCrc(s);
    return s;
}

Bytes pat(const std::vector<std::pair<std::uint16_t, std::uint16_t>>& programs)
{
    Bytes body;
    for (auto [number, pid] : programs)
        body.insert(body.end(),
                    {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number),
                     static_cast<std::uint8_t>(0xE0 | (pid >> 8)), static_cast<std::uint8_t>(pid)});
    return section(0, 1, body);
}

Bytes pmt(const Bytes& streamTypes)
{
    Bytes body{0xE1, 0x00, 0xF0, 0x00}; // PCR PID 0x100, no programme descriptors
    std::uint16_t pid = 0x100;
    for (std::uint8_t type : streamTypes)
        body.insert(body.end(), {type, static_cast<std::uint8_t>(0xE0 | (pid >> 8)),
                                 static_cast<std::uint8_t>(pid++), 0xF0, 0x00});
    return section(2, 1, body);
}

// One 188-byte packet starting a section on `pid`, padded with stuffing bytes.
Bytes packet(std::uint16_t pid, const Bytes& payload, bool start = true)
{
    Bytes p{0x47, static_cast<std::uint8_t>((start ? 0x40 : 0) | (pid >> 8)),
            static_cast<std::uint8_t>(pid), 0x10};
    if (start) p.push_back(0); // pointer field
    p.insert(p.end(), payload.begin(), payload.end());
    p.resize(188, 0xFF);
    return p;
}

Bytes nullPacket()
{
    return packet(0x1FFF, {}, false);
}

Bytes stream(std::initializer_list<Bytes> packets, std::size_t minimum = 5)
{
    Bytes out;
    for (const Bytes& p : packets)
        out.insert(out.end(), p.begin(), p.end());
    while (out.size() < minimum * 188) {
        const Bytes n = nullPacket();
        out.insert(out.end(), n.begin(), n.end());
    }
    return out;
}

} // namespace

TEST(TransportStream, SectionCrcIsTheMpegVariant)
{
    constexpr std::string_view check = "123456789";
    EXPECT_EQ(sectionCrc({reinterpret_cast<const std::uint8_t*>(check.data()), check.size()}),
              0x0376E6E7u);
}

TEST(TransportStream, StreamTypesGiveAudioAndVideo)
{
    const Bytes programs = packet(0, pat({{1, 0x1000}}));
    EXPECT_EQ(presence(stream({programs, packet(0x1000, pmt({0x1B, 0x0F}))})), kAudio | kVideo);
    EXPECT_EQ(presence(stream({programs, packet(0x1000, pmt({0x87}))})), kAudio);
    EXPECT_EQ(presence(stream({programs, packet(0x1000, pmt({0x24, 0x86}))})), kVideo);
    EXPECT_EQ(presence(stream({programs, packet(0x1000, pmt({0x06, 0x86}))})), 0u);
    // The programme map may come before the association table that names it: not followed.
    EXPECT_EQ(presence(stream({packet(0x1000, pmt({0x1B})), programs})), 0u);
}

TEST(TransportStream, PacketGrids)
{
    const Bytes programs = packet(0, pat({{1, 0x1000}}));
    const Bytes map = packet(0x1000, pmt({0x1B}));
    // (192-byte packets are covered by the generated M2TS fixture of the oracle.)
    // 204-byte packets with 16 parity bytes after each; the grid needs five whole packets after
    // the start offset.
    Bytes parity;
    for (const Bytes& p : {programs, map, nullPacket(), nullPacket(), nullPacket()}) {
        parity.insert(parity.end(), p.begin(), p.end());
        parity.insert(parity.end(), 16, 0x00);
    }
    EXPECT_EQ(presence(parity), kVideo);

    // A 4-byte prefix before 188-byte packets.
    Bytes prefixed{0, 0, 0, 0};
    const Bytes plain = stream({programs, map});
    prefixed.insert(prefixed.end(), plain.begin(), plain.end());
    EXPECT_EQ(presence(prefixed), kVideo);

    // Fewer than five packets, and data without any grid.
    EXPECT_EQ(presence(Bytes(plain.begin(), plain.begin() + 4 * 188 + 187)), 0u);
    EXPECT_EQ(presence(Bytes(4096, 0x47 ^ 0xFF)), 0u);
    EXPECT_EQ(presence({}), 0u);
}

TEST(TransportStream, SectionSpanningPackets)
{
    // A programme map with many descriptors is split over two packets of its PID.
    Bytes body{0xE1, 0x00, 0xF0, 0xC8};
    body.insert(body.end(), 200, 0xAA);
    body.insert(body.end(), {0x1B, 0xE1, 0x00, 0xF0, 0x00, 0x0F, 0xE1, 0x01, 0xF0, 0x00});
    const Bytes map = section(2, 1, body);
    const Bytes first(map.begin(), map.begin() + 183);
    const Bytes rest(map.begin() + 183, map.end());
    EXPECT_EQ(presence(stream({packet(0, pat({{1, 0x1000}})), packet(0x1000, first),
                               packet(0x1000, rest, false)})),
              kAudio | kVideo);
    // A continuation without a start on that PID is ignored.
    EXPECT_EQ(presence(stream({packet(0, pat({{1, 0x1000}})), packet(0x1000, rest, false)})), 0u);
}

TEST(TransportStream, DamagedTablesAreIgnored)
{
    const Bytes programs = packet(0, pat({{1, 0x1000}}));
    Bytes badCrc = pmt({0x1B});
    badCrc.back() ^= 1;
    EXPECT_EQ(presence(stream({programs, packet(0x1000, badCrc)})), 0u);

    // An elementary-stream info length that runs past the section drops the whole section.
    Bytes overrun = pmt({0x0F, 0x1B});
    overrun[12 + 5 + 4] = 0x20;
    overrun.resize(overrun.size() - 4);
    appendCrc(overrun);
    EXPECT_EQ(presence(stream({programs, packet(0x1000, overrun)})), 0u);

    // Transport errors, scrambling and adaptation-only packets are skipped.
    Bytes error = packet(0x1000, pmt({0x1B}));
    error[1] |= 0x80;
    Bytes scrambled = packet(0x1000, pmt({0x1B}));
    scrambled[3] = 0x90;
    Bytes noPayload = packet(0x1000, pmt({0x1B}));
    noPayload[3] = 0x20;
    for (const Bytes& p : {error, scrambled, noPayload})
        EXPECT_EQ(presence(stream({programs, p})), 0u);

    // A pointer field that points past the packet.
    Bytes farPointer = packet(0x1000, pmt({0x1B}));
    farPointer[4] = 183;
    EXPECT_EQ(presence(stream({programs, farPointer})), 0u);
}

TEST(TransportStream, AtMostSixteenProgrammesAreFollowed)
{
    std::vector<std::pair<std::uint16_t, std::uint16_t>> many;
    for (std::uint16_t i = 0; i < 17; ++i)
        many.push_back({static_cast<std::uint16_t>(i + 1), static_cast<std::uint16_t>(0x1000 + i)});
    const Bytes programs = packet(0, pat(many));
    EXPECT_EQ(presence(stream({programs, packet(0x100F, pmt({0x1B}))})), kVideo);
    EXPECT_EQ(presence(stream({programs, packet(0x1010, pmt({0x1B}))})), 0u);
    // Programme number 0 names the network table, not a programme map.
    EXPECT_EQ(presence(stream({packet(0, pat({{0, 0x1000}})), packet(0x1000, pmt({0x1B}))})), 0u);
}
