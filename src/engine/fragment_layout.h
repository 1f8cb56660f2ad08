#pragma once
// The fragmented layout of the virtual MP4, for Matroska files whose Cues locate their clusters:
//
//   ftyp | moov (with mvex) | per fragment: moof slot, mdat header, payload | mfra
//
// Open reads the header elements, the Cues, the first two and the last cluster runs (for the edit
// lists and durations, and the second for the first fragment's last frame; for a track that stops
// early, up to 8 runs back to its end) and the first four bytes of up to 16 other runs, and
// nothing else. The runs are read whole (up to 4 MiB each) and at once, each on its own thread:
// a file that is not in the page cache then waits for one round of reads instead of one per
// frame header. Cues are checked as far as open sees: a cue outside the Segment, before the
// first Cluster, or at one of the runs read or spot-checked (all of them when the file has at
// most 19 runs, else 16 spread evenly) not naming a Cluster keeps the full layout; checking
// every cue of a long file would cost a disk round trip each. A cue missed by the spot checks
// that does not name a Cluster fails the reads of its fragment with kMalformed. A fragment
// covers the clusters from one cued cluster to the next; its mdat payload is those source bytes
// unchanged, and its moof is built only when a read first touches it. Every virtual offset is
// fixed at open, so each moof gets a slot of reserved size, the rest of which is a free box.
//
// The slot: the moof of a fragment of s_t samples per track takes at most moofBound(s) bytes
// (one trun per sample, the worst case). s_t is estimated from the fragment's time span (from the
// Cues) at twice the rate the first fragment shows, plus 16. The slot never exceeds the bound
// that holds for any content, moofBound with no samples plus kMoofBytesPerSample per payload byte
// (every sample takes at least one byte), and the first and last fragments' counts are known
// exactly. A fragment whose samples outgrow the estimate fails its reads with kTooLarge.
#include "fragment_writer.h"
#include "index.h"
#include "reader.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace qv {

// Below this source size the full index costs little (it reads about 40 % of a file, a fifth of a
// second for 128 MiB on a hard disk) and the compact full layout is kept.
inline constexpr std::uint64_t kFragmentedMinimumSize = 128ull << 20;

// QV_MEDIA_LAYOUT=fragmented lays out every Matroska file with usable Cues as fragments, whatever
// its size; QV_MEDIA_LAYOUT=full never does. Tests run the same files through both layouts.
inline constexpr const char* kLayoutVariable = "QV_MEDIA_LAYOUT";

struct Fragment {
    std::uint64_t source = 0;   // first source byte: a Cluster
    std::uint64_t length = 0;   // source bytes in the payload
    std::uint64_t position = 0; // virtual offset of the moof slot
    std::uint64_t slot = 0;     // bytes reserved for the moof and its free box
    std::int64_t startNs = 0;   // presentation time at which it starts (its cue's time)
};

class FragmentedMovie {
public:
    // The fragmented layout of the file, or null when it keeps the full layout (not Matroska, no
    // Cues, Cues pointing outside the Segment, below kFragmentedMinimumSize, or anything the full
    // index should judge). Throws only kCancelled and out-of-memory.
    static std::unique_ptr<FragmentedMovie> open(Reader& reader);

    // Copies n bytes at offset (offset + n inside the file); builds the moofs it crosses.
    void read(std::uint64_t offset, std::uint8_t* buffer, std::uint64_t n);

    std::uint64_t size() const noexcept { return m_size; }
    // The prepared tracks, without samples; sampleCount holds the samples indexed at open.
    const Index& index() const noexcept { return m_index; }
    const std::vector<Fragment>& fragments() const noexcept { return m_fragments; }

    // Given the text subtitle events of every fragment indexed after open.
    std::function<void(std::vector<SubtitleTrack>&)> subtitleSink;

private:
    explicit FragmentedMovie(Reader& reader) : m_reader(reader) {}
    bool build();
    Index indexFragment(std::size_t i);
    const std::vector<std::uint8_t>& moof(std::size_t i);
    std::vector<std::uint8_t> movieFragmentRandomAccess() const;
    std::uint64_t end(std::size_t i) const { return m_fragments[i].source + m_fragments[i].length; }

    Reader& m_reader;
    Index m_heads; // the tracks as the demuxer read them, without samples
    Index m_index; // the same tracks prepared, with their timing
    std::vector<FragmentClock> m_clocks;
    std::vector<std::size_t> m_endFragments; // per track, the fragment holding its last sample
    std::vector<Fragment> m_fragments;
    std::vector<std::uint8_t> m_header; // ftyp + moov
    std::vector<std::uint8_t> m_mfra;
    std::uint64_t m_mfraAt = 0;
    std::uint64_t m_size = 0;
    // Moofs already built, the most recent last; a fragment's moof is the same every time.
    std::deque<std::pair<std::size_t, std::vector<std::uint8_t>>> m_moofs;
    // The last fragment indexed for its successor's first times, reused when that one is read.
    std::optional<std::pair<std::size_t, Index>> m_ahead;
};

} // namespace qv
