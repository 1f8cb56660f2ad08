// Fuzz target for the codec header parsers and the transport-stream scan, fed directly. The first
// byte chooses the parser; the rest is its input. Errors with a code are expected, anything else
// (a crash, a sanitizer report, an exception of another type) is a finding.
#include "engine/audio/ac3.h"
#include "engine/audio/flac.h"
#include "engine/audio/mpeg_audio.h"
#include "engine/avc_sps.h"
#include "engine/failure.h"
#include "engine/transport_stream.h"

#include <cstdint>
#include <cstdlib>
#include <span>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    const std::span<const std::uint8_t> input(data + 1, size - 1);
    try {
        switch (data[0] % 8) {
        case 0: {
            // The dfLa payload must be well formed: STREAMINFO first, blocks that tile the
            // payload exactly, and the last-block flag on the final block only.
            const auto dfla = qv_audio::flacConfiguration(input).dfla;
            if (dfla.size() < 38 || (dfla[0] & 0x7F) != 0) std::abort();
            std::size_t at = 0;
            while (at < dfla.size()) {
                if (dfla.size() - at < 4) std::abort();
                const std::size_t length = (std::size_t{dfla[at + 1]} << 16) |
                                           (std::size_t{dfla[at + 2]} << 8) | dfla[at + 3];
                const bool last = (dfla[at] & 0x80) != 0;
                at += 4 + length;
                if (at > dfla.size() || last != (at == dfla.size())) std::abort();
            }
            break;
        }
        case 1:
            qv_audio::flacFrameSamples(input);
            break;
        case 2:
            qv_audio::ac3Frame(input);
            break;
        case 3:
            qv_audio::eac3Frame(input);
            break;
        case 4:
            qv_audio::mpegAudioFrame(input);
            break;
        case 5:
            qv::avcPictureSize(input);
            break;
        case 6:
            qv::avcPictureSize(qv::avcFirstSps(input));
            break;
        default:
            if (qv_transport::presence(input) > 3) std::abort();
            break;
        }
    } catch (const qv::Failure& f) {
        if (f.code() != qv::kMalformed && f.code() != qv::kUnsupported) std::abort();
    }
    return 0;
}
