#include "audio_samples.h"

#include "opus.h"

#include <algorithm>

namespace qv_audio {

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
    default:
        fail(2);
    }
}

} // namespace qv_audio
