#include "timing.h"

#include "codec_config.h"
#include "failure.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace qv {
namespace {

constexpr std::int64_t kNs = 1'000'000'000;

// round(ns * timescale / 1e9), for signed ns.
std::int64_t toUnits(std::int64_t ns, std::uint32_t timescale)
{
    const __int128 scaled = static_cast<__int128>(ns) * timescale;
    const __int128 half = kNs / 2;
    const __int128 q = scaled >= 0 ? (scaled + half) / kNs : -((-scaled + half) / kNs);
    require(q >= std::numeric_limits<std::int64_t>::min() / 2 &&
            q <= std::numeric_limits<std::int64_t>::max() / 2);
    return static_cast<std::int64_t>(q);
}

std::uint32_t checkedDuration(std::int64_t units)
{
    require(units >= 1 && units <= 0xFFFFFFFFll);
    return static_cast<std::uint32_t>(units);
}

std::uint64_t toMovie(std::uint64_t units, std::uint32_t timescale, bool roundUp)
{
    const __int128 scaled = static_cast<__int128>(units) * kMovieTimescale;
    const __int128 q =
        roundUp ? (scaled + timescale - 1) / timescale : (scaled + timescale / 2) / timescale;
    require(q <= std::numeric_limits<std::int64_t>::max());
    return static_cast<std::uint64_t>(q);
}

// The time at which a sample is heard or seen: audio with a codec delay starts presenting that much
// later than its first decoded sample.
std::int64_t presentationStart(const Track& t)
{
    std::int64_t first = std::numeric_limits<std::int64_t>::max();
    for (const auto& s : t.samples)
        first = std::min(first, s.time);
    return first + (t.kind == kVideo ? 0 : static_cast<std::int64_t>(t.codecDelay));
}

void prepareVideo(Track& t, std::int64_t movieStart, std::uint64_t tickNs)
{
    auto& timing = t.timing;
    timing.timescale = videoTimescale(tickNs);
    const auto ts = timing.timescale;
    const auto n = t.samples.size();

    // Presentation times relative to the track's first picture.
    std::vector<std::int64_t> pts(n);
    const auto origin = presentationStart(t);
    for (std::size_t i = 0; i < n; ++i)
        pts[i] = toUnits(t.samples[i].time - origin, ts);

    std::vector<std::int64_t> sorted = pts;
    std::sort(sorted.begin(), sorted.end());
    std::vector<std::int64_t> gaps;
    for (std::size_t i = 1; i < n; ++i)
        if (sorted[i] > sorted[i - 1]) gaps.push_back(sorted[i] - sorted[i - 1]);
    std::int64_t fallback = 33'333 * static_cast<std::int64_t>(ts) / 1'000'000; // 30 frames/s
    if (t.defaultDuration > 0) {
        fallback = toUnits(static_cast<std::int64_t>(t.defaultDuration), ts);
    } else if (!gaps.empty()) {
        std::nth_element(gaps.begin(), gaps.begin() + gaps.size() / 2, gaps.end());
        fallback = gaps[gaps.size() / 2];
    }
    const auto defaultDuration = checkedDuration(fallback);
    timing.frameDuration = defaultDuration;

    timing.durations.resize(n);
    timing.compositions.resize(n);
    std::vector<std::int64_t> decode(n);
    if (n > 0 && t.samples[0].hasDecodeTime) {
        // The source carries decode times: keep them exactly.
        const auto first = toUnits(t.samples[0].decodeTime - origin, ts);
        std::int64_t d = 0;
        for (std::size_t i = 0; i < n; ++i) {
            require(toUnits(t.samples[i].decodeTime - origin, ts) - first == d);
            decode[i] = d;
            const auto duration =
                i + 1 < n
                    ? checkedDuration(toUnits(t.samples[i + 1].decodeTime - origin, ts) - first - d)
                    : defaultDuration;
            timing.durations[i] = duration;
            d += duration;
        }
        for (auto& p : pts)
            p -= first;
    } else {
        // Without decode times, pictures are decoded at the presentation times in ascending
        // order, so decode time never drifts away from presentation time.
        for (std::size_t i = 0; i < n; ++i) {
            decode[i] = sorted[i];
            const auto gap = i + 1 < n ? sorted[i + 1] - sorted[i] : 0;
            timing.durations[i] =
                gap > 0 && gap <= 0xFFFFFFFFll ? static_cast<std::uint32_t>(gap) : defaultDuration;
        }
        // Repeated presentation times leave gaps of 0; decode times must still rise.
        std::int64_t d = 0;
        for (std::size_t i = 0; i < n; ++i) {
            decode[i] = d;
            d += timing.durations[i];
        }
    }

    // Shift presentation so that no picture is shown before it is decoded; the edit then skips
    // the shift, so the track still starts at its first picture.
    std::int64_t shift = 0;
    for (std::size_t i = 0; i < n; ++i)
        shift = std::max(shift, decode[i] - pts[i]);
    std::int64_t end = 0;
    std::int64_t firstShown = std::numeric_limits<std::int64_t>::max();
    for (std::size_t i = 0; i < n; ++i) {
        const auto offset = pts[i] + shift - decode[i];
        require(offset >= std::numeric_limits<std::int32_t>::min() &&
                    offset <= std::numeric_limits<std::int32_t>::max(),
                kUnsupported);
        timing.compositions[i] = static_cast<std::int32_t>(offset);
        end = std::max(end, pts[i] + shift + timing.durations[i]);
        firstShown = std::min(firstShown, pts[i] + shift);
    }
    timing.mediaStart = static_cast<std::uint64_t>(firstShown);
    timing.mediaEnd = static_cast<std::uint64_t>(end);
    timing.movieOffset =
        toMovie(static_cast<std::uint64_t>(toUnits(origin - movieStart, ts)), ts, false);
}

void prepareAudio(Track& t, std::int64_t movieStart)
{
    auto& timing = t.timing;
    timing.timescale = t.audio.sampleRate;
    const auto ts = timing.timescale;
    require(ts > 0, kUnsupported);
    const auto n = t.samples.size();
    timing.durations.resize(n);

    // Times are measured on the decoded timeline, which starts codecDelay before the first
    // presented sample.
    const auto origin = t.samples.front().time;
    std::int64_t running = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const auto& s = t.samples[i];
        const std::uint32_t duration = s.pcmSamples;
        require(duration > 0);
        const auto at = toUnits(s.time - origin, ts);
        const std::int64_t tolerance = std::max<std::int64_t>(duration / 4, ts / 200);
        // Audio is laid out without gaps, so a real gap or overlap would shift everything after it.
        require(std::llabs(at - running) <= tolerance, kUnsupported);
        timing.durations[i] = duration;
        running += duration;
    }
    const auto delay = toUnits(static_cast<std::int64_t>(t.codecDelay), ts);
    const auto padding = toUnits(static_cast<std::int64_t>(t.discardPadding), ts);
    timing.mediaStart = static_cast<std::uint64_t>(std::min<std::int64_t>(delay, running));
    timing.mediaEnd = static_cast<std::uint64_t>(
        std::max<std::int64_t>(running - padding, static_cast<std::int64_t>(timing.mediaStart)));
    const auto lead = origin + static_cast<std::int64_t>(t.codecDelay) - movieStart;
    timing.movieOffset =
        lead > 0 ? toMovie(static_cast<std::uint64_t>(toUnits(lead, ts)), ts, false) : 0;

    if (t.codec == Codec::Aac) {
        timing.rollDistance = -1; // each frame overlaps the previous one
    } else if (t.codec == Codec::Opus && n > 0) {
        // A decoder needs 80 ms of audio before a seek point to converge.
        const std::uint32_t frame = t.samples.front().pcmSamples;
        timing.rollDistance = -static_cast<std::int32_t>((3840 + frame - 1) / frame);
    }
}

} // namespace

std::int64_t toTrackUnits(std::int64_t ns, std::uint32_t timescale)
{
    return toUnits(ns, timescale);
}

std::uint32_t videoTimescale(std::uint64_t tickNs)
{
    // 90 kHz represents millisecond ticks and the common frame rates exactly.
    if ((tickNs * 90'000) % kNs == 0) return 90'000;
    return 1'000'000;
}

void prepareTracks(Reader& reader, Index& index)
{
    for (auto& t : index.tracks) {
        require(!t.samples.empty(), kUnsupported);
        if (t.kind == kVideo) require(t.pixelWidth > 0 && t.pixelHeight > 0);
        prepareCodecConfig(reader, t);
    }
    std::int64_t movieStart = std::numeric_limits<std::int64_t>::max();
    for (const auto& t : index.tracks)
        movieStart = std::min(movieStart, presentationStart(t));
    for (auto& t : index.tracks) {
        if (t.kind == kVideo)
            prepareVideo(t, movieStart, index.timecodeScale);
        else
            prepareAudio(t, movieStart);
    }
}

} // namespace qv
