#include "engine/audio/ac3.h"
#include "engine/audio/audio_error.h"

#include <gtest/gtest.h>

#include <vector>

using namespace qv_audio;

namespace {

using Bytes = std::vector<std::uint8_t>;

std::uint32_t codeOf(auto&& call)
{
    try {
        call();
    } catch (const Error& e) {
        return e.code();
    }
    return 0;
}

// Builds bitstream headers field by field, most significant bit first.
class BitWriter {
public:
    BitWriter& put(std::uint64_t value, unsigned n)
    {
        for (unsigned i = n; i-- > 0;) {
            if (m_used % 8 == 0) m_bytes.push_back(0);
            if ((value >> i) & 1) m_bytes.back() |= static_cast<std::uint8_t>(0x80 >> (m_used % 8));
            ++m_used;
        }
        return *this;
    }
    Bytes bytes(std::size_t size = 0) const
    {
        Bytes out = m_bytes;
        if (out.size() < size) out.resize(size, 0);
        return out;
    }

private:
    Bytes m_bytes;
    unsigned m_used = 0;
};

// The first 24 bytes of an encoder's 44.1 kHz stereo E-AC-3 sync frame of 834 bytes.
Bytes eac3Stereo()
{
    Bytes frame{0x0b, 0x77, 0x01, 0xa0, 0x74, 0x87, 0xc0, 0x00, 0x20, 0x84, 0x01, 0x00,
                0x39, 0x00, 0xae, 0x06, 0x06, 0x01, 0x81, 0x87, 0xbd, 0xc7, 0xcf, 0x9f};
    frame.resize(834, 0);
    return frame;
}

// A dependent substream that adds the rear surround pair to a 44.1 kHz programme.
Bytes eac3RearPair()
{
    BitWriter w;
    w.put(0x0B77, 16).put(1, 2).put(0, 3).put(31, 11); // dependent, id 0, 64 bytes
    w.put(1, 2).put(3, 2).put(2, 3).put(0, 1);         // 44.1 kHz, 6 blocks, 2/0, no LFE
    w.put(16, 5).put(31, 5).put(0, 1);                 // bsid, dialnorm, no compression
    w.put(1, 1).put(0x0200, 16);                       // custom channel map: Lrs/Rrs
    w.put(0, 1).put(0, 1);                             // no mixing or informational metadata
    return w.bytes(64);
}

Bytes join(const Bytes& a, const Bytes& b)
{
    Bytes out = a;
    out.insert(out.end(), b.begin(), b.end());
    return out;
}

} // namespace

TEST(Ac3, SyncFrameFacts)
{
    // An encoder's 48 kHz 5.1 frame at 384 kbit/s; the dac3 bytes are what MP4 writers store.
    const auto surround = ac3Frame(Bytes{0x0b, 0x77, 0x1e, 0x8b, 0x1c, 0x40, 0xeb, 0xf8});
    EXPECT_EQ(surround.sampleRate, 48000u);
    EXPECT_EQ(surround.channels, 6u);
    EXPECT_EQ(surround.samplesPerFrame, 1536u);
    EXPECT_EQ(surround.frameSize, 1536u);
    EXPECT_EQ(surround.bitrate, 384000u);
    EXPECT_EQ(surround.dac3, (std::array<std::uint8_t, 3>{0x10, 0x3d, 0xc0}));

    // 44.1 kHz frames alternate between two sizes; the odd frame-size code takes the longer one.
    const auto mono = ac3Frame(Bytes{0x0b, 0x77, 0, 0, 0x41, 0x40, 0x20});
    EXPECT_EQ(mono.sampleRate, 44100u);
    EXPECT_EQ(mono.channels, 1u);
    EXPECT_EQ(mono.frameSize, 140u);
    EXPECT_EQ(mono.dac3, (std::array<std::uint8_t, 3>{0x50, 0x08, 0x00}));
}

TEST(Ac3, RefusedSyncFrames)
{
    EXPECT_EQ(codeOf([] { ac3Frame(Bytes{0x0b, 0x78, 0, 0, 0x1c, 0x40, 0xeb, 0xf8}); }), 1u);
    EXPECT_EQ(codeOf([] { ac3Frame(Bytes{0x0b, 0x77, 0, 0, 0xdc, 0x40, 0xeb, 0xf8}); }), 1u);
    EXPECT_EQ(codeOf([] { ac3Frame(Bytes{0x0b, 0x77, 0, 0, 0x26, 0x40, 0xeb, 0xf8}); }), 1u);
    EXPECT_EQ(codeOf([] { ac3Frame(Bytes{0x0b, 0x77, 0, 0, 0x1c, 0x40}); }), 1u);
    // Half-rate AC-3 and E-AC-3 in an AC-3 track are not plain AC-3.
    EXPECT_EQ(codeOf([] { ac3Frame(Bytes{0x0b, 0x77, 0, 0, 0x1c, 0x48, 0xeb, 0xf8}); }), 2u);
    EXPECT_EQ(codeOf([] { ac3Frame(eac3Stereo()); }), 2u);
}

TEST(Eac3, IndependentSubstream)
{
    const auto frame = eac3Frame(eac3Stereo());
    EXPECT_EQ(frame.sampleRate, 44100u);
    EXPECT_EQ(frame.channels, 2u);
    EXPECT_EQ(frame.samplesPerFrame, 1536u);
    // What MP4 writers store for this stream: 192 kbit/s, one programme, 44.1 kHz, bsid 16, 2/0.
    EXPECT_EQ(frame.dec3, (Bytes{0x06, 0x00, 0x60, 0x04, 0x00}));
}

TEST(Eac3, DependentSubstreamAddsChannelLocations)
{
    const auto frame = eac3Frame(join(eac3Stereo(), eac3RearPair()));
    EXPECT_EQ(frame.channels, 2u);
    BitWriter expected;
    expected.put(206, 13).put(0, 3);                                // (834 + 64) bytes per frame
    expected.put(1, 2).put(16, 5).put(0, 1).put(0, 1).put(0, 3);    // fscod bsid - asvc bsmod
    expected.put(2, 3).put(0, 1).put(0, 3).put(1, 4).put(0x080, 9); // acmod lfe - deps chan_loc
    EXPECT_EQ(frame.dec3, expected.bytes());
}

TEST(Eac3, RefusedAccessUnits)
{
    // A dependent substream with nothing to depend on, and a second programme numbered 0.
    EXPECT_EQ(codeOf([] { eac3Frame(eac3RearPair()); }), 1u);
    EXPECT_EQ(codeOf([] { eac3Frame(join(eac3Stereo(), eac3Stereo())); }), 1u);
    // A frame that claims more bytes than the block holds.
    const Bytes whole = eac3Stereo();
    EXPECT_EQ(codeOf([&] { eac3Frame(Bytes(whole.begin(), whole.begin() + 24)); }), 1u);
    EXPECT_EQ(codeOf([] { eac3Frame(Bytes{}); }), 1u);
    // Plain AC-3 where E-AC-3 is expected.
    Bytes ac3(1536, 0);
    const Bytes head{0x0b, 0x77, 0x1e, 0x8b, 0x1c, 0x40, 0xeb, 0xf8};
    std::copy(head.begin(), head.end(), ac3.begin());
    EXPECT_EQ(codeOf([&] { eac3Frame(ac3); }), 2u);
}
