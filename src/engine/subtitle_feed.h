#pragma once
// The text subtitle events of an open file, handed out while more may still be found.
//
// The full layout walks every cluster at open, so every event is known before the first query.
// The fragmented layout reads no cluster at open beyond its first and last runs, so a track's
// events are collected when the track is wanted: a thread with a reader of its own reads the
// blocks the Cues list for the track (muxers such as mkvmerge cue every subtitle block), or, for a
// track the Cues leave out, walks the clusters from where playback stands and then the rest; and
// every fragment indexed for playback adds the events it holds. Events are appended and never
// move, so an index handed out keeps its event while the count grows.
#include "cues.h"
#include "fragment_layout.h"
#include "qv_media.h"
#include "reader.h"
#include "subtitles.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_set>
#include <vector>

namespace qv {

class SubtitleFeed {
public:
    // Opens the source again for the collecting thread.
    using Reopen = std::function<std::unique_ptr<Source>()>;

    // Every event already known (the full layout).
    explicit SubtitleFeed(std::vector<SubtitleTrack> tracks);
    // Events of the fragments indexed so far; the rest are found on demand. Without reopen they
    // come only from the fragments playback indexes.
    SubtitleFeed(std::vector<SubtitleTrack> tracks, std::uint64_t timecodeScale,
                 std::vector<Fragment> fragments, Reopen reopen, CancelFn cancel, void* context);
    // Stops the collecting thread and waits for it.
    ~SubtitleFeed();
    SubtitleFeed(const SubtitleFeed&) = delete;
    SubtitleFeed& operator=(const SubtitleFeed&) = delete;

    std::size_t size() const noexcept { return m_tracks.size(); }
    // False for an index out of range. Thread-safe, like the other members.
    bool describe(std::size_t track, QVMediaSubtitleTrack& out) const;
    bool event(std::size_t track, std::uint64_t index, QVMediaSubtitleEvent& out) const;
    // Asks for the track's events, those around fromNs first.
    void want(std::size_t track, std::int64_t fromNs);
    // Adds the events of tracks read elsewhere (as made from the file's head, in any number and
    // order); a block already known is not added twice.
    void add(std::vector<SubtitleTrack>& found);

private:
    struct Cue {
        CueBlock block;
        std::size_t track = 0;
        bool done = false;
    };
    struct Known {
        std::unordered_set<std::uint64_t> blocks;
        bool complete = false;
        bool wanted = false;
    };
    static int stopped(void* feed);
    void run();
    void readCues(Reader& reader);
    // Collects the wanted tracks' events until done or a new request comes.
    void collect(Reader& reader, std::int64_t fromNs, std::uint64_t serial);
    bool interrupted(std::uint64_t serial);
    void addLocked(SubtitleTrack& found);
    // The tracks without events, to index blocks into.
    std::vector<SubtitleTrack> emptyTracks() const;

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::vector<SubtitleTrack> m_tracks;
    std::vector<Known> m_known;
    std::uint64_t m_timecodeScale = 1'000'000;
    std::vector<Fragment> m_fragments;
    Reopen m_reopen;
    CancelFn m_cancel = nullptr;
    void* m_context = nullptr;
    std::atomic_bool m_stop = false;
    std::int64_t m_from = 0;
    std::uint64_t m_serial = 0; // counts the requests that change what to collect first
    // What the thread found and did, kept across requests; only the thread touches these.
    std::vector<Cue> m_cues;
    std::vector<bool> m_cued; // per track: the Cues place every block of it
    std::vector<bool> m_fragmentDone;
    std::thread m_thread;
};

} // namespace qv
