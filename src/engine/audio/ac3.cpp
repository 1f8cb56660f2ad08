#include "ac3.h"

#include "engine/bit_cursor.h"
#include "engine/failure.h"

namespace qv_audio {
namespace {

using Cursor = qv::BitCursor;

constexpr std::uint16_t kSyncWord = 0x0B77;
constexpr std::array<std::uint32_t, 3> kRates{48000, 44100, 32000};
// Channels by audio coding mode (1+1 dual mono counts as two).
constexpr std::array<std::uint32_t, 8> kModeChannels{2, 1, 2, 3, 3, 4, 4, 5};
// Nominal bit rate in kbit/s for each pair of frame-size codes.
constexpr std::array<std::uint32_t, 19> kBitrates{32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                                                  192, 224, 256, 320, 384, 448, 512, 576, 640};
constexpr std::array<std::uint32_t, 4> kBlocks{1, 2, 3, 6};

// 16-bit words per sync frame at 44.1 kHz; the other rates divide evenly.
std::uint32_t ac3FrameWords(unsigned fscod, unsigned frmsizecod)
{
    const std::uint32_t kbps = kBitrates[frmsizecod >> 1];
    switch (fscod) {
    case 0:
        return kbps * 2;
    case 1:
        return kbps * 320 / 147 + (frmsizecod & 1);
    default:
        return kbps * 3;
    }
}

struct Substream {
    unsigned type = 0;
    unsigned id = 0;
    std::uint32_t size = 0;
    unsigned fscod = 0;
    std::uint32_t sampleRate = 0;
    std::uint32_t blocks = 0;
    unsigned acmod = 0;
    unsigned lfeon = 0;
    unsigned bsid = 0;
    unsigned bsmod = 0;
    std::uint16_t chanmap = 0;
    bool hasChanmap = false;
};

Substream readEac3(std::span<const std::uint8_t> frame)
{
    Cursor bits(frame);
    if (bits.bits(16) != kSyncWord) qv::fail(qv::kMalformed);
    Substream s;
    s.type = static_cast<unsigned>(bits.bits(2));
    s.id = static_cast<unsigned>(bits.bits(3));
    s.size = (static_cast<std::uint32_t>(bits.bits(11)) + 1) * 2;
    s.fscod = static_cast<unsigned>(bits.bits(2));
    unsigned blockCode = 3;
    if (s.fscod == 3) {
        const auto fscod2 = static_cast<unsigned>(bits.bits(2));
        if (fscod2 == 3) qv::fail(qv::kMalformed);
        s.sampleRate = kRates[fscod2] / 2;
    } else {
        blockCode = static_cast<unsigned>(bits.bits(2));
        s.sampleRate = kRates[s.fscod];
    }
    s.blocks = kBlocks[blockCode];
    s.acmod = static_cast<unsigned>(bits.bits(3));
    s.lfeon = static_cast<unsigned>(bits.bits(1));
    s.bsid = static_cast<unsigned>(bits.bits(5));
    if (s.bsid <= 10) qv::fail(qv::kUnsupported); // an AC-3 frame where E-AC-3 is expected
    if (s.bsid > 16) qv::fail(qv::kUnsupported);
    if (s.type == 3) qv::fail(qv::kMalformed);
    if (s.size > frame.size()) qv::fail(qv::kMalformed);

    bits.skip(5); // dialnorm
    if (bits.flag()) bits.skip(8);
    if (s.acmod == 0) {
        bits.skip(5);
        if (bits.flag()) bits.skip(8);
    }
    if (s.type == 1 && bits.flag()) {
        s.chanmap = static_cast<std::uint16_t>(bits.bits(16));
        s.hasChanmap = true;
    }
    if (bits.flag()) { // mixing metadata
        if (s.acmod > 2) bits.skip(2);
        if ((s.acmod & 1) && s.acmod > 2) bits.skip(6);
        if (s.acmod & 4) bits.skip(6);
        if (s.lfeon && bits.flag()) bits.skip(5);
        if (s.type == 0) {
            if (bits.flag()) bits.skip(6);
            if (s.acmod == 0 && bits.flag()) bits.skip(6);
            if (bits.flag()) bits.skip(6);
            const auto mixdef = static_cast<unsigned>(bits.bits(2));
            if (mixdef == 1)
                bits.skip(5);
            else if (mixdef == 2)
                bits.skip(12);
            else if (mixdef == 3)
                bits.skip(8 * (bits.bits(5) + 2));
            if (s.acmod < 2) {
                if (bits.flag()) bits.skip(14);
                if (s.acmod == 0 && bits.flag()) bits.skip(14);
            }
            if (bits.flag()) {
                if (blockCode == 0) {
                    bits.skip(5);
                } else {
                    for (std::uint32_t i = 0; i < s.blocks; ++i)
                        if (bits.flag()) bits.skip(5);
                }
            }
        }
    }
    if (bits.flag()) s.bsmod = static_cast<unsigned>(bits.bits(3)); // informational metadata
    return s;
}

// The dec3 channel locations of a dependent substream: its custom channel map without the five
// main channels, Lts/Rts and the LFE, which the independent substream already describes.
std::uint16_t channelLocations(std::uint16_t chanmap)
{
    return static_cast<std::uint16_t>(((chanmap >> 2) & 0x1FE) | ((chanmap >> 1) & 1));
}

} // namespace

Ac3Frame ac3Frame(std::span<const std::uint8_t> frame)
{
    Cursor bits(frame);
    if (bits.bits(16) != kSyncWord) qv::fail(qv::kMalformed);
    bits.skip(16); // crc1
    const auto fscod = static_cast<unsigned>(bits.bits(2));
    const auto frmsizecod = static_cast<unsigned>(bits.bits(6));
    const auto bsid = static_cast<unsigned>(bits.bits(5));
    const auto bsmod = static_cast<unsigned>(bits.bits(3));
    const auto acmod = static_cast<unsigned>(bits.bits(3));
    if (bsid > 10) qv::fail(qv::kUnsupported); // E-AC-3 where AC-3 is expected
    if (bsid > 8) qv::fail(qv::kUnsupported);  // half- and quarter-rate variants
    if (fscod == 3 || frmsizecod > 37) qv::fail(qv::kMalformed);
    if ((acmod & 1) && acmod != 1) bits.skip(2);
    if (acmod & 4) bits.skip(2);
    if (acmod == 2) bits.skip(2);
    const auto lfeon = static_cast<unsigned>(bits.bits(1));

    Ac3Frame result;
    result.sampleRate = kRates[fscod];
    result.channels = kModeChannels[acmod] + lfeon;
    result.samplesPerFrame = 1536;
    result.frameSize = ac3FrameWords(fscod, frmsizecod) * 2;
    result.bitrate = kBitrates[frmsizecod >> 1] * 1000;
    const std::uint32_t packed = (fscod << 22) | (bsid << 17) | (bsmod << 14) | (acmod << 11) |
                                 (lfeon << 10) | ((frmsizecod >> 1) << 5);
    result.dac3 = {static_cast<std::uint8_t>(packed >> 16), static_cast<std::uint8_t>(packed >> 8),
                   static_cast<std::uint8_t>(packed)};
    return result;
}

Eac3Header eac3Header(std::span<const std::uint8_t> frame)
{
    Cursor bits(frame);
    if (bits.bits(16) != kSyncWord) qv::fail(qv::kMalformed);
    Eac3Header header;
    const auto type = static_cast<unsigned>(bits.bits(2));
    if (type == 3) qv::fail(qv::kMalformed);
    header.dependent = type == 1;
    header.substream = static_cast<std::uint32_t>(bits.bits(3));
    header.frameSize = (static_cast<std::uint32_t>(bits.bits(11)) + 1) * 2;
    unsigned blockCode = 3;
    if (bits.bits(2) == 3) {
        if (bits.bits(2) == 3) qv::fail(qv::kMalformed);
    } else {
        blockCode = static_cast<unsigned>(bits.bits(2));
    }
    bits.skip(4); // acmod, lfeon
    const auto bsid = bits.bits(5);
    if (bsid <= 10 || bsid > 16) qv::fail(qv::kUnsupported);
    header.samples = 256 * kBlocks[blockCode];
    return header;
}

Eac3Frame eac3Frame(std::span<const std::uint8_t> frame)
{
    struct Independent {
        Substream head;
        unsigned dependents = 0;
        std::uint16_t locations = 0;
    };
    std::vector<Independent> programmes;
    std::uint64_t totalBytes = 0;
    std::size_t position = 0;
    while (position < frame.size()) {
        const Substream s = readEac3(frame.subspan(position));
        if (s.type == 1) {
            // A dependent substream belongs to the independent one before it.
            if (programmes.empty()) qv::fail(qv::kMalformed);
            auto& owner = programmes.back();
            if (++owner.dependents > 15) qv::fail(qv::kMalformed);
            if (s.hasChanmap) owner.locations |= channelLocations(s.chanmap);
        } else if (programmes.empty() || s.id == programmes.size()) {
            if (programmes.size() == 8) qv::fail(qv::kMalformed);
            programmes.push_back({s});
        } else {
            qv::fail(qv::kMalformed); // independent substreams are numbered in order, once per
                                      // access unit
        }
        totalBytes += s.size;
        position += s.size;
    }
    if (programmes.empty()) qv::fail(qv::kMalformed);

    const Substream& first = programmes.front().head;
    Eac3Frame result;
    result.sampleRate = first.sampleRate;
    result.channels = kModeChannels[first.acmod] + first.lfeon;
    result.samplesPerFrame = 256 * first.blocks;

    // Average data rate in kbit/s over the whole access unit.
    const std::uint64_t bps = totalBytes * 8 * first.sampleRate / result.samplesPerFrame;
    const std::uint64_t rate = (bps + 500) / 1000;
    std::vector<std::uint8_t>& out = result.dec3;
    std::uint64_t acc = 0;
    unsigned used = 0;
    auto put = [&](std::uint64_t value, unsigned n) {
        acc = (acc << n) | (value & ((std::uint64_t{1} << n) - 1));
        used += n;
        while (used >= 8) {
            out.push_back(static_cast<std::uint8_t>(acc >> (used - 8)));
            used -= 8;
        }
    };
    put(std::min<std::uint64_t>(rate, 0x1FFF), 13);
    put(programmes.size() - 1, 3);
    for (const Independent& p : programmes) {
        put(p.head.fscod, 2);
        put(p.head.bsid, 5);
        put(0, 1); // reserved
        put(0, 1); // not an associated service
        put(p.head.bsmod, 3);
        put(p.head.acmod, 3);
        put(p.head.lfeon, 1);
        put(0, 3); // reserved
        put(p.dependents, 4);
        if (p.dependents > 0)
            put(p.locations, 9);
        else
            put(0, 1);
    }
    return result;
}

} // namespace qv_audio
