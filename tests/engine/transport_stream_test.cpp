#include "engine/transport_stream.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

#include <string_view>

using namespace qv_transport;
using namespace qv_test;

constexpr std::uint32_t kAudio = QV_MEDIA_HAS_AUDIO;
constexpr std::uint32_t kVideo = QV_MEDIA_HAS_VIDEO;

namespace {

void appendCrc(Bytes& section)
{
    const Bytes crc = be(sectionCrc(section), 4);
    section.insert(section.end(), crc.begin(), crc.end());
}

// A table section with syntax, version 0, current, section 0 of 0, and its CRC.
Bytes section(std::uint8_t table, std::uint16_t id, const Bytes& body)
{
    Bytes s = cat({{table}, be(0xB000 | (5 + body.size() + 4), 2), be(id, 2), {0xC1, 0, 0}, body});
    appendCrc(s);
    return s;
}

Bytes pat(const std::vector<std::pair<std::uint16_t, std::uint16_t>>& programs)
{
    Bytes body;
    for (auto [number, pid] : programs)
        body = cat({body, be(number, 2), be(0xE000 | pid, 2)});
    return section(0, 1, body);
}

Bytes pmt(const Bytes& streamTypes)
{
    Bytes body{0xE1, 0x00, 0xF0, 0x00}; // PCR PID 0x100, no programme descriptors
    std::uint16_t pid = 0x100;
    for (std::uint8_t type : streamTypes)
        body = cat({body, {type}, be(0xE000 | pid++, 2), {0xF0, 0x00}});
    return section(2, 1, body);
}

// One 188-byte packet on `pid` (starting a section after a zero pointer field when `start`),
// padded with stuffing bytes.
Bytes packet(std::uint16_t pid, const Bytes& payload, bool start = true)
{
    Bytes p = cat(
        {{0x47}, be((start ? 0x4000 : 0) | pid, 2), {0x10}, start ? Bytes{0} : Bytes{}, payload});
    p.resize(188, 0xFF);
    return p;
}

const Bytes kNull = packet(0x1FFF, {}, false);

// The packets, padded with null packets to at least five.
Bytes stream(std::initializer_list<Bytes> packets)
{
    Bytes out = cat(packets);
    while (out.size() < 5 * 188)
        out = cat({out, kNull});
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
    const Bytes parity(16, 0);
    EXPECT_EQ(
        presence(cat({programs, parity, map, parity, kNull, parity, kNull, parity, kNull, parity})),
        kVideo);
    // A 4-byte prefix before 188-byte packets.
    const Bytes plain = stream({programs, map});
    EXPECT_EQ(presence(cat({Bytes(4, 0), plain})), kVideo);

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

    // Transport errors, scrambling, adaptation-only packets and a pointer field past the packet.
    for (const auto& [at, value] : {std::pair{1, 0xD0}, {3, 0x90}, {3, 0x20}, {4, 183}}) {
        Bytes damaged = packet(0x1000, pmt({0x1B}));
        damaged[at] = static_cast<std::uint8_t>(value);
        EXPECT_EQ(presence(stream({programs, damaged})), 0u) << at << " " << value;
    }
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
