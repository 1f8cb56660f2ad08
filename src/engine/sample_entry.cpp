#include "sample_entry.h"

#include "failure.h"

#include <algorithm>
#include <numeric>

namespace qv {
namespace {

const char* entryType(Codec codec)
{
    switch (codec) {
    case Codec::Avc:
        return "avc1";
    case Codec::Hevc:
        return "hvc1";
    case Codec::Av1:
        return "av01";
    case Codec::Vp9:
        return "vp09";
    case Codec::Aac:
        return "mp4a";
    case Codec::Opus:
        return "Opus";
    case Codec::Flac:
        return "fLaC";
    case Codec::Ac3:
        return "ac-3";
    case Codec::Eac3:
        return "ec-3";
    case Codec::Mp3:
        return ".mp3";
    case Codec::Alac:
        return "alac";
    case Codec::Unknown:
        break;
    }
    fail(kUnsupported);
}

void writeColr(BoxWriter& w, const Colour& c)
{
    if (!c.present()) return;
    const auto value = [](std::uint32_t v) { return v == Colour::kUnset ? 2u : v; };
    auto colr = w.box("colr");
    w.fourcc("nclx");
    w.u16(value(c.primaries));
    w.u16(value(c.transfer));
    w.u16(value(c.matrix));
    w.u8(c.fullRange ? 0x80 : 0);
}

void writePasp(BoxWriter& w, const Track& t)
{
    // Any display unit gives the displayed shape, so the ratio comes from the raw values.
    const bool given = t.displayWidth > 0 && t.displayHeight > 0;
    const std::uint32_t dw = given ? t.displayWidth : t.pixelWidth;
    const std::uint32_t dh = given ? t.displayHeight : t.pixelHeight;
    std::uint64_t h = std::uint64_t(dw) * t.pixelHeight;
    std::uint64_t v = std::uint64_t(dh) * t.pixelWidth;
    if (h == 0 || v == 0) h = v = 1;
    const auto g = std::gcd(h, v);
    h /= g;
    v /= g;
    while (h > 0xFFFFFFFFull || v > 0xFFFFFFFFull) {
        h >>= 1;
        v >>= 1;
    }
    auto pasp = w.box("pasp");
    w.u32(static_cast<std::uint32_t>(std::max<std::uint64_t>(h, 1)));
    w.u32(static_cast<std::uint32_t>(std::max<std::uint64_t>(v, 1)));
}

void writeVideoEntry(BoxWriter& w, const Track& t)
{
    auto entry = w.box(entryType(t.codec));
    w.zeros(6);
    w.u16(1); // data reference index
    w.zeros(16);
    w.u16(t.pixelWidth);
    w.u16(t.pixelHeight);
    w.u32(0x00480000); // 72 dpi
    w.u32(0x00480000);
    w.u32(0);
    w.u16(1);    // frame count
    w.zeros(32); // compressor name
    w.u16(0x0018);
    w.u16(0xFFFF);
    {
        const char* type = t.codec == Codec::Avc    ? "avcC"
                           : t.codec == Codec::Hevc ? "hvcC"
                           : t.codec == Codec::Av1  ? "av1C"
                                                    : nullptr;
        if (type) {
            auto config = w.box(type);
            w.bytes(t.config);
        } else {
            auto config = w.full("vpcC", 1, 0);
            w.bytes(t.config);
        }
    }
    writeColr(w, t.colour);
    writePasp(w, t);
}

void descriptor(BoxWriter& w, std::uint8_t tag, std::size_t length)
{
    w.u8(tag);
    // The four-byte form of the expandable size keeps the layout independent of the length.
    w.u8(0x80 | ((length >> 21) & 0x7F));
    w.u8(0x80 | ((length >> 14) & 0x7F));
    w.u8(0x80 | ((length >> 7) & 0x7F));
    w.u8(length & 0x7F);
}

void writeEsds(BoxWriter& w, const Track& t)
{
    std::uint64_t total = 0;
    std::uint32_t largest = 0;
    std::uint64_t pcm = 0;
    for (const auto& s : t.samples) {
        total += s.size;
        largest = std::max(largest, s.size);
        pcm += s.pcmSamples;
    }
    const std::uint64_t rate = t.audio.sampleRate;
    const auto average = pcm > 0 ? static_cast<std::uint32_t>(
                                       std::min<std::uint64_t>(total * 8 * rate / pcm, 0xFFFFFFFFu))
                                 : 0;
    const auto peak =
        t.audio.samplesPerFrame > 0
            ? static_cast<std::uint32_t>(std::min<std::uint64_t>(
                  std::uint64_t(largest) * 8 * rate / t.audio.samplesPerFrame, 0xFFFFFFFFu))
            : average;
    const std::size_t asc = t.config.size();
    auto esds = w.full("esds", 0, 0);
    descriptor(w, 0x03, 3 + 5 + 13 + 5 + asc + 5 + 1);
    w.u16(0); // ES_ID
    w.u8(0);
    descriptor(w, 0x04, 13 + 5 + asc);
    w.u8(0x40); // MPEG-4 audio
    w.u8(0x15); // audio stream
    w.u24(std::min<std::uint32_t>(largest, 0xFFFFFF));
    w.u32(std::max(peak, average));
    w.u32(average);
    descriptor(w, 0x05, asc);
    w.bytes(t.config);
    descriptor(w, 0x06, 1);
    w.u8(0x02);
}

void writeAudioEntry(BoxWriter& w, const Track& t)
{
    auto entry = w.box(entryType(t.codec));
    w.zeros(6);
    w.u16(1);
    w.zeros(8);
    w.u16(t.audio.channels);
    // Lossless entries carry the stream's real sample size; the others decode to 16 bits.
    const bool lossless = t.codec == Codec::Flac || t.codec == Codec::Alac;
    w.u16(lossless ? t.audio.bitsPerSample : 16);
    w.zeros(4);
    w.u32(t.audio.sampleRate <= 0xFFFF ? t.audio.sampleRate << 16 : 0);
    switch (t.codec) {
    case Codec::Aac:
        writeEsds(w, t);
        break;
    case Codec::Opus: {
        auto dops = w.box("dOps");
        w.bytes(t.config);
        break;
    }
    case Codec::Flac: {
        auto dfla = w.full("dfLa", 0, 0);
        w.bytes(t.config);
        break;
    }
    case Codec::Ac3: {
        auto dac3 = w.box("dac3");
        w.bytes(t.config);
        break;
    }
    case Codec::Eac3: {
        auto dec3 = w.box("dec3");
        w.bytes(t.config);
        break;
    }
    case Codec::Alac: {
        auto alac = w.full("alac", 0, 0);
        w.bytes(t.config);
        break;
    }
    case Codec::Mp3:
        break; // ".mp3" describes itself in every frame header
    default:
        fail(kUnsupported);
    }
}

} // namespace

std::pair<std::uint32_t, std::uint32_t> displaySize(const Track& t)
{
    if (t.displayWidth == 0 || t.displayHeight == 0) return {t.pixelWidth, t.pixelHeight};
    if (t.displayUnit == 0) return {t.displayWidth, t.displayHeight};
    // Other units only give the shape: keep the picture's height and widen or narrow it.
    const auto width = std::uint64_t(t.pixelHeight) * t.displayWidth / t.displayHeight;
    return {static_cast<std::uint32_t>(std::clamp<std::uint64_t>(width, 1, 65535)), t.pixelHeight};
}

void writeSampleEntry(BoxWriter& w, const Track& track)
{
    if (track.kind == kVideo)
        writeVideoEntry(w, track);
    else
        writeAudioEntry(w, track);
}

} // namespace qv
