#include "audio_samples.h"

#include "ac3.h"
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
    case qv::Codec::Ac3:
        return ac3Frame(head(reader, position, size, 8)).samplesPerFrame;
    case qv::Codec::Eac3:
        return eac3FrameSamples(head(reader, position, size, 8));
    case qv::Codec::Mp3: {
        const auto frame = mpegAudioFrame(head(reader, position, size, 4));
        // Layers I and II would need another sample description than ".mp3".
        if (frame.layer != 3) fail(2);
        return frame.samplesPerFrame;
    }
    default:
        fail(2);
    }
}

} // namespace qv_audio
