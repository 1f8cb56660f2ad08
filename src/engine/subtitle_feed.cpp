#include "subtitle_feed.h"

#include "engine_limits.h"
#include "failure.h"
#include "matroska.h"

#include <algorithm>

namespace qv {
namespace {

// A line on screen now may have started this long before; collecting starts that far back.
constexpr std::int64_t kLeadNs = 10'000'000'000;
// A new starting point further than this from the last one redirects the collecting; closer ones
// (playback moving on) leave it where it is.
constexpr std::int64_t kRedirectNs = 5'000'000'000;

bool fatal(const Failure& failure)
{
    return failure.code() == kCancelled || failure.code() == kInputOutput;
}

} // namespace

SubtitleFeed::SubtitleFeed(std::vector<SubtitleTrack> tracks)
    : m_tracks(std::move(tracks)), m_known(m_tracks.size())
{
    for (auto& known : m_known)
        known.complete = true;
}

SubtitleFeed::SubtitleFeed(std::vector<SubtitleTrack> tracks, std::uint64_t timecodeScale,
                           std::vector<Fragment> fragments, Reopen reopen, CancelFn cancel,
                           void* context)
    : m_tracks(std::move(tracks)), m_known(m_tracks.size()), m_timecodeScale(timecodeScale),
      m_fragments(std::move(fragments)), m_reopen(std::move(reopen)), m_cancel(cancel),
      m_context(context)
{
    for (std::size_t t = 0; t < m_tracks.size(); ++t) {
        auto& track = m_tracks[t];
        finishSubtitleTrack(track);
        for (const auto& e : track.events)
            m_known[t].blocks.insert(e.position);
    }
}

SubtitleFeed::~SubtitleFeed()
{
    {
        std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable()) m_thread.join();
}

bool SubtitleFeed::describe(std::size_t index, QVMediaSubtitleTrack& out) const
{
    if (index >= m_tracks.size()) return false;
    std::lock_guard lock(m_mutex);
    const auto& t = m_tracks[index];
    out = {t.codecId.c_str(),     t.language.c_str(),
           t.name.c_str(),        t.codecPrivate.empty() ? nullptr : t.codecPrivate.data(),
           t.codecPrivate.size(), t.isDefault ? 1u : 0u,
           t.forced ? 1u : 0u,    t.events.size(),
           t.cutEvents,           m_known[index].complete ? 1u : 0u};
    return true;
}

bool SubtitleFeed::event(std::size_t track, std::uint64_t index, QVMediaSubtitleEvent& out) const
{
    if (track >= m_tracks.size()) return false;
    std::lock_guard lock(m_mutex);
    const auto& events = m_tracks[track].events;
    if (index >= events.size()) return false;
    const auto& e = events[index];
    out = {e.start, e.duration, e.text.data(), e.text.size()};
    return true;
}

void SubtitleFeed::want(std::size_t track, std::int64_t fromNs)
{
    if (track >= m_tracks.size() || !m_reopen) return;
    std::lock_guard lock(m_mutex);
    auto& known = m_known[track];
    if (known.complete || m_stop) return;
    const bool fresh = !known.wanted;
    known.wanted = true;
    const auto moved = fromNs > m_from ? fromNs - m_from : m_from - fromNs;
    if (fresh || moved > kRedirectNs) {
        m_from = fromNs;
        ++m_serial;
    }
    if (!m_thread.joinable()) m_thread = std::thread([this] { run(); });
    m_wake.notify_all();
}

void SubtitleFeed::add(std::vector<SubtitleTrack>& found)
{
    std::lock_guard lock(m_mutex);
    for (auto& track : found)
        addLocked(track);
}

void SubtitleFeed::addLocked(SubtitleTrack& found)
{
    const auto at = std::find_if(m_tracks.begin(), m_tracks.end(),
                                 [&](const SubtitleTrack& t) { return t.number == found.number; });
    if (at == m_tracks.end()) return;
    auto& track = *at;
    auto& known = m_known[static_cast<std::size_t>(at - m_tracks.begin())];
    for (auto& e : found.events) {
        if (!known.blocks.insert(e.position).second) continue;
        if (track.events.size() >= limits::kMaxSubtitleEvents ||
            track.textBytes + e.text.size() > limits::kMaxSubtitleTextBytes) {
            ++track.cutEvents;
            continue;
        }
        track.textBytes += e.text.size();
        track.events.push_back(std::move(e));
    }
}

std::vector<SubtitleTrack> SubtitleFeed::emptyTracks() const
{
    std::vector<SubtitleTrack> tracks;
    for (const auto& t : m_tracks) {
        SubtitleTrack empty;
        empty.number = t.number;
        tracks.push_back(std::move(empty));
    }
    return tracks;
}

int SubtitleFeed::stopped(void* feed)
{
    auto* self = static_cast<SubtitleFeed*>(feed);
    return self->m_stop || (self->m_cancel && self->m_cancel(self->m_context)) ? 1 : 0;
}

bool SubtitleFeed::interrupted(std::uint64_t serial)
{
    std::lock_guard lock(m_mutex);
    return m_stop || m_serial != serial;
}

void SubtitleFeed::run()
{
    std::unique_ptr<Reader> reader;
    for (;;) {
        std::int64_t from = 0;
        std::uint64_t serial = 0;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [&] {
                return m_stop || std::any_of(m_known.begin(), m_known.end(), [](const Known& k) {
                           return k.wanted && !k.complete;
                       });
            });
            if (m_stop) return;
            from = m_from;
            serial = m_serial;
        }
        try {
            if (!reader) {
                reader = std::make_unique<Reader>(m_reopen(), &SubtitleFeed::stopped, this);
                readCues(*reader);
            }
            collect(*reader, from, serial);
        } catch (...) {
            // The source cannot be read any more (or the handle is closing): nothing more will
            // come for the tracks asked for.
            std::lock_guard lock(m_mutex);
            for (auto& known : m_known)
                known.complete = known.complete || known.wanted;
            if (m_stop) return;
        }
    }
}

void SubtitleFeed::readCues(Reader& reader)
{
    m_cued.assign(m_tracks.size(), false);
    m_fragmentDone.assign(m_fragments.size(), false);
    try {
        const auto head = matroskaHead(reader);
        std::vector<std::uint64_t> numbers;
        for (const auto& t : m_tracks)
            numbers.push_back(t.number);
        std::vector<bool> unplaced(m_tracks.size(), false);
        for (const auto& cue : cueBlocks(reader, head, numbers)) {
            const auto t = static_cast<std::size_t>(
                std::find(numbers.begin(), numbers.end(), cue.track) - numbers.begin());
            if (!cue.relative) {
                unplaced[t] = true;
                continue;
            }
            m_cues.push_back({cue, t, false});
            m_cued[t] = true;
        }
        // Cues without a block's place in its cluster would need whole clusters read anyway.
        for (std::size_t t = 0; t < unplaced.size(); ++t)
            if (unplaced[t]) m_cued[t] = false;
    } catch (const Failure& failure) {
        if (fatal(failure)) throw;
        m_cues.clear();
        m_cued.assign(m_tracks.size(), false);
    }
}

void SubtitleFeed::collect(Reader& reader, std::int64_t fromNs, std::uint64_t serial)
{
    std::vector<bool> wanted(m_tracks.size());
    {
        std::lock_guard lock(m_mutex);
        for (std::size_t t = 0; t < wanted.size(); ++t)
            wanted[t] = m_known[t].wanted && !m_known[t].complete;
    }
    const auto scale = static_cast<std::int64_t>(m_timecodeScale);
    const auto timeOf = [&](std::uint64_t ticks) {
        return ticks > limits::kMaxClusterTimeNs / m_timecodeScale
                   ? static_cast<std::int64_t>(limits::kMaxClusterTimeNs)
                   : static_cast<std::int64_t>(ticks) * scale;
    };

    // Tracks the Cues place: exactly their blocks, those from just before fromNs on first, then
    // the earlier ones.
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < m_cues.size(); ++i)
        if (!m_cues[i].done && wanted[m_cues[i].track] && m_cued[m_cues[i].track])
            order.push_back(i);
    const auto earlier = [&](std::size_t i) {
        return timeOf(m_cues[i].block.ticks) < fromNs - kLeadNs;
    };
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        if (earlier(a) != earlier(b)) return !earlier(a);
        return m_cues[a].block.ticks < m_cues[b].block.ticks;
    });
    for (const auto i : order) {
        if (interrupted(serial)) return;
        auto& cue = m_cues[i];
        Index found;
        found.timecodeScale = m_timecodeScale;
        found.subtitles = emptyTracks();
        try {
            matroskaBlock(reader, found, cue.block.cluster, *cue.block.relative);
        } catch (const Failure& failure) {
            if (fatal(failure)) throw;
        }
        for (auto& track : found.subtitles)
            finishSubtitleTrack(track);
        add(found.subtitles);
        cue.done = true;
    }
    {
        std::lock_guard lock(m_mutex);
        for (std::size_t t = 0; t < wanted.size(); ++t)
            if (wanted[t] && m_cued[t]) m_known[t].complete = true;
    }

    // The other tracks: every cluster, from the fragment playing at fromNs on, then the rest.
    bool walk = false;
    for (std::size_t t = 0; t < wanted.size(); ++t)
        walk = walk || (wanted[t] && !m_cued[t]);
    if (!walk || m_fragments.empty()) return;
    std::size_t start = 0;
    while (start + 1 < m_fragments.size() && m_fragments[start + 1].startNs <= fromNs - kLeadNs)
        ++start;
    for (std::size_t k = 0; k < m_fragments.size(); ++k) {
        const auto i = (start + k) % m_fragments.size();
        if (m_fragmentDone[i]) continue;
        if (interrupted(serial)) return;
        const auto& f = m_fragments[i];
        Index found;
        found.timecodeScale = m_timecodeScale;
        found.subtitles = emptyTracks();
        try {
            matroskaClusters(reader, found, f.source, f.source + f.length);
        } catch (const Failure& failure) {
            if (fatal(failure)) throw;
        }
        for (auto& track : found.subtitles)
            finishSubtitleTrack(track);
        add(found.subtitles);
        m_fragmentDone[i] = true;
    }
    // Every cluster has been walked: every track's events are known.
    std::lock_guard lock(m_mutex);
    for (auto& known : m_known)
        known.complete = true;
}

} // namespace qv
