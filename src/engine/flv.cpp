#include "flv.h"

#include "audio/aac.h"
#include "avc_sps.h"
#include "engine_limits.h"
#include "failure.h"

namespace qv {
namespace {

constexpr std::uint8_t kAudioTag = 8;
constexpr std::uint8_t kVideoTag = 9;
constexpr std::uint8_t kAnnouncesAudio = 4;
constexpr std::uint8_t kAnnouncesVideo = 1;
constexpr unsigned kSoundAac = 10;
constexpr unsigned kCodecAvc = 7;
constexpr std::uint8_t kSequenceHeader = 0;
constexpr std::uint8_t kAacRaw = 1;
constexpr std::uint8_t kAvcNalUnits = 1;
constexpr std::uint8_t kAvcEndOfSequence = 2;
constexpr unsigned kKeyFrame = 1;
constexpr std::int64_t kNanosPerMilli = 1'000'000;

struct Demux {
    Reader& reader;
    Track video;
    Track audio;
    bool videoHeader = false;
    bool audioHeader = false;

    void audioTag(std::uint64_t position, std::uint64_t dataSize, std::int64_t timestamp)
    {
        require(dataSize >= 2, kUnsupported);
        require((reader.byte(position + 11) >> 4) == kSoundAac, kUnsupported);
        const std::uint8_t packetType = reader.byte(position + 12);
        if (packetType == kSequenceHeader) {
            require(!audioHeader, kUnsupported);
            audioHeader = true;
            audio.codecPrivate = reader.bytes(position + 13, dataSize - 2);
            audio.audio = qv_audio::aac(audio.codecPrivate);
            return;
        }
        require(packetType == kAacRaw);
        Sample s;
        s.position = position + 13;
        s.size = static_cast<std::uint32_t>(dataSize - 2);
        s.time = timestamp * kNanosPerMilli;
        s.key = true;
        audio.samples.push_back(s);
    }

    void videoTag(std::uint64_t position, std::uint64_t dataSize, std::int64_t timestamp)
    {
        require(dataSize >= 5, kUnsupported);
        const std::uint8_t flags = reader.byte(position + 11);
        require((flags & 0x0F) == kCodecAvc, kUnsupported);
        const std::uint8_t packetType = reader.byte(position + 12);
        if (packetType == kSequenceHeader) {
            require(!videoHeader, kUnsupported);
            videoHeader = true;
            video.codecPrivate = reader.bytes(position + 16, dataSize - 5);
            return;
        }
        if (packetType == kAvcEndOfSequence) return;
        require(packetType == kAvcNalUnits, kUnsupported);
        // Composition time: signed 24 bits.
        auto composition = static_cast<std::int64_t>(reader.uintBE(position + 13, 3));
        if (composition & 0x800000) composition -= 0x1000000;
        Sample s;
        s.position = position + 16;
        s.size = static_cast<std::uint32_t>(dataSize - 5);
        s.decodeTime = timestamp * kNanosPerMilli;
        s.hasDecodeTime = true;
        s.time = (timestamp + composition) * kNanosPerMilli;
        s.key = (flags >> 4) == kKeyFrame;
        video.samples.push_back(s);
    }
};

} // namespace

bool probeFlv(Reader& reader)
{
    return reader.size() >= 3 && reader.byte(0) == 'F' && reader.byte(1) == 'L' &&
           reader.byte(2) == 'V';
}

Index flv(Reader& reader)
{
    const std::uint64_t size = reader.size();
    require(size >= limits::kFlvHeaderSize);
    require(probeFlv(reader) && reader.byte(3) == 1);
    const std::uint8_t announced = reader.byte(4);
    const std::uint64_t dataOffset = reader.uintBE(5, 4);
    require(dataOffset > 8 && dataOffset <= size - 4);

    Demux d{reader, {}, {}};
    std::uint64_t tags = 0;
    // The first previous-tag-size field (always 0) stands between the header and the first tag.
    for (std::uint64_t position = dataOffset + 4; position < size;) {
        reader.check();
        require(++tags <= limits::kMaxFlvTags, kTooLarge);
        const std::uint64_t remaining = size - position;
        require(remaining >= limits::kFlvTagOverhead);
        const std::uint8_t type = reader.byte(position);
        const std::uint64_t dataSize = reader.uintBE(position + 1, 3);
        const auto timestamp = static_cast<std::int64_t>(reader.uintBE(position + 4, 3) |
                                                         (reader.uintBE(position + 7, 1) << 24));
        require(dataSize <= remaining - limits::kFlvTagOverhead);
        require(reader.uintBE(position + 11 + dataSize, 4) == dataSize + 11);
        if (type == kAudioTag)
            d.audioTag(position, dataSize, timestamp);
        else if (type == kVideoTag)
            d.videoTag(position, dataSize, timestamp);
        position += 11 + dataSize + 4;
    }

    require(!(announced & kAnnouncesVideo) || !d.video.samples.empty(), kUnsupported);
    require(!(announced & kAnnouncesAudio) || !d.audio.samples.empty(), kUnsupported);

    Index index;
    index.format = 2;
    index.timecodeScale = 1'000'000;
    if (!d.video.samples.empty()) {
        Track& v = d.video;
        const auto picture = avcPictureSize(avcFirstSps(v.codecPrivate));
        v.number = 1;
        v.kind = kVideo;
        v.codec = Codec::Avc;
        v.codecId = "V_MPEG4/ISO/AVC";
        v.pixelWidth = v.displayWidth = picture.width;
        v.pixelHeight = v.displayHeight = picture.height;
        index.sampleCount += v.samples.size();
        index.tracks.push_back(std::move(v));
    }
    if (!d.audio.samples.empty()) {
        Track& a = d.audio;
        // Frames before a configuration cannot be described to the decoder.
        require(d.audioHeader, kUnsupported);
        a.number = 2;
        a.kind = kAudio;
        a.codec = Codec::Aac;
        a.codecId = "A_AAC";
        a.sampleRate = a.audio.sampleRate;
        a.channels = a.audio.channels;
        for (Sample& s : a.samples)
            s.pcmSamples = a.audio.samplesPerFrame;
        index.sampleCount += a.samples.size();
        index.tracks.push_back(std::move(a));
    }
    return index;
}

} // namespace qv
