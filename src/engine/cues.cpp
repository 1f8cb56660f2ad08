#include "cues.h"

#include "ebml.h"
#include "engine_limits.h"
#include "failure.h"
#include "matroska_ids.h"

#include <algorithm>

namespace qv {
namespace {

constexpr std::uint64_t kSeek = 0x4DBB;
constexpr std::uint64_t kSeekId = 0x53AB;
constexpr std::uint64_t kSeekPosition = 0x53AC;
constexpr std::uint64_t kCuePoint = 0xBB;
constexpr std::uint64_t kCueTime = 0xB3;
constexpr std::uint64_t kCueTrackPositions = 0xB7;
constexpr std::uint64_t kCueClusterPosition = 0xF1;
constexpr std::uint64_t kCueTrack = 0xF7;
constexpr std::uint64_t kCueRelativePosition = 0xF0;

struct SeekTargets {
    std::uint64_t cues = 0;
    std::uint64_t seekHead = 0;
};

// The positions a SeekHead gives for the Cues and for a further SeekHead (0 when absent).
SeekTargets seekTargets(Reader& reader, const MatroskaHead& head, std::uint64_t start,
                        std::uint64_t end)
{
    SeekTargets targets;
    for (auto p = start; p < end;) {
        const auto seek = ebml::element(reader, p, end);
        p = seek.end;
        if (seek.id != kSeek) continue;
        std::uint64_t id = 0;
        std::uint64_t position = ~std::uint64_t(0);
        for (auto q = seek.start; q < seek.end;) {
            const auto c = ebml::element(reader, q, seek.end);
            if (c.id == kSeekId) id = ebml::unsignedInteger(reader, c);
            if (c.id == kSeekPosition) position = ebml::unsignedInteger(reader, c);
            q = c.end;
        }
        if (position >= head.segmentEnd - head.segmentStart) continue;
        if (id == mkv::kCues) targets.cues = head.segmentStart + position;
        if (id == mkv::kSeekHead) targets.seekHead = head.segmentStart + position;
    }
    return targets;
}

// The payload of the element with this ID at position, or nullopt-like {0, 0} when another is
// there.
ebml::Element elementAt(Reader& reader, const MatroskaHead& head, std::uint64_t position,
                        std::uint64_t id)
{
    if (position < head.segmentStart || position >= head.segmentEnd) return {};
    const auto e = ebml::element(reader, position, head.segmentEnd);
    return e.id == id ? e : ebml::Element{};
}

// The Cues element, found directly or through the SeekHeads (a first SeekHead may
// point at a second one); {0, 0} when there is none.
ebml::Element cuesElement(Reader& reader, const MatroskaHead& head)
{
    std::uint64_t cuesAt = head.cues;
    for (const auto& [start, end] : head.seekHeads) {
        if (cuesAt != 0) break;
        auto targets = seekTargets(reader, head, start, end);
        if (targets.cues == 0 && targets.seekHead != 0) {
            const auto more = elementAt(reader, head, targets.seekHead, mkv::kSeekHead);
            if (more.end != 0) targets = seekTargets(reader, head, more.start, more.end);
        }
        cuesAt = targets.cues;
    }
    return cuesAt == 0 ? ebml::Element{} : elementAt(reader, head, cuesAt, mkv::kCues);
}

// Calls visit(ticks, trackPositions) for every CuePoint once the whole point is read: CueTime may
// follow the CueTrackPositions it dates.
template <typename Visit>
void forEachCuePoint(Reader& reader, const ebml::Element& cues, Visit visit)
{
    std::vector<ebml::Element> positions;
    for (auto p = cues.start; p < cues.end;) {
        const auto point = ebml::element(reader, p, cues.end);
        p = point.end;
        if (point.id != kCuePoint) continue;
        reader.check();
        std::uint64_t ticks = 0;
        positions.clear();
        for (auto q = point.start; q < point.end;) {
            const auto c = ebml::element(reader, q, point.end);
            q = c.end;
            if (c.id == kCueTime) ticks = ebml::unsignedInteger(reader, c);
            if (c.id == kCueTrackPositions) positions.push_back(c);
        }
        visit(ticks, positions);
    }
}

} // namespace

std::vector<CueCluster> cueClusters(Reader& reader, const MatroskaHead& head)
{
    const auto cues = cuesElement(reader, head);
    if (cues.end == 0) return {};

    std::vector<CueCluster> clusters;
    forEachCuePoint(reader, cues, [&](std::uint64_t ticks, const auto& positions) {
        for (const auto& c : positions) {
            for (auto r = c.start; r < c.end;) {
                const auto t = ebml::element(reader, r, c.end);
                r = t.end;
                if (t.id != kCueClusterPosition) continue;
                const auto relative = ebml::unsignedInteger(reader, t);
                // A position outside the Segment cannot name a cluster.
                require(relative < head.segmentEnd - head.segmentStart);
                clusters.push_back({head.segmentStart + relative, ticks});
            }
        }
        require(clusters.size() <= 4 * limits::kMaxClusters, kTooLarge);
    });
    std::sort(clusters.begin(), clusters.end(), [](const CueCluster& a, const CueCluster& b) {
        return a.position != b.position ? a.position < b.position : a.ticks < b.ticks;
    });
    clusters.erase(std::unique(clusters.begin(), clusters.end(),
                               [](const CueCluster& a, const CueCluster& b) {
                                   return a.position == b.position;
                               }),
                   clusters.end());
    require(clusters.size() <= limits::kMaxClusters, kTooLarge);
    return clusters;
}

std::vector<CueBlock> cueBlocks(Reader& reader, const MatroskaHead& head,
                                const std::vector<std::uint64_t>& tracks)
{
    const auto cues = cuesElement(reader, head);
    std::vector<CueBlock> blocks;
    const auto span = head.segmentEnd - head.segmentStart;
    forEachCuePoint(reader, cues, [&](std::uint64_t ticks, const auto& positions) {
        for (const auto& c : positions) {
            CueBlock block;
            for (auto r = c.start; r < c.end;) {
                const auto t = ebml::element(reader, r, c.end);
                r = t.end;
                if (t.id == kCueTrack) block.track = ebml::unsignedInteger(reader, t);
                if (t.id == kCueClusterPosition) block.cluster = ebml::unsignedInteger(reader, t);
                if (t.id == kCueRelativePosition) block.relative = ebml::unsignedInteger(reader, t);
            }
            if (std::find(tracks.begin(), tracks.end(), block.track) == tracks.end()) continue;
            require(block.cluster < span);
            block.cluster += head.segmentStart;
            block.ticks = ticks;
            if (block.relative && *block.relative >= span) block.relative.reset();
            blocks.push_back(block);
            require(blocks.size() <= limits::kMaxCueBlocks, kTooLarge);
        }
    });
    return blocks;
}

} // namespace qv
