#include "audio_samples.h"

#include "ac3.h"
#include "alac.h"
#include "flac.h"
#include "mpeg_audio.h"
#include "opus.h"

#include <algorithm>

namespace qv_audio {
namespace {

// The first min(size, n) bytes of a frame: enough for any frame header we read.
std::vector<std::uint8_t> head(qv::Reader& reader, std::uint64_t position, std::uint64_t size,
                               std::uint64_t n)
{
    std::vector<std::uint8_t> bytes(std::min(size, n));
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = reader.byte(position + i);
    return bytes;
}

// Samples in a Dolby frame. A block normally holds one sync frame, but muxers may join several;
// further frames are counted only where a sync word follows the previous frame's end, and for
// E-AC-3 only the first programme's independent substreams add time.
std::uint32_t dolbySamples(qv::Reader& reader, qv::Codec codec, std::uint64_t position,
                           std::uint64_t size)
{
    std::uint64_t total = 0;
    for (std::uint64_t offset = 0; offset < size;) {
        if (offset > 0 && (size - offset < 8 || reader.byte(position + offset) != 0x0B ||
                           reader.byte(position + offset + 1) != 0x77))
            break;
        const auto bytes = head(reader, position + offset, size - offset, 8);
        if (codec == qv::Codec::Ac3) {
            const auto frame = ac3Frame(bytes);
            total += frame.samplesPerFrame;
            offset += frame.frameSize;
        } else {
            const auto frame = eac3Header(bytes);
            if (!frame.dependent && frame.substream == 0) total += frame.samples;
            offset += frame.frameSize;
        }
    }
    if (total == 0 || total > 0xFFFFFFFFu) qv::fail(qv::kMalformed);
    return static_cast<std::uint32_t>(total);
}

} // namespace

std::uint32_t audioSamples(qv::Reader& reader, const qv::Track& track, std::uint64_t position,
                           std::uint64_t size)
{
    switch (track.codec) {
    case qv::Codec::Aac:
        return track.audio.samplesPerFrame;
    case qv::Codec::Opus: {
        std::uint8_t toc[2] = {0, 0};
        const auto n = std::min<std::uint64_t>(size, 2);
        for (std::uint64_t i = 0; i < n; ++i)
            toc[i] = reader.byte(position + i);
        return opusPacketSamples(toc, size);
    }
    case qv::Codec::Flac:
        return flacFrameSamples(head(reader, position, size, 16));
    case qv::Codec::Alac:
        return alacFrameSamples(head(reader, position, size, 7), track.audio.samplesPerFrame);
    case qv::Codec::Ac3:
    case qv::Codec::Eac3:
        return dolbySamples(reader, track.codec, position, size);
    case qv::Codec::Mp3: {
        const auto frame = mpegAudioFrame(head(reader, position, size, 4));
        // Layers I and II would need another sample description than ".mp3".
        if (frame.layer != 3) qv::fail(qv::kUnsupported);
        return frame.samplesPerFrame;
    }
    default:
        qv::fail(qv::kUnsupported);
    }
}

} // namespace qv_audio
