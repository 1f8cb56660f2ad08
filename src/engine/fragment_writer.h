#pragma once
// One movie fragment of the fragmented layout: the timing of a cluster run's samples, continued
// from the clock fixed when the file was opened, and the moof box that points at those samples
// inside the run's own bytes.
#include "index.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace qv {

// What stays fixed per track from the open on, so that any fragment can be timed on its own.
struct FragmentClock {
    std::int64_t originNs = 0; // source time of the track's media time 0
    std::uint32_t timescale = 0;
    std::int64_t shift = 0;          // video: added to presentation times, none precedes decoding
    std::uint32_t frameDuration = 0; // video: duration of a frame whose own is unknown
};

// One track's samples of one fragment, timed.
struct TimedRun {
    std::int64_t decodeStart = 0;           // the fragment's tfdt
    std::vector<std::uint32_t> durations;   // per sample, decode order
    std::vector<std::int32_t> compositions; // video: presentation minus decode time
    std::int64_t presentationEnd = 0;       // largest presentation time + duration
    std::int64_t neededShift = 0;           // video: the shift this run alone would need
};

// The decode time at which the track's samples of a fragment begin: for video their smallest
// presentation time (decode times are the sorted presentation times), for audio the first
// sample's time put on the gapless grid of its frame length.
std::int64_t fragmentStart(const Track& track, const FragmentClock& clock);

// Times track.samples, one fragment's worth. next is the fragmentStart of the same track in the
// following fragment when known: the last sample then lasts until it, so the next fragment's
// decode time continues this one's. A timing rule that fails throws its code.
TimedRun timeRun(const Track& track, const FragmentClock& clock, std::optional<std::int64_t> next);

struct MoofTrack {
    const Track* track = nullptr; // with this fragment's samples
    std::uint32_t id = 0;         // track ID in the moov
    std::int32_t rollDistance = 0;
    TimedRun run;
};

// The moof box of fragment `sequence` (from 1). Its payload carries the source bytes from `source`
// on and begins payloadOffset bytes after the moof's first byte.
std::vector<std::uint8_t> writeMoof(std::uint32_t sequence, const std::vector<MoofTrack>& tracks,
                                    std::uint64_t source, std::uint64_t payloadOffset);

// The most bytes one sample can add to a moof: a trun of its own with a video entry.
inline constexpr std::uint64_t kMoofBytesPerSample = 36;

// The largest moof writeMoof can make for these per-track sample counts.
std::uint64_t moofBound(const std::vector<std::uint64_t>& samples, const std::vector<bool>& video);

} // namespace qv
