#include "codec_config.h"

#include "audio/ac3.h"
#include "audio/alac.h"
#include "audio/flac.h"
#include "audio/mpeg_audio.h"
#include "audio/opus.h"
#include "bit_cursor.h"
#include "engine_limits.h"
#include "failure.h"

#include <algorithm>

namespace qv {
namespace {

std::uint8_t vp9Level(std::uint64_t lumaSamples)
{
    // Picture-size limits of the VP9 levels; bitrate is not known here, so size alone decides.
    static constexpr std::pair<std::uint64_t, std::uint8_t> kLevels[] = {
        {36'864, 10},    {73'728, 11},     {122'880, 20},    {245'760, 21},    {552'960, 30},
        {983'040, 31},   {2'228'224, 40},  {2'228'224, 41},  {8'912'896, 50},  {8'912'896, 51},
        {8'912'896, 52}, {35'651'584, 60}, {35'651'584, 61}, {35'651'584, 62},
    };
    for (const auto& [limit, level] : kLevels)
        if (lumaSamples <= limit) return level;
    return 62;
}

// VP9 colour spaces mapped to the matrix coefficients of ISO/IEC 23091-2.
std::uint8_t vp9Matrix(std::uint32_t colourSpace)
{
    switch (colourSpace) {
    case 1:
        return 6; // BT.601
    case 2:
        return 1; // BT.709
    case 3:
        return 6; // SMPTE 170
    case 4:
        return 7; // SMPTE 240
    case 5:
        return 9; // BT.2020
    default:
        return 2;
    }
}

} // namespace

std::vector<std::uint8_t> vp9Config(const std::vector<std::uint8_t>& firstBytes, const Track& track)
{
    BitCursor bits(firstBytes);
    require(bits.bits(2) == 2);
    auto profile = static_cast<std::uint32_t>(bits.bits(1));
    profile |= static_cast<std::uint32_t>(bits.bits(1)) << 1;
    if (profile == 3) bits.skip(1);
    require(bits.bits(1) == 0, kUnsupported); // show_existing_frame
    require(bits.bits(1) == 0, kUnsupported); // frame_type: 0 is a key frame
    bits.skip(2);                             // show_frame, error_resilient_mode
    require(bits.bits(24) == 0x498342);
    require(profile == 0 || profile == 2, kUnsupported);
    const std::uint32_t bitDepth = profile >= 2 ? (bits.flag() ? 12 : 10) : 8;
    const auto colourSpace = static_cast<std::uint32_t>(bits.bits(3));
    require(colourSpace != 7, kUnsupported); // RGB
    const bool fullRange = bits.flag();

    const auto& c = track.colour;
    const auto pick = [](std::uint32_t value, std::uint32_t fallback) {
        return static_cast<std::uint8_t>(value == Colour::kUnset || value > 255 ? fallback : value);
    };
    std::vector<std::uint8_t> out;
    out.push_back(static_cast<std::uint8_t>(profile));
    out.push_back(vp9Level(std::uint64_t(track.pixelWidth) * track.pixelHeight));
    // 4:2:0 with chroma sited with luma, the layout profiles 0 and 2 carry.
    out.push_back(static_cast<std::uint8_t>((bitDepth << 4) | (1 << 1) |
                                            ((fullRange || c.fullRange) ? 1 : 0)));
    out.push_back(pick(c.primaries, 2));
    out.push_back(pick(c.transfer, 2));
    out.push_back(pick(c.matrix, vp9Matrix(colourSpace)));
    out.push_back(0); // no codec initialisation data
    out.push_back(0);
    return out;
}

namespace {

std::vector<std::uint8_t> firstFrame(Reader& reader, const Track& track, std::uint64_t limit)
{
    const auto& first = track.samples.front();
    return reader.bytes(first.position, std::min<std::uint64_t>(first.size, limit));
}

} // namespace

void prepareCodecConfig(Reader& reader, Track& track)
{
    switch (track.codec) {
    case Codec::Avc:
    case Codec::Hevc:
        // Matroska stores the decoder configuration record itself; without it the parameter sets
        // would have to come from the stream, which the MP4 sample entry cannot express.
        require(track.codecPrivate.size() >= 7, kUnsupported);
        require(track.codecPrivate[0] == 1, kUnsupported);
        track.config = track.codecPrivate;
        break;
    case Codec::Av1:
        // The av1C record: marker bit and version 1 in its first byte.
        require(track.codecPrivate.size() >= 4, kUnsupported);
        require(track.codecPrivate[0] == 0x81);
        track.config = track.codecPrivate;
        break;
    case Codec::Vp9: {
        const auto& first = track.samples.front();
        const auto bytes = reader.bytes(first.position, std::min<std::uint64_t>(first.size, 16));
        track.config = vp9Config(bytes, track);
        break;
    }
    case Codec::Opus: {
        const auto head = qv_audio::opusHead(track.codecPrivate);
        track.audio.channels = head.channels;
        track.config = qv_audio::opusSpecificBox(head);
        break;
    }
    case Codec::Aac: {
        // The esds descriptor is built by the movie writer around the AudioSpecificConfig.
        track.config = track.codecPrivate;
        break;
    }
    case Codec::Flac: {
        auto flac = qv_audio::flacConfiguration(track.codecPrivate);
        track.config = std::move(flac.dfla);
        break;
    }
    case Codec::Ac3: {
        const auto frame = qv_audio::ac3Frame(firstFrame(reader, track, 16));
        track.audio = {frame.sampleRate, frame.channels, frame.samplesPerFrame, 16};
        track.config.assign(frame.dac3.begin(), frame.dac3.end());
        break;
    }
    case Codec::Eac3: {
        // dec3 describes every substream of the access unit, so the whole first frame is read.
        const auto frame = qv_audio::eac3Frame(firstFrame(reader, track, limits::kMaxRead));
        track.audio = {frame.sampleRate, frame.channels, frame.samplesPerFrame, 16};
        track.config = frame.dec3;
        break;
    }
    case Codec::Alac: {
        const auto alac = qv_audio::alacConfiguration(track.codecPrivate);
        track.config.assign(alac.config.begin(), alac.config.end());
        break;
    }
    case Codec::Mp3: {
        const auto frame = qv_audio::mpegAudioFrame(firstFrame(reader, track, 4));
        track.audio = {frame.sampleRate, frame.channels, frame.samplesPerFrame, 16};
        break;
    }
    default:
        fail(kUnsupported);
    }
}

} // namespace qv
