#include "fragment_layout.h"

#include "box_writer.h"
#include "cues.h"
#include "ebml.h"
#include "engine_limits.h"
#include "failure.h"
#include "matroska.h"
#include "matroska_ids.h"
#include "movie_writer.h"
#include "timing.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

namespace qv {
namespace {

constexpr std::uint32_t kMovieTimescale = 1000;
constexpr std::uint64_t kMdatHeader = 16;
constexpr std::uint64_t kFreeHeader = 8;
// Moofs kept built; a player reads around one or two fragments at a time.
constexpr std::size_t kMoofCache = 16;
// Estimated sample counts: twice the first fragment's rate, plus this many per track.
constexpr std::uint64_t kSlackSamples = 16;
// Fragments looked through, back from the last, for the end of a track that stops early.
constexpr std::size_t kEndSearch = 8;
// Fragments besides the first, second and last whose cue is checked at open.
constexpr std::size_t kCueChecks = 16;
// Bytes of a fragment read in one go at open; a longer one is walked beyond by the usual reads.
constexpr std::uint64_t kPreloadBytes = 4ull << 20;
// trun data offsets are signed 32-bit, counted from the moof.
constexpr std::uint64_t kMaxFragmentSpan = 0x7FFFFFFF;

enum class Choice { Automatic, Full, Fragmented };

Choice layoutChoice()
{
    const char* value = std::getenv(kLayoutVariable);
    if (!value) return Choice::Automatic;
    const std::string_view v(value);
    if (v == "full") return Choice::Full;
    if (v == "fragmented") return Choice::Fragmented;
    return Choice::Automatic;
}

std::uint64_t movieDuration(const Track& t)
{
    if (t.timing.timescale == 0) return t.timing.movieOffset;
    const auto d =
        static_cast<unsigned __int128>(t.timing.mediaEnd - t.timing.mediaStart) * kMovieTimescale;
    return static_cast<std::uint64_t>((d + t.timing.timescale - 1) / t.timing.timescale) +
           t.timing.movieOffset;
}

void writeFileType(BoxWriter& w)
{
    auto ftyp = w.box("ftyp");
    w.fourcc("isom");
    w.u32(0x200);
    w.fourcc("isom");
    w.fourcc("iso6");
    w.fourcc("mp41");
}

std::uint64_t add(std::uint64_t a, std::uint64_t b)
{
    require(a + b >= a, kTooLarge);
    return a + b;
}

} // namespace

std::unique_ptr<FragmentedMovie> FragmentedMovie::open(Reader& reader)
{
    const auto choice = layoutChoice();
    if (choice == Choice::Full || !probeMatroska(reader)) return nullptr;
    if (choice == Choice::Automatic && reader.size() < kFragmentedMinimumSize) return nullptr;
    std::unique_ptr<FragmentedMovie> movie(new FragmentedMovie(reader));
    try {
        if (movie->build()) return movie;
    } catch (const Failure& failure) {
        // Whatever stops the fragmented layout is for the full index to judge, with its own code.
        if (failure.code() == kCancelled) throw;
    }
    reader.dropCache();
    return nullptr;
}

bool FragmentedMovie::build()
{
    auto head = matroskaHead(m_reader);
    if (head.firstCluster == 0) return false;
    const auto cues = cueClusters(m_reader, head);
    if (cues.empty()) return false;
    const auto scale = static_cast<std::int64_t>(head.index.timecodeScale);
    const auto ticksToNs = [&](std::uint64_t ticks) {
        require(ticks <= limits::kMaxClusterTimeNs / head.index.timecodeScale);
        return static_cast<std::int64_t>(ticks) * scale;
    };

    // Fragment boundaries: the first cluster, then every cued cluster after it.
    m_fragments.push_back({head.firstCluster, 0, 0, 0, 0});
    bool firstCued = false;
    for (const auto& cue : cues) {
        if (cue.position < head.firstCluster) return false; // before any cluster: not one
        if (cue.position == head.firstCluster) {
            firstCued = true;
            m_fragments.front().startNs = ticksToNs(cue.ticks);
        } else {
            m_fragments.push_back({cue.position, 0, 0, 0, ticksToNs(cue.ticks)});
        }
    }
    for (std::size_t i = 0; i < m_fragments.size(); ++i)
        m_fragments[i].length =
            (i + 1 < m_fragments.size() ? m_fragments[i + 1].source : head.segmentEnd) -
            m_fragments[i].source;
    m_heads = std::move(head.index);

    // What open and the first read walk, read at once: the first two fragments and the last.
    // Beside them, the first bytes of up to kCueChecks other fragments, spread evenly, so that
    // Cues pointing at something other than a Cluster keep the full layout.
    std::vector<std::pair<std::uint64_t, std::uint64_t>> wanted;
    const std::size_t count = m_fragments.size();
    for (const auto i : {std::size_t(0), std::size_t(1), count - 1})
        if (i < count && (wanted.empty() || wanted.back().first < m_fragments[i].source))
            wanted.emplace_back(m_fragments[i].source,
                                std::min(m_fragments[i].length, kPreloadBytes));
    std::vector<std::uint64_t> checked;
    if (count > 2) checked.push_back(m_fragments[1].source);
    const std::size_t middle = count > 3 ? count - 3 : 0; // fragments 2 .. count - 2
    const std::size_t checks = std::min(middle, kCueChecks);
    for (std::size_t k = 0; k < checks; ++k)
        checked.push_back(m_fragments[2 + k * middle / checks].source);
    for (const auto at : checked)
        wanted.emplace_back(at, 4);
    m_reader.preload(wanted);
    for (const auto at : checked)
        if (m_reader.uintBE(at, 4) != mkv::kCluster) return false;

    // The first and last fragments give the edit lists, durations and sample rates.
    const std::size_t lastAt = m_fragments.size() - 1;
    Index first = indexFragment(0);
    for (const auto& t : first.tracks)
        if (t.samples.empty()) return false;
    Index last = lastAt > 0 ? indexFragment(lastAt) : Index{};
    for (const auto& t : first.tracks)
        if (lastAt > 0 && t.discardPadding > 0) return false; // only a track's end may trim
    // Each track ends in the last fragment that holds it: normally the last one, but a track that
    // stops early (sound ending before the picture) is looked for a few fragments back.
    const Index& final = lastAt > 0 ? last : first;
    std::deque<Index> earlier;
    std::vector<const Track*> ends;
    for (std::size_t t = 0; t < first.tracks.size(); ++t) {
        std::size_t at = lastAt;
        const Track* end = &final.tracks[t];
        while (end->samples.empty() && at > 1 && lastAt - at < kEndSearch) {
            --at;
            earlier.push_back(indexFragment(at));
            end = &earlier.back().tracks[t];
        }
        if (end->samples.empty()) return false;
        ends.push_back(end);
        m_endFragments.push_back(at);
    }
    const std::uint64_t openedSamples = first.sampleCount + last.sampleCount;
    std::vector<std::uint64_t> firstCounts, lastCounts;
    for (std::size_t t = 0; t < first.tracks.size(); ++t) {
        firstCounts.push_back(first.tracks[t].samples.size());
        lastCounts.push_back(lastAt > 0 ? last.tracks[t].samples.size() : firstCounts.back());
    }
    if (!firstCued) {
        std::int64_t earliest = std::numeric_limits<std::int64_t>::max();
        for (const auto& t : first.tracks)
            for (const auto& s : t.samples)
                earliest = std::min(earliest, s.time);
        m_fragments.front().startNs = earliest;
    }

    // The first read of the file will want fragment 0's moof: keep what open already indexed.
    Index firstAgain = first;
    prepareTracks(m_reader, first);
    for (std::size_t t = 0; t < first.tracks.size(); ++t) {
        Track& prepared = first.tracks[t];
        auto& timing = prepared.timing;
        FragmentClock clock;
        clock.timescale = timing.timescale;
        if (prepared.kind == kVideo) {
            clock.originNs = std::numeric_limits<std::int64_t>::max();
            for (const auto& s : prepared.samples)
                clock.originNs = std::min(clock.originNs, s.time);
            clock.frameDuration = timing.frameDuration;
            clock.shift = static_cast<std::int64_t>(timing.mediaStart);
            if (lastAt > 0)
                clock.shift =
                    std::max(clock.shift, timeRun(*ends[t], clock, std::nullopt).neededShift);
            timing.mediaStart = static_cast<std::uint64_t>(clock.shift);
            const auto end = std::max(timeRun(prepared, clock, std::nullopt).presentationEnd,
                                      timeRun(*ends[t], clock, std::nullopt).presentationEnd);
            timing.mediaEnd = static_cast<std::uint64_t>(end);
        } else {
            clock.originNs = prepared.samples.front().time;
            const auto run = timeRun(*ends[t], clock, std::nullopt);
            const auto padding =
                toTrackUnits(static_cast<std::int64_t>(ends[t]->discardPadding), clock.timescale);
            timing.mediaEnd = static_cast<std::uint64_t>(std::max<std::int64_t>(
                run.presentationEnd - padding, static_cast<std::int64_t>(timing.mediaStart)));
        }
        m_clocks.push_back(clock);
        prepared.sampleCount = firstCounts[t] + (lastAt > 0 ? lastCounts[t] : 0);
        std::vector<Sample>().swap(prepared.samples);
        std::vector<std::uint32_t>().swap(timing.durations);
        std::vector<std::int32_t>().swap(timing.compositions);
    }
    m_index = std::move(first);
    m_index.sampleCount = openedSamples;

    // Slots. Sample rates per track come from the first fragment's time span.
    std::vector<bool> video;
    for (const auto& t : m_index.tracks)
        video.push_back(t.kind == kVideo);
    std::int64_t firstSpan = lastAt > 0 ? m_fragments[1].startNs - m_fragments[0].startNs : 0;
    firstSpan = std::max<std::int64_t>(firstSpan, 1'000'000);
    const std::uint64_t fixed = moofBound(std::vector<std::uint64_t>(video.size(), 0), video);
    for (std::size_t i = 0; i < m_fragments.size(); ++i) {
        auto& f = m_fragments[i];
        std::vector<std::uint64_t> estimate(video.size());
        for (std::size_t t = 0; t < video.size(); ++t) {
            if (i == 0 || i == lastAt) {
                estimate[t] = i == 0 ? firstCounts[t] : lastCounts[t];
                continue;
            }
            const auto span = std::max<std::int64_t>(m_fragments[i + 1].startNs - f.startNs, 0);
            const auto expected = static_cast<unsigned __int128>(span) * firstCounts[t] * 2 /
                                  static_cast<std::uint64_t>(firstSpan);
            // Every sample takes at least one payload byte, which caps any estimate.
            estimate[t] = static_cast<std::uint64_t>(
                std::min<unsigned __int128>(expected + kSlackSamples, f.length));
        }
        // The payload must lie within a signed 32-bit offset of the moof.
        if (f.length > kMaxFragmentSpan) return false;
        f.slot = moofBound(estimate, video) + kFreeHeader;
        const std::uint64_t cap = fixed + kMoofBytesPerSample * f.length + kFreeHeader;
        f.slot = std::min(f.slot, cap);
        if (f.slot + kMdatHeader > kMaxFragmentSpan - f.length) return false;
    }

    // The moov: today's tracks, no samples, and mvex.
    std::uint64_t duration = 0;
    for (const auto& t : m_index.tracks)
        duration = std::max(duration, movieDuration(t));
    const std::vector<std::vector<std::uint64_t>> noOffsets(m_index.tracks.size());
    const auto moov = writeMovie(m_index, noOffsets, [&](BoxWriter& w) {
        auto mvex = w.box("mvex");
        {
            auto mehd = w.full("mehd", 1, 0);
            w.u64(duration);
        }
        for (std::size_t t = 0; t < m_index.tracks.size(); ++t) {
            auto trex = w.full("trex", 0, 0);
            w.u32(static_cast<std::uint32_t>(t + 1));
            w.u32(1); // the one sample description
            w.u32(0);
            w.u32(0);
            w.u32(video[t] ? 0x01010000 : 0); // audio: every sample is a sync sample
        }
    });
    BoxWriter ftyp;
    writeFileType(ftyp);
    m_header = ftyp.take();
    m_header.insert(m_header.end(), moov.begin(), moov.end());

    std::uint64_t cursor = m_header.size();
    for (auto& f : m_fragments) {
        f.position = cursor;
        cursor = add(add(cursor, f.slot + kMdatHeader), f.length);
    }
    m_mfraAt = cursor;
    m_mfra = movieFragmentRandomAccess();
    m_size = add(cursor, m_mfra.size());
    require(m_size < ~std::uint64_t(0), kTooLarge);
    m_reader.check();
    m_reader.dropCache();
    m_ahead.emplace(0, std::move(firstAgain));
    return true;
}

Index FragmentedMovie::indexFragment(std::size_t i)
{
    if (m_ahead && m_ahead->first == i) {
        Index ahead = std::move(m_ahead->second);
        m_ahead.reset();
        return ahead;
    }
    const auto& f = m_fragments[i];
    // A fragment starts at a cluster, whatever its cue said.
    require(ebml::element(m_reader, f.source, end(i)).id == mkv::kCluster);
    Index index = m_heads;
    matroskaClusters(m_reader, index, f.source, end(i));
    if (subtitleSink && !index.subtitles.empty()) subtitleSink(index.subtitles);
    return index;
}

const std::vector<std::uint8_t>& FragmentedMovie::moof(std::size_t i)
{
    for (const auto& [at, bytes] : m_moofs)
        if (at == i) return bytes;
    Index samples = indexFragment(i);
    // Video's last frame lasts until the next fragment's first picture, so that one is indexed
    // too (and kept for its own read). Audio needs nothing from it. When the next fragment is
    // damaged, its own read fails; this one still ends its last frame on the usual length.
    std::optional<Index> next;
    const bool video = std::any_of(m_index.tracks.begin(), m_index.tracks.end(),
                                   [](const Track& t) { return t.kind == kVideo; });
    if (video && i + 1 < m_fragments.size()) {
        try {
            next = indexFragment(i + 1);
        } catch (const Failure& failure) {
            if (failure.code() == kCancelled) throw;
        }
    }
    std::vector<MoofTrack> tracks;
    for (std::size_t t = 0; t < samples.tracks.size(); ++t) {
        const Track& track = samples.tracks[t];
        // DiscardPadding trims the end of a stream, so only the track's last fragment may carry it.
        require(track.discardPadding == 0 || i == m_endFragments[t], kUnsupported);
        std::optional<std::int64_t> following;
        if (next && !next->tracks[t].samples.empty())
            following = fragmentStart(next->tracks[t], m_clocks[t]);
        MoofTrack m;
        m.track = &track;
        m.id = static_cast<std::uint32_t>(t + 1);
        m.rollDistance = m_index.tracks[t].timing.rollDistance;
        m.run = timeRun(track, m_clocks[t], following);
        tracks.push_back(std::move(m));
    }
    const auto& f = m_fragments[i];
    auto bytes =
        writeMoof(static_cast<std::uint32_t>(i + 1), tracks, f.source, f.slot + kMdatHeader);
    // The slot was fixed at open; a moof that outgrows it cannot be placed.
    require(bytes.size() + kFreeHeader <= f.slot, kTooLarge);
    if (next) m_ahead.emplace(i + 1, std::move(*next));
    if (m_moofs.size() == kMoofCache) m_moofs.pop_front();
    m_moofs.emplace_back(i, std::move(bytes));
    return m_moofs.back().second;
}

std::vector<std::uint8_t> FragmentedMovie::movieFragmentRandomAccess() const
{
    // tfra: header 24 bytes, then per fragment a 64-bit time and offset and three 1-byte numbers.
    const std::uint64_t tfraSize = 24 + 19 * std::uint64_t(m_fragments.size());
    const std::uint64_t total = 8 + tfraSize * m_index.tracks.size() + 16;
    require(total <= 0xFFFFFFFFu, kTooLarge);
    BoxWriter w;
    {
        auto mfra = w.box("mfra");
        for (std::size_t t = 0; t < m_index.tracks.size(); ++t) {
            const auto& clock = m_clocks[t];
            auto tfra = w.full("tfra", 1, 0);
            w.u32(static_cast<std::uint32_t>(t + 1));
            w.u32(0); // one byte each for the traf, trun and sample numbers
            w.u32(static_cast<std::uint32_t>(m_fragments.size()));
            for (const auto& f : m_fragments) {
                // The cue's time on the track's media timeline: where the fragment's first sync
                // sample is presented.
                const auto at = std::max<std::int64_t>(
                    toTrackUnits(f.startNs - clock.originNs, clock.timescale), 0);
                w.u64(static_cast<std::uint64_t>(at + clock.shift));
                w.u64(f.position);
                w.u8(static_cast<std::uint32_t>(t + 1));
                w.u8(1);
                w.u8(1);
            }
        }
        // mfro closes the file with the size of the whole mfra, so a reader finds it from the end.
        auto mfro = w.full("mfro", 0, 0);
        w.u32(static_cast<std::uint32_t>(total));
    }
    auto bytes = w.take();
    require(bytes.size() == total, kTooLarge);
    return bytes;
}

void FragmentedMovie::read(std::uint64_t offset, std::uint8_t* buffer, std::uint64_t n)
{
    std::uint64_t done = 0;
    while (done < n) {
        const std::uint64_t p = offset + done;
        const std::uint64_t room = n - done;
        std::uint8_t* out = buffer + done;
        std::uint64_t take = 0;
        if (p < m_header.size()) {
            take = std::min(m_header.size() - p, room);
            std::memcpy(out, m_header.data() + p, take);
        } else if (p >= m_mfraAt) {
            require(p - m_mfraAt < m_mfra.size());
            take = std::min(m_mfra.size() - (p - m_mfraAt), room);
            std::memcpy(out, m_mfra.data() + (p - m_mfraAt), take);
        } else {
            auto next = std::upper_bound(
                m_fragments.begin(), m_fragments.end(), p,
                [](std::uint64_t value, const Fragment& f) { return value < f.position; });
            require(next != m_fragments.begin());
            const auto i = static_cast<std::size_t>(next - m_fragments.begin()) - 1;
            const auto& f = m_fragments[i];
            const std::uint64_t at = p - f.position;
            if (at < f.slot) {
                const auto& box = moof(i);
                if (at < box.size()) {
                    take = std::min(box.size() - at, room);
                    std::memcpy(out, box.data() + at, take);
                } else {
                    // The rest of the slot: a free box, its header first, then zeros.
                    const auto freeSize = f.slot - box.size();
                    std::uint8_t header[8] = {0, 0, 0, 0, 'f', 'r', 'e', 'e'};
                    for (int k = 0; k < 4; ++k)
                        header[k] = static_cast<std::uint8_t>(freeSize >> (24 - 8 * k));
                    const auto inFree = at - box.size();
                    take = std::min(f.slot - at, room);
                    for (std::uint64_t k = 0; k < take; ++k)
                        out[k] = inFree + k < 8 ? header[inFree + k] : 0;
                }
            } else if (at < f.slot + kMdatHeader) {
                std::uint8_t header[16] = {0, 0, 0, 1, 'm', 'd', 'a', 't'};
                const auto boxSize = f.length + kMdatHeader;
                for (int k = 0; k < 8; ++k)
                    header[8 + k] = static_cast<std::uint8_t>(boxSize >> (56 - 8 * k));
                const auto inHeader = at - f.slot;
                take = std::min(kMdatHeader - inHeader, room);
                std::memcpy(out, header + inHeader, take);
            } else {
                const auto inPayload = at - f.slot - kMdatHeader;
                require(inPayload < f.length);
                take = std::min(f.length - inPayload, room);
                m_reader.copy(f.source + inPayload, out, take);
            }
        }
        done += take;
    }
}

} // namespace qv
