// The transport-stream probe: which kinds the programme maps announce, over packet grids, split
// and damaged sections (the CRC itself is checked against real streams by the oracle).
#include "engine/transport_stream.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using namespace qv_transport;
using namespace qv_test;

constexpr std::uint32_t kAudio = QV_MEDIA_HAS_AUDIO;
constexpr std::uint32_t kVideo = QV_MEDIA_HAS_VIDEO;

namespace {

Bytes withCrc(const Bytes& section)
{
    return cat({section, be(sectionCrc(section), 4)});
}

// A table section with syntax, version 0, current, section 0 of 0, and its CRC.
Bytes section(std::uint8_t table, std::uint16_t id, const Bytes& body)
{
    return withCrc(
        cat({{table}, be(0xB000 | (5 + body.size() + 4), 2), be(id, 2), {0xC1, 0, 0}, body}));
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

// Each case: a stream and the kinds its programme maps announce.
TEST(TransportStream, PresenceFromProgrammeMaps)
{
    const Bytes programs = packet(0, pat({{1, 0x1000}}));
    const auto mapOf = [](const Bytes& types) { return packet(0x1000, pmt(types)); };
    const Bytes map = mapOf({0x1B});
    // 204-byte packets carry 16 parity bytes after each; the grid needs five whole packets after
    // the start offset. (192-byte packets are covered by the oracle's M2TS fixture.)
    const Bytes parity(16, 0);
    const Bytes plain = stream({programs, map});
    // A programme map with many descriptors, split over two packets of its PID.
    Bytes body{0xE1, 0x00, 0xF0, 0xC8};
    body.insert(body.end(), 200, 0xAA);
    body.insert(body.end(), {0x1B, 0xE1, 0x00, 0xF0, 0x00, 0x0F, 0xE1, 0x01, 0xF0, 0x00});
    const Bytes long_ = section(2, 1, body);
    const Bytes first(long_.begin(), long_.begin() + 183), rest(long_.begin() + 183, long_.end());
    Bytes badCrc = pmt({0x1B});
    badCrc.back() ^= 1;
    // An elementary-stream info length that runs past the section drops the whole section.
    Bytes overrun = pmt({0x0F, 0x1B});
    overrun[12 + 5 + 4] = 0x20;
    overrun = withCrc(Bytes(overrun.begin(), overrun.end() - 4));
    std::vector<std::pair<std::uint16_t, std::uint16_t>> many; // 17 programmes: 16 are followed
    for (std::uint16_t i = 0; i < 17; ++i)
        many.push_back({static_cast<std::uint16_t>(i + 1), static_cast<std::uint16_t>(0x1000 + i)});
    const std::vector<std::pair<Bytes, std::uint32_t>> cases{
        {stream({programs, mapOf({0x06, 0x86})}), 0},
        {stream({map, programs}), 0}, // a map before the table that names it is not followed
        {cat({programs, parity, map, parity, kNull, parity, kNull, parity, kNull, parity}), kVideo},
        {cat({Bytes(4, 0), plain}), kVideo}, // a 4-byte prefix before 188-byte packets
        {Bytes(plain.begin(), plain.begin() + 4 * 188 + 187), 0}, // fewer than five packets
        {Bytes(4096, 0x47 ^ 0xFF), 0},
        {stream({programs, packet(0x1000, first), packet(0x1000, rest, false)}), kAudio | kVideo},
        {stream({programs, packet(0x1000, rest, false)}), 0}, // a continuation without a start
        {stream({programs, packet(0x1000, badCrc)}), 0},
        {stream({programs, packet(0x1000, overrun)}), 0},
        {stream({packet(0, pat(many)), packet(0x100F, pmt({0x1B}))}), kVideo},
        {stream({packet(0, pat(many)), packet(0x1010, pmt({0x1B}))}), 0},
        // Programme number 0 names the network table, not a programme map.
        {stream({packet(0, pat({{0, 0x1000}})), map}), 0},
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(presence(cases[i].first), cases[i].second) << i;

    // Transport errors, scrambling, adaptation-only packets and a pointer field past the packet.
    for (const auto& [at, value] : {std::pair{1, 0xD0}, {3, 0x90}, {3, 0x20}, {4, 183}}) {
        Bytes damaged = map;
        damaged[at] = static_cast<std::uint8_t>(value);
        EXPECT_EQ(presence(stream({programs, damaged})), 0u) << at << " " << value;
    }
}
