#include "index.h"

namespace qv {

const char* codecName(Codec codec) noexcept
{
    switch (codec) {
    case Codec::Avc:
        return "avc";
    case Codec::Hevc:
        return "hevc";
    case Codec::Vp9:
        return "vp9";
    case Codec::Av1:
        return "av1";
    case Codec::Aac:
        return "aac";
    case Codec::Opus:
        return "opus";
    case Codec::Flac:
        return "flac";
    case Codec::Ac3:
        return "ac3";
    case Codec::Eac3:
        return "eac3";
    case Codec::Mp3:
        return "mp3";
    case Codec::Alac:
        return "alac";
    case Codec::Unknown:
        break;
    }
    return "unknown";
}

void Index::append(Track& track, const Sample& sample)
{
    track.samples.push_back(sample);
    ++sampleCount;
}

} // namespace qv
