#pragma once
// What a demuxer hands to the rest of the engine: tracks with their codec settings and every
// sample's place and time in the source file.
#include "qv_media.h"
#include "subtitles.h"

#include <cstdint>
#include <string>
#include <vector>

namespace qv {

enum class Codec : std::uint8_t {
    Unknown,
    Avc,
    Hevc,
    Vp9,
    Av1,
    Aac,
    Opus,
    Flac,
    Ac3,
    Eac3,
    Mp3,
    Alac,
};

const char* codecName(Codec codec) noexcept;

// The engine's one numbering of track kinds, the one qv_media_track_kind reports.
enum TrackKind : std::uint8_t { kVideo = QV_MEDIA_TRACK_VIDEO, kAudio = QV_MEDIA_TRACK_AUDIO };

// Units per second of the movie timeline (mvhd, tkhd and edit-list durations).
inline constexpr std::uint32_t kMovieTimescale = 1000;

struct Sample {
    std::uint64_t position = 0;   // source offset of the first byte
    std::int64_t time = 0;        // presentation time, nanoseconds
    std::int64_t decodeTime = 0;  // decode time, nanoseconds, when hasDecodeTime
    std::uint32_t size = 0;       // bytes
    std::uint32_t pcmSamples = 0; // audio: samples this frame decodes to, at the track's rate
    bool key = false;
    bool hasDecodeTime = false;
};

// Audio facts from a codec configuration.
struct AudioFacts {
    std::uint32_t sampleRate = 0;
    std::uint32_t channels = 0;
    std::uint32_t samplesPerFrame = 0;
    std::uint32_t bitsPerSample = 0;
};

// Matroska's Colour element; a value of kUnset was absent from the file.
struct Colour {
    static constexpr std::uint32_t kUnset = 0xFFFFFFFF;
    std::uint32_t matrix = kUnset;
    std::uint32_t transfer = kUnset;
    std::uint32_t primaries = kUnset;
    bool fullRange = false;
    bool present() const noexcept
    {
        return matrix != kUnset || transfer != kUnset || primaries != kUnset;
    }
};

// Timing of a track in its own timescale, made by the track preparation.
struct TrackTiming {
    std::uint32_t timescale = 0;
    std::vector<std::uint32_t> durations;   // per sample, decode order
    std::vector<std::int32_t> compositions; // presentation minus decode time, per sample
    std::uint64_t mediaStart = 0;           // media time where the presentation begins
    std::uint64_t mediaEnd = 0;             // largest presentation time + duration
    std::uint64_t movieOffset = 0;          // empty lead-in before the track, movie units (ms)
    std::int32_t rollDistance = 0;   // samples of pre-roll a decoder needs (negative), 0 for none
    std::uint32_t frameDuration = 0; // video: duration of a frame whose own is unknown
};

struct Track {
    std::uint64_t number = 0;
    TrackKind kind = kAudio;
    Codec codec = Codec::Unknown;
    std::string codecId;
    std::vector<std::uint8_t> codecPrivate;
    std::string language = "und"; // ISO 639-2/T, three lowercase letters
    std::string name;             // UTF-8, at most limits::kMaxTitle bytes
    bool enabled = true;
    bool isDefault = true;
    bool encoded = false;
    std::uint64_t defaultDuration = 0; // nanoseconds
    std::uint64_t codecDelay = 0;      // nanoseconds
    std::uint64_t discardPadding = 0;  // nanoseconds trimmed from the end of the last block
    std::uint32_t pixelWidth = 0;
    std::uint32_t pixelHeight = 0;
    std::uint32_t displayWidth = 0;
    std::uint32_t displayHeight = 0;
    std::uint32_t displayUnit = 0;
    Colour colour;
    std::uint32_t channels = 0;
    std::uint32_t sampleRate = 0;
    AudioFacts audio; // from the codec configuration
    // Payload of the sample entry's configuration box (avcC, hvcC, av1C, vpcC, dOps, ...), made
    // while the track is prepared.
    std::vector<std::uint8_t> config;
    std::vector<Sample> samples;
    std::uint64_t sampleCount = 0; // kept when the sample list is released after the layout
    TrackTiming timing;
};

struct Index {
    std::vector<Track> tracks;
    std::uint64_t sampleCount = 0;
    std::uint32_t format = 0;                // 1 Matroska/WebM, 2 FLV
    std::uint64_t timecodeScale = 1'000'000; // nanoseconds per Matroska tick (FLV: 1,000,000)
    std::vector<SubtitleTrack> subtitles;    // text subtitle tracks, not part of the movie
    std::vector<Attachment> attachments;

    void append(Track& track, const Sample& sample);
};

} // namespace qv
