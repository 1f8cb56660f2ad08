#include "fragment_writer.h"

#include "box_writer.h"
#include "failure.h"
#include "timing.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace qv {
namespace {

// Sample flags of a trun entry: a key frame depends on nothing; any other frame depends on others
// and is not a sync sample.
constexpr std::uint32_t kKeyFlags = 0x02000000;
constexpr std::uint32_t kDependentFlags = 0x01010000;
// trun flags: data offset, then per sample duration, size, flags and composition offset.
constexpr std::uint32_t kVideoRun = 0x000F01;
constexpr std::uint32_t kAudioRun = 0x000301;
// tfhd flag: data offsets count from the moof's first byte.
constexpr std::uint32_t kBaseIsMoof = 0x020000;

// Box sizes behind moofBound: moof + mfhd; traf + tfhd + tfdt + sbgp; a trun's header; its entries.
constexpr std::uint64_t kMoofFixed = 8 + 16;
constexpr std::uint64_t kTrafFixed = 8 + 16 + 20 + 28;
constexpr std::uint64_t kRunFixed = 20;
constexpr std::uint64_t kVideoEntry = 16;
constexpr std::uint64_t kAudioEntry = 8;
static_assert(kMoofBytesPerSample == kRunFixed + kVideoEntry);

std::int64_t units(const Sample& s, const FragmentClock& clock)
{
    return toTrackUnits(s.time - clock.originNs, clock.timescale);
}

TimedRun timeVideo(const Track& t, const FragmentClock& clock, std::optional<std::int64_t> next)
{
    const auto n = t.samples.size();
    TimedRun run;
    std::vector<std::int64_t> pts(n);
    for (std::size_t i = 0; i < n; ++i)
        pts[i] = units(t.samples[i], clock);
    std::vector<std::int64_t> sorted = pts;
    std::sort(sorted.begin(), sorted.end());
    // A picture shown before the track's first one would need a time before media time 0.
    require(n == 0 || sorted.front() >= 0, kUnsupported);

    run.decodeStart = n ? sorted.front() : 0;
    run.durations.resize(n);
    run.compositions.resize(n);
    std::int64_t d = run.decodeStart;
    for (std::size_t i = 0; i < n; ++i) {
        std::int64_t duration = clock.frameDuration;
        if (i + 1 < n) {
            const auto gap = sorted[i + 1] - sorted[i];
            if (gap > 0 && gap <= 0xFFFFFFFFll) duration = gap;
            // Pictures sharing a time (a hidden reference frame beside its shown one) must still
            // decode in turn. With the next fragment's start fixed, they take one unit each
            // rather than a frame's length, so that the fragment still ends where the next begins.
            if (gap == 0 && next) duration = 1;
        } else if (next) {
            // The next fragment decodes from its own first time on; a last frame that would have
            // to last zero or less means the fragments overlap, which no time could express.
            duration = *next - d;
            require(duration >= 1 && duration <= 0xFFFFFFFFll);
        }
        run.durations[i] = static_cast<std::uint32_t>(duration);
        const auto offset = pts[i] + clock.shift - d;
        require(offset >= std::numeric_limits<std::int32_t>::min() &&
                    offset <= std::numeric_limits<std::int32_t>::max(),
                kUnsupported);
        run.compositions[i] = static_cast<std::int32_t>(offset);
        run.neededShift = std::max(run.neededShift, d - pts[i]);
        run.presentationEnd = std::max(run.presentationEnd, pts[i] + clock.shift + duration);
        d += duration;
    }
    return run;
}

TimedRun timeAudio(const Track& t, const FragmentClock& clock)
{
    TimedRun run;
    run.decodeStart = fragmentStart(t, clock);
    const std::int64_t ts = clock.timescale;
    std::int64_t running = run.decodeStart;
    run.durations.reserve(t.samples.size());
    for (const auto& s : t.samples) {
        const std::uint32_t duration = s.pcmSamples;
        require(duration > 0);
        const std::int64_t tolerance = std::max<std::int64_t>(duration / 4, ts / 200);
        // Audio is laid out without gaps, so a real gap or overlap would shift everything after it.
        require(std::llabs(units(s, clock) - running) <= tolerance, kUnsupported);
        run.durations.push_back(duration);
        running += duration;
    }
    run.presentationEnd = running;
    return run;
}

void writeTrun(BoxWriter& w, const Track& t, const TimedRun& run, std::size_t from, std::size_t to,
               std::uint64_t source, std::uint64_t payloadOffset)
{
    const bool video = t.kind == kVideo;
    auto trun = w.full("trun", 1, video ? kVideoRun : kAudioRun);
    w.u32(static_cast<std::uint32_t>(to - from));
    const auto offset = payloadOffset + (t.samples[from].position - source);
    require(offset <= static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()),
            kTooLarge);
    w.u32(static_cast<std::uint32_t>(offset));
    for (auto i = from; i < to; ++i) {
        w.u32(run.durations[i]);
        w.u32(t.samples[i].size);
        if (!video) continue;
        w.u32(t.samples[i].key ? kKeyFlags : kDependentFlags);
        w.u32(static_cast<std::uint32_t>(run.compositions[i]));
    }
}

} // namespace

std::int64_t fragmentStart(const Track& t, const FragmentClock& clock)
{
    if (t.samples.empty()) return 0;
    if (t.kind == kVideo) {
        std::int64_t first = std::numeric_limits<std::int64_t>::max();
        for (const auto& s : t.samples)
            first = std::min(first, units(s, clock));
        return first;
    }
    // Earlier fragments are not read, so the running decode time is recovered from this one's
    // first time: with frames of one length and times inside the quarter-frame rule, the nearest
    // multiple of that length is exactly the sum of every earlier frame's duration.
    const auto at = units(t.samples.front(), clock);
    require(at >= 0, kUnsupported);
    const std::int64_t frame = t.samples.front().pcmSamples;
    const std::int64_t tolerance = std::max<std::int64_t>(frame / 4, clock.timescale / 200);
    if (frame <= 2 * tolerance) return at;
    return (at + frame / 2) / frame * frame;
}

TimedRun timeRun(const Track& track, const FragmentClock& clock, std::optional<std::int64_t> next)
{
    return track.kind == kVideo ? timeVideo(track, clock, next) : timeAudio(track, clock);
}

std::vector<std::uint8_t> writeMoof(std::uint32_t sequence, const std::vector<MoofTrack>& tracks,
                                    std::uint64_t source, std::uint64_t payloadOffset)
{
    BoxWriter w;
    {
        auto moof = w.box("moof");
        {
            auto mfhd = w.full("mfhd", 0, 0);
            w.u32(sequence);
        }
        for (const auto& m : tracks) {
            const Track& t = *m.track;
            if (t.samples.empty()) continue;
            auto traf = w.box("traf");
            {
                auto tfhd = w.full("tfhd", 0, kBaseIsMoof);
                w.u32(m.id);
            }
            {
                auto tfdt = w.full("tfdt", 1, 0);
                w.u64(static_cast<std::uint64_t>(m.run.decodeStart));
            }
            if (m.rollDistance != 0) {
                // Every sample belongs to the moov's one "roll" description.
                auto sbgp = w.full("sbgp", 0, 0);
                w.fourcc("roll");
                w.u32(1);
                w.u32(static_cast<std::uint32_t>(t.samples.size()));
                w.u32(1);
            }
            // Samples that follow each other in the source (the frames of one laced block) share
            // a run; any other sample starts a new run at its own offset.
            std::size_t from = 0;
            for (std::size_t i = 1; i <= t.samples.size(); ++i) {
                if (i < t.samples.size() &&
                    t.samples[i].position == t.samples[i - 1].position + t.samples[i - 1].size)
                    continue;
                writeTrun(w, t, m.run, from, i, source, payloadOffset);
                from = i;
            }
        }
    }
    return w.take();
}

std::uint64_t moofBound(const std::vector<std::uint64_t>& samples, const std::vector<bool>& video)
{
    std::uint64_t bound = kMoofFixed;
    for (std::size_t t = 0; t < samples.size(); ++t)
        bound += kTrafFixed + samples[t] * (kRunFixed + (video[t] ? kVideoEntry : kAudioEntry));
    return bound;
}

} // namespace qv
