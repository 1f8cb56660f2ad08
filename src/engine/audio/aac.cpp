#include "aac.h"

#include "engine/bit_cursor.h"
#include "engine/engine_limits.h"
#include "engine/failure.h"

namespace qv_audio {
namespace {

constexpr std::uint32_t kRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                      22050, 16000, 12000, 11025, 8000,  7350};

std::uint32_t samplingFrequency(qv::BitCursor& bits)
{
    const auto index = bits.bits(4);
    if (index == 13 || index == 14) qv::fail(qv::kMalformed);
    const std::uint32_t rate = index == 15 ? bits.bits(24) : kRates[index];
    if (rate < qv::limits::kMinSampleRate || rate > qv::limits::kMaxSampleRate)
        qv::fail(qv::kUnsupported);
    return rate;
}

} // namespace

qv::AudioFacts aac(const std::vector<std::uint8_t>& config)
{
    qv::BitCursor bits(config);
    const auto objectType = bits.bits(5);
    if (objectType == 31) qv::fail(qv::kUnsupported);
    const auto coreRate = samplingFrequency(bits);
    auto outputRate = coreRate;
    const auto channelConfig = bits.bits(4);
    bool sbr = false;
    bool ps = false;
    auto coreType = objectType;
    const bool explicitExtension = objectType == 5 || objectType == 29;
    if (explicitExtension) {
        sbr = true;
        ps = objectType == 29;
        outputRate = samplingFrequency(bits);
        coreType = bits.bits(5);
    }
    if (coreType != 2 || channelConfig < 1 || channelConfig > 7) qv::fail(qv::kUnsupported);

    const bool shortFrames = bits.bits(1) != 0;
    if (bits.bits(1) != 0) bits.skip(14);              // core coder delay
    if (bits.bits(1) != 0) qv::fail(qv::kUnsupported); // extension flag

    if (!explicitExtension && bits.remaining() >= 16) {
        const auto sync = bits.bits(11);
        if (sync != 0) {
            if (sync != 0x2B7) qv::fail(qv::kUnsupported);
            if (bits.bits(5) != 5) qv::fail(qv::kUnsupported);
            if (bits.bits(1) == 0) {
                sbr = false;
            } else {
                outputRate = samplingFrequency(bits);
                sbr = true;
                if (bits.remaining() >= 12) {
                    const auto psSync = bits.bits(11);
                    if (psSync != 0) {
                        if (psSync != 0x548) qv::fail(qv::kUnsupported);
                        ps = bits.bits(1) != 0;
                    }
                }
            }
        }
    }

    if (!(outputRate == coreRate || (sbr && outputRate == 2 * coreRate)))
        qv::fail(qv::kUnsupported);
    if (ps && !(channelConfig == 1 && sbr)) qv::fail(qv::kUnsupported);

    qv::AudioFacts facts;
    facts.sampleRate = outputRate;
    facts.channels = ps ? 2 : (channelConfig == 7 ? 8 : channelConfig);
    facts.samplesPerFrame = (outputRate / coreRate) * (shortFrames ? 960 : 1024);
    facts.bitsPerSample = 16;
    return facts;
}

} // namespace qv_audio
