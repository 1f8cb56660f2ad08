#include "aac.h"

#include "bits.h"

namespace qv_audio {
namespace {

constexpr std::uint32_t kRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                      22050, 16000, 12000, 11025, 8000,  7350};

std::uint32_t samplingFrequency(Bits& bits)
{
    const auto index = bits.get(4);
    if (index == 13 || index == 14) fail(1);
    const std::uint32_t rate = index == 15 ? bits.get(24) : kRates[index];
    if (rate < 8000 || rate > 192000) fail(2);
    return rate;
}

} // namespace

qv::AudioFacts aac(const std::vector<std::uint8_t>& config)
{
    Bits bits(config);
    const auto objectType = bits.get(5);
    if (objectType == 31) fail(2);
    const auto coreRate = samplingFrequency(bits);
    auto outputRate = coreRate;
    const auto channelConfig = bits.get(4);
    bool sbr = false;
    bool ps = false;
    auto coreType = objectType;
    const bool explicitExtension = objectType == 5 || objectType == 29;
    if (explicitExtension) {
        sbr = true;
        ps = objectType == 29;
        outputRate = samplingFrequency(bits);
        coreType = bits.get(5);
    }
    if (coreType != 2 || channelConfig < 1 || channelConfig > 7) fail(2);

    const bool shortFrames = bits.get(1) != 0;
    if (bits.get(1) != 0) bits.skip(14); // core coder delay
    if (bits.get(1) != 0) fail(2);       // extension flag

    if (!explicitExtension && bits.remaining() >= 16) {
        const auto sync = bits.get(11);
        if (sync != 0) {
            if (sync != 0x2B7) fail(2);
            if (bits.get(5) != 5) fail(2);
            if (bits.get(1) == 0) {
                sbr = false;
            } else {
                outputRate = samplingFrequency(bits);
                sbr = true;
                if (bits.remaining() >= 12) {
                    const auto psSync = bits.get(11);
                    if (psSync != 0) {
                        if (psSync != 0x548) fail(2);
                        ps = bits.get(1) != 0;
                    }
                }
            }
        }
    }

    if (!(outputRate == coreRate || (sbr && outputRate == 2 * coreRate))) fail(2);
    if (ps && !(channelConfig == 1 && sbr)) fail(2);

    qv::AudioFacts facts;
    facts.sampleRate = outputRate;
    facts.channels = ps ? 2 : (channelConfig == 7 ? 8 : channelConfig);
    facts.samplesPerFrame = (outputRate / coreRate) * (shortFrames ? 960 : 1024);
    facts.bitsPerSample = 16;
    return facts;
}

} // namespace qv_audio
