#include "matroska.h"

#include "audio/aac.h"
#include "audio/alac.h"
#include "audio/audio_samples.h"
#include "audio/flac.h"
#include "cues.h"
#include "ebml.h"
#include "engine_limits.h"
#include "failure.h"
#include "lacing.h"
#include "language.h"
#include "matroska_ids.h"
#include "subtitles.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <system_error>
#include <thread>

namespace qv {
namespace {

using ebml::Element;

struct Cluster {
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    std::uint64_t timecode = 0;
};

// Matroska's TrackType for subtitles.
constexpr std::uint64_t kSubtitleTrackType = 0x11;

struct TrackState {
    bool discardSeen = false; // a block with DiscardPadding was read; no later block may follow
};

bool isTopLevel(std::uint64_t id)
{
    switch (id) {
    case mkv::kSeekHead:
    case mkv::kInfo:
    case mkv::kTracks:
    case mkv::kChapters:
    case mkv::kCluster:
    case mkv::kCues:
    case mkv::kAttachments:
    case mkv::kTags:
        return true;
    default:
        return false;
    }
}

Codec codecFor(const std::string& id, std::uint8_t kind)
{
    if (kind == kVideo) {
        if (id == "V_MPEG4/ISO/AVC") return Codec::Avc;
        if (id == "V_MPEGH/ISO/HEVC") return Codec::Hevc;
        if (id == "V_VP9") return Codec::Vp9;
        if (id == "V_AV1") return Codec::Av1;
    } else {
        if (id == "A_AAC") return Codec::Aac;
        if (id == "A_OPUS") return Codec::Opus;
        if (id == "A_FLAC") return Codec::Flac;
        if (id == "A_AC3") return Codec::Ac3;
        if (id == "A_EAC3") return Codec::Eac3;
        if (id == "A_MPEG/L3") return Codec::Mp3;
        if (id == "A_ALAC") return Codec::Alac;
    }
    return Codec::Unknown;
}

std::uint32_t below65536(Reader& reader, const Element& e)
{
    const auto value = ebml::unsignedInteger(reader, e);
    require(value < limits::kMaxDimension);
    return static_cast<std::uint32_t>(value);
}

class Demuxer {
public:
    explicit Demuxer(Reader& reader) : m_reader(reader) {}
    Index run(std::uint64_t parallelFrom = limits::kParallelIndexBytes);
    MatroskaHead head();
    void clusters(Index& index, std::uint64_t start, std::uint64_t end);
    void blockAt(Index& index, std::uint64_t clusterAt, std::uint64_t relative);
    Index textTracks();

private:
    void header();
    // Reads up to the first Cluster and refuses a file none of whose tracks of a kind it keeps.
    void tracksAndPresence();
    void segmentChildren(const Element& segment);
    std::uint64_t clusterEnd(const Element& cluster, std::uint64_t segmentEnd);
    void tracks(const Element& tracks);
    void trackEntry(const Element& entry);
    void video(const Element& e, Track& track);
    void colour(const Element& e, Track& track);
    void audio(const Element& e, Track& track);
    // Indexes m_clusters in runs on several threads when the file is large enough to gain by it.
    void indexClusters(std::uint64_t parallelFrom);
    void clusterBlocks();
    // Appends a later run's samples and events; false when the result could differ from one walk.
    bool takeRun(Demuxer& run);
    void blockGroup(const Element& group, const Cluster& cluster);
    // key is the BlockGroup's verdict; a SimpleBlock (no verdict) carries it in its flags.
    void block(const Element& block, const Cluster& cluster, std::optional<std::uint64_t> duration,
               std::int64_t discardPadding, std::optional<bool> key);
    std::int64_t trackIndex(std::uint64_t number) const;
    // Text subtitle tracks: kept beside the movie's tracks; a broken one never fails the file.
    void keepSubtitleTrack(const Track& track, bool forced, bool languageSeen);
    void subtitleBlock(const Element& block, std::uint64_t number, std::uint64_t numberLength,
                       const Cluster& cluster, std::optional<std::uint64_t> duration);
    // Reads the block at `relative` bytes into the Cluster at clusterAt into m_index.
    void blockIn(std::uint64_t clusterAt, std::uint64_t relative);
    // Text-only reading: an element whose size runs past `end` (a cut file) is cut there too.
    Element lenientElement(std::uint64_t position, std::uint64_t end);
    bool cuedTextBlocks(const MatroskaHead& head);
    void textClusters(const MatroskaHead& head);
    std::uint64_t textCluster(const Element& cluster);

    Reader& m_reader;
    Index m_index;
    std::vector<Cluster> m_clusters;
    std::vector<TrackState> m_states;
    std::set<std::uint64_t> m_numbers; // every track number seen, skipped tracks too
    Frames m_frames;                   // reused by every block
    bool m_sawVideo = false;
    bool m_sawAudio = false;
    MatroskaHead* m_head = nullptr; // set while only the head is read: stop at the first Cluster
    // Set while only the text subtitle tracks and attachments are read: no other track is kept,
    // whatever its codec, and no track entry fails the file.
    bool m_textOnly = false;
};

void Demuxer::tracksAndPresence()
{
    m_index.format = 1;
    header();
    require(!m_index.tracks.empty(), kUnsupported);
    bool video = false;
    bool audio = false;
    for (const auto& t : m_index.tracks)
        (t.kind == kVideo ? video : audio) = true;
    // A file whose picture we cannot show is refused rather than played as sound only.
    require(!m_sawVideo || video, kUnsupported);
    require(!m_sawAudio || audio, kUnsupported);
}

Index Demuxer::run(std::uint64_t parallelFrom)
{
    tracksAndPresence();
    m_states.resize(m_index.tracks.size());
    indexClusters(parallelFrom);
    for (auto& subtitle : m_index.subtitles)
        finishSubtitleTrack(subtitle);
    return std::move(m_index);
}

MatroskaHead Demuxer::head()
{
    MatroskaHead head;
    m_head = &head;
    tracksAndPresence();
    head.index = std::move(m_index);
    m_head = nullptr;
    return head;
}

void Demuxer::clusters(Index& index, std::uint64_t start, std::uint64_t end)
{
    m_index = std::move(index);
    m_states.assign(m_index.tracks.size(), {});
    for (auto p = start; p < end;) {
        const Element e = ebml::element(m_reader, p, end);
        if (e.id == mkv::kCluster) {
            require(m_clusters.size() < limits::kMaxClusters, kTooLarge);
            const auto clusterEnd = e.unknownSize ? this->clusterEnd(e, end) : e.end;
            m_clusters.push_back({e.start, clusterEnd, 0});
            p = clusterEnd;
        } else {
            p = e.end;
        }
    }
    clusterBlocks();
    index = std::move(m_index);
}

void Demuxer::blockAt(Index& index, std::uint64_t clusterAt, std::uint64_t relative)
{
    m_index = std::move(index);
    m_states.assign(m_index.tracks.size(), {});
    blockIn(clusterAt, relative);
    index = std::move(m_index);
}

void Demuxer::blockIn(std::uint64_t clusterAt, std::uint64_t relative)
{
    const Element c = ebml::element(m_reader, clusterAt, m_reader.size());
    require(c.id == mkv::kCluster);
    Cluster cluster{c.start, c.end, 0};
    // Muxers write the Timecode before the blocks; one after them is not looked for.
    for (auto p = c.start; p < c.end;) {
        const Element e = ebml::element(m_reader, p, c.end);
        if (e.id == mkv::kSimpleBlock || e.id == mkv::kBlockGroup) break;
        if (e.id == mkv::kTimecode) cluster.timecode = ebml::unsignedInteger(m_reader, e);
        p = e.end;
    }
    require(relative < c.end - c.start);
    const Element b = ebml::element(m_reader, c.start + relative, c.end);
    if (b.id == mkv::kSimpleBlock)
        block(b, cluster, std::nullopt, 0, std::nullopt);
    else if (b.id == mkv::kBlockGroup)
        blockGroup(b, cluster);
    else
        fail(kMalformed);
}

bool fatal(const Failure& failure)
{
    return failure.code() == kCancelled || failure.code() == kInputOutput;
}

Index Demuxer::textTracks()
{
    MatroskaHead head;
    m_head = &head;
    m_textOnly = true;
    m_index.format = 1;
    header();
    m_head = nullptr;
    if (!m_index.subtitles.empty() && head.firstCluster != 0 && !cuedTextBlocks(head))
        textClusters(head);
    for (auto& subtitle : m_index.subtitles)
        finishSubtitleTrack(subtitle);
    return std::move(m_index);
}

// Muxers such as mkvmerge and ffmpeg cue every subtitle block with its place in the cluster; then
// exactly those blocks are read. False, with no event kept, when the Cues leave any text track's
// blocks unplaced (no cue for the track, or a cue without CueRelativePosition), cannot be read,
// or name a place that holds no text block.
bool Demuxer::cuedTextBlocks(const MatroskaHead& head)
{
    std::vector<std::uint64_t> numbers;
    for (const auto& s : m_index.subtitles)
        numbers.push_back(s.number);
    std::vector<CueBlock> cues;
    try {
        cues = cueBlocks(m_reader, head, numbers);
    } catch (const Failure& failure) {
        if (fatal(failure)) throw;
        return false;
    }
    for (const auto number : numbers) {
        bool cued = false;
        for (const auto& cue : cues) {
            if (cue.track != number) continue;
            if (!cue.relative) return false;
            cued = true;
        }
        if (!cued) return false;
    }
    // In file order, and a block that several cues name only once.
    std::vector<std::pair<std::uint64_t, std::uint64_t>> places;
    for (const auto& cue : cues)
        places.emplace_back(cue.cluster, *cue.relative);
    std::sort(places.begin(), places.end());
    places.erase(std::unique(places.begin(), places.end()), places.end());
    const auto found = [this] {
        std::uint64_t n = 0;
        for (const auto& s : m_index.subtitles)
            n += s.events.size() + s.cutEvents;
        return n;
    };
    for (const auto& [clusterAt, relative] : places) {
        m_reader.check();
        const auto before = found();
        try {
            blockIn(clusterAt, relative);
        } catch (const Failure& failure) {
            if (fatal(failure)) throw;
        }
        // A cue that names no text block (past a cut, or a muxer's wrong position) leaves the
        // Cues untrusted: the clusters are walked instead.
        if (found() == before) {
            for (auto& s : m_index.subtitles) {
                s.events.clear();
                s.textBytes = 0;
                s.cutEvents = 0;
            }
            return false;
        }
    }
    return true;
}

Element Demuxer::lenientElement(std::uint64_t position, std::uint64_t end)
{
    const auto id = ebml::vint(m_reader, position, end, true);
    const auto size = ebml::vint(m_reader, position + id.length, end, false);
    Element e;
    e.id = id.value;
    e.start = position + id.length + size.length;
    e.unknownSize = size.unknown;
    e.end = size.unknown || size.value > end - e.start ? end : e.start + size.value;
    return e;
}

// One walk of every cluster, reading only block headers and the text blocks. A cut or damaged
// cluster ends the walk; the events before it stand.
void Demuxer::textClusters(const MatroskaHead& head)
{
    std::uint64_t clusters = 0;
    try {
        for (auto p = head.firstCluster; p < head.segmentEnd;) {
            m_reader.check();
            const Element e = lenientElement(p, head.segmentEnd);
            if (e.id == mkv::kCluster) {
                require(++clusters <= limits::kMaxClusters, kTooLarge);
                p = textCluster(e);
                continue;
            }
            // Fonts written after the clusters are still found.
            if (e.id == mkv::kAttachments && m_index.attachments.empty()) {
                try {
                    m_index.attachments = readAttachments(m_reader, e);
                } catch (const Failure& failure) {
                    if (fatal(failure)) throw;
                    m_index.attachments.clear();
                }
            }
            p = e.end;
        }
    } catch (const Failure& failure) {
        if (fatal(failure)) throw;
    }
}

// Walks one cluster (of unknown size: up to the next top-level element); returns where it ends.
std::uint64_t Demuxer::textCluster(const Element& c)
{
    Cluster cluster{c.start, c.end, 0};
    auto p = c.start;
    while (p < c.end) {
        if (c.unknownSize && isTopLevel(ebml::vint(m_reader, p, c.end, true).value)) break;
        const Element e = ebml::element(m_reader, p, c.end);
        try {
            if (e.id == mkv::kTimecode)
                cluster.timecode = ebml::unsignedInteger(m_reader, e);
            else if (e.id == mkv::kSimpleBlock)
                block(e, cluster, std::nullopt, 0, std::nullopt);
            else if (e.id == mkv::kBlockGroup)
                blockGroup(e, cluster);
        } catch (const Failure& failure) {
            // One bad element of another track, or of a text track (counted there), is skipped.
            if (fatal(failure)) throw;
        }
        p = e.end;
    }
    return p;
}

void Demuxer::header()
{
    const Element head = ebml::element(m_reader, 0, m_reader.size());
    require(head.id == mkv::kEbml && !head.unknownSize);
    std::optional<std::string> docType;
    for (auto p = head.start; p < head.end;) {
        const Element e = ebml::element(m_reader, p, head.end);
        if (e.id == mkv::kDocType) docType = m_reader.text(e.start, e.size(), limits::kMaxDocType);
        p = e.end;
    }
    require(docType.has_value());
    require(*docType == "matroska" || *docType == "webm", kUnsupported);

    // Reading only the text tracks, a cut file is read up to the cut.
    const Element segment = m_textOnly ? lenientElement(head.end, m_reader.size())
                                       : ebml::element(m_reader, head.end, m_reader.size());
    require(segment.id == mkv::kSegment && (m_textOnly || segment.end == m_reader.size()));
    if (m_head) {
        m_head->segmentStart = segment.start;
        m_head->segmentEnd = segment.end;
    }
    segmentChildren(segment);
}

void Demuxer::segmentChildren(const Element& segment)
{
    for (auto p = segment.start; p < segment.end;) {
        // The first Cluster of a cut file may run past its end: only where it starts matters here.
        if (m_head && m_textOnly &&
            ebml::vint(m_reader, p, segment.end, true).value == mkv::kCluster) {
            m_head->firstCluster = p;
            return;
        }
        const Element e = ebml::element(m_reader, p, segment.end);
        switch (e.id) {
        case mkv::kInfo:
            for (auto q = e.start; q < e.end;) {
                const Element c = ebml::element(m_reader, q, e.end);
                if (c.id == mkv::kTimecodeScale) {
                    const auto scale = ebml::unsignedInteger(m_reader, c);
                    require(scale >= 1 && scale <= limits::kMaxTimecodeScale);
                    m_index.timecodeScale = scale;
                }
                q = c.end;
            }
            p = e.end;
            break;
        case mkv::kTracks:
            tracks(e);
            p = e.end;
            break;
        case mkv::kSeekHead:
            if (m_head) m_head->seekHeads.emplace_back(e.start, e.end);
            p = e.end;
            break;
        case mkv::kCues:
            if (m_head) m_head->cues = p;
            p = e.end;
            break;
        case mkv::kAttachments:
            // Fonts for styled subtitles: a damaged list is dropped, the file still plays.
            try {
                m_index.attachments = readAttachments(m_reader, e);
            } catch (const Failure& failure) {
                if (failure.code() == kCancelled || failure.code() == kInputOutput) throw;
                m_index.attachments.clear();
            }
            p = e.end;
            break;
        case mkv::kCluster: {
            if (m_head) {
                m_head->firstCluster = p;
                return;
            }
            require(m_clusters.size() < limits::kMaxClusters, kTooLarge);
            const auto end = e.unknownSize ? clusterEnd(e, segment.end) : e.end;
            m_clusters.push_back({e.start, end, 0});
            p = end;
            break;
        }
        default:
            p = e.end;
            break;
        }
    }
}

// A cluster of unknown size runs until the next top-level element.
std::uint64_t Demuxer::clusterEnd(const Element& cluster, std::uint64_t segmentEnd)
{
    auto p = cluster.start;
    while (p < segmentEnd) {
        const auto id = ebml::vint(m_reader, p, segmentEnd, true);
        if (isTopLevel(id.value)) return p;
        p = ebml::element(m_reader, p, segmentEnd).end;
    }
    return segmentEnd;
}

void Demuxer::tracks(const Element& tracks)
{
    for (auto p = tracks.start; p < tracks.end;) {
        const Element e = ebml::element(m_reader, p, tracks.end);
        if (e.id == mkv::kTrackEntry && m_textOnly) {
            try {
                trackEntry(e);
            } catch (const Failure& failure) {
                if (fatal(failure)) throw;
            }
        } else if (e.id == mkv::kTrackEntry) {
            trackEntry(e);
        }
        p = e.end;
    }
}

void Demuxer::trackEntry(const Element& entry)
{
    Track track;
    std::uint64_t type = 0;
    double trackScale = 1.0;
    std::int64_t trackOffset = 0;
    bool haveNumber = false;
    std::optional<std::string> language;
    std::optional<std::string> languageBcp47;
    bool forced = false;
    for (auto p = entry.start; p < entry.end;) {
        const Element e = ebml::element(m_reader, p, entry.end);
        switch (e.id) {
        case mkv::kTrackNumber:
            track.number = ebml::unsignedInteger(m_reader, e);
            require(track.number >= 1 && track.number <= limits::kMaxTrackNumber);
            haveNumber = true;
            break;
        case mkv::kTrackType:
            type = ebml::unsignedInteger(m_reader, e);
            break;
        case mkv::kFlagEnabled:
            track.enabled = ebml::unsignedInteger(m_reader, e) != 0;
            break;
        case mkv::kFlagDefault:
            track.isDefault = ebml::unsignedInteger(m_reader, e) != 0;
            break;
        case mkv::kCodecId:
            track.codecId = m_reader.text(e.start, e.size(), limits::kMaxCodecId);
            break;
        case mkv::kCodecPrivate:
            track.codecPrivate = m_reader.bytes(e.start, e.size());
            break;
        case mkv::kLanguage:
            language = m_reader.text(e.start, e.size(), limits::kMaxLanguage);
            break;
        case mkv::kLanguageBcp47:
            languageBcp47 = m_reader.text(e.start, e.size(), limits::kMaxLanguage);
            break;
        case mkv::kFlagForced:
            forced = ebml::unsignedInteger(m_reader, e) != 0;
            break;
        case mkv::kName:
            track.name = cutUtf8(validUtf8(m_reader.text(e.start, e.size(), limits::kMaxName)),
                                 limits::kMaxTitle);
            break;
        case mkv::kDefaultDuration:
            track.defaultDuration = ebml::unsignedInteger(m_reader, e);
            break;
        case mkv::kCodecDelay:
            track.codecDelay = ebml::unsignedInteger(m_reader, e);
            require(track.codecDelay <= limits::kMaxDelayNs, kTooLarge);
            break;
        case mkv::kTrackTimecodeScale:
            trackScale = ebml::floating(m_reader, e);
            break;
        case mkv::kTrackOffset:
            trackOffset = ebml::signedInteger(m_reader, e);
            break;
        case mkv::kContentEncodings:
            track.encoded = true;
            break;
        case mkv::kVideo:
            if (!m_textOnly) video(e, track);
            break;
        case mkv::kAudio:
            if (!m_textOnly) audio(e, track);
            break;
        default:
            break;
        }
        p = e.end;
    }
    require(haveNumber);
    require(m_numbers.insert(track.number).second);
    // LanguageBCP47 supersedes Language.
    track.language = languageBcp47 ? languageFromBcp47(*languageBcp47)
                                   : languageFromIso639(language.value_or("und"));

    if (type == kSubtitleTrackType) {
        keepSubtitleTrack(track, forced, language || languageBcp47);
        return;
    }
    if (m_textOnly) return;
    if (type != kVideo && type != kAudio) return;
    if (!track.enabled) return;
    track.kind = static_cast<TrackKind>(type);
    (type == kVideo ? m_sawVideo : m_sawAudio) = true;
    track.codec = codecFor(track.codecId, track.kind);
    if (track.codec == Codec::Unknown) return;
    require(!track.encoded, kUnsupported);
    require(trackScale == 1.0, kUnsupported);
    require(trackOffset == 0, kUnsupported);

    if (track.codec == Codec::Aac) {
        try {
            track.audio = qv_audio::aac(track.codecPrivate);
        } catch (const Failure& error) {
            if (error.code() == kUnsupported) return; // a profile MP4 cannot carry: skip the track
            throw;
        }
    } else if (track.codec == Codec::Alac) {
        const auto alac = qv_audio::alacConfiguration(track.codecPrivate);
        track.sampleRate = alac.sampleRate;
        track.channels = alac.channels;
        track.audio = {alac.sampleRate, alac.channels, alac.frameLength, alac.bitDepth};
    } else if (track.codec == Codec::Opus) {
        // Opus always decodes at 48 kHz, whatever the input rate was.
        track.audio.sampleRate = 48000;
        track.audio.channels = track.channels;
        track.audio.bitsPerSample = 16;
    } else if (track.codec == Codec::Flac) {
        // The stream information is authoritative; the container's rate may be rounded or absent.
        const auto info = qv_audio::flacConfiguration(track.codecPrivate).info;
        track.sampleRate = info.sampleRate;
        track.audio = {info.sampleRate, info.channels, 0, info.bitsPerSample};
    } else {
        // AC-3, E-AC-3 and MP3 describe themselves in every frame; until the first frame is read
        // (when the track is prepared) the container's values stand in, with Matroska's default
        // rate when the Audio element is missing.
        track.audio = {track.sampleRate > 0 ? track.sampleRate : 8000, track.channels, 0, 16};
    }
    require(m_index.tracks.size() < limits::kMaxTracks, kTooLarge);
    m_index.tracks.push_back(std::move(track));
}

void Demuxer::keepSubtitleTrack(const Track& track, bool forced, bool languageSeen)
{
    // Compressed tracks (ContentEncodings) are rare for text and left out.
    if (!track.enabled || track.encoded || !isTextSubtitleCodec(track.codecId) ||
        m_index.subtitles.size() >= limits::kMaxSubtitleTracks)
        return;
    SubtitleTrack subtitle;
    subtitle.number = track.number;
    subtitle.codecId = track.codecId;
    subtitle.codecPrivate = track.codecPrivate;
    if (languageSeen) subtitle.language = track.language;
    subtitle.name = track.name;
    subtitle.isDefault = track.isDefault;
    subtitle.forced = forced;
    m_index.subtitles.push_back(std::move(subtitle));
}

void Demuxer::video(const Element& v, Track& track)
{
    for (auto p = v.start; p < v.end;) {
        const Element e = ebml::element(m_reader, p, v.end);
        switch (e.id) {
        case mkv::kPixelWidth:
            track.pixelWidth = below65536(m_reader, e);
            break;
        case mkv::kPixelHeight:
            track.pixelHeight = below65536(m_reader, e);
            break;
        case mkv::kDisplayWidth:
            track.displayWidth = below65536(m_reader, e);
            break;
        case mkv::kDisplayHeight:
            track.displayHeight = below65536(m_reader, e);
            break;
        case mkv::kDisplayUnit:
            track.displayUnit = below65536(m_reader, e);
            break;
        case mkv::kColour:
            colour(e, track);
            break;
        default:
            break;
        }
        p = e.end;
    }
}

void Demuxer::colour(const Element& c, Track& track)
{
    for (auto p = c.start; p < c.end;) {
        const Element e = ebml::element(m_reader, p, c.end);
        switch (e.id) {
        case mkv::kMatrixCoefficients:
            track.colour.matrix = below65536(m_reader, e);
            break;
        case mkv::kRange:
            track.colour.fullRange = below65536(m_reader, e) == 2;
            break;
        case mkv::kTransferCharacteristics:
            track.colour.transfer = below65536(m_reader, e);
            break;
        case mkv::kPrimaries:
            track.colour.primaries = below65536(m_reader, e);
            break;
        default:
            break;
        }
        p = e.end;
    }
}

void Demuxer::audio(const Element& a, Track& track)
{
    track.channels = 1;
    track.sampleRate = 8000;
    for (auto p = a.start; p < a.end;) {
        const Element e = ebml::element(m_reader, p, a.end);
        if (e.id == mkv::kChannels) {
            const auto channels = ebml::unsignedInteger(m_reader, e);
            require(channels >= 1 && channels <= limits::kMaxChannels);
            track.channels = static_cast<std::uint32_t>(channels);
        } else if (e.id == mkv::kSamplingFrequency) {
            const double rate = ebml::floating(m_reader, e);
            require(rate >= limits::kMinSampleRate && rate <= limits::kMaxSampleRate);
            track.sampleRate = static_cast<std::uint32_t>(std::lround(rate));
        }
        p = e.end;
    }
}

// Indexing a whole file reads one block header after another, each a round trip to the source
// that depends on the one before. The clusters are independent, though, so runs of them are walked
// at once by a few threads, each with a handle of its own, and their samples joined in order. There
// are several runs per thread, handed out in turn, so that a thread that starts late or runs slow
// takes fewer. Anything unusual (a run that fails, DiscardPadding before a later run's blocks,
// subtitle caps reached across runs) throws the runs away and walks the file once more in one
// piece, so the index and every failure are exactly those of a single walk.
void Demuxer::indexClusters(std::uint64_t parallelFrom)
{
    const std::uint64_t threads = std::min<std::uint64_t>(
        {std::thread::hardware_concurrency(), limits::kIndexThreads, m_clusters.size()});
    const auto bytes = m_clusters.empty() ? 0 : m_clusters.back().end - m_clusters.front().start;
    if (threads < 2 || bytes < parallelFrom) return clusterBlocks();

    std::vector<std::unique_ptr<Reader>> readers;
    for (std::uint64_t k = 1; k < threads; ++k) {
        try {
            if (auto reader = m_reader.another()) readers.push_back(std::move(reader));
        } catch (const Failure&) {
            // No second handle: fewer threads.
        }
    }
    if (readers.empty()) return clusterBlocks();

    // Runs of about equal size in bytes, as [first, end) cluster indices.
    const auto count = std::min<std::uint64_t>((readers.size() + 1) * limits::kRunsPerIndexThread,
                                               m_clusters.size());
    std::vector<std::pair<std::size_t, std::size_t>> runs;
    for (std::size_t i = 0; i < m_clusters.size();) {
        const auto from = m_clusters.front().start + bytes / count * (runs.size() + 1);
        auto end = i + 1;
        while (end < m_clusters.size() && m_clusters[end].start < from)
            ++end;
        runs.emplace_back(i, end);
        i = end;
    }

    const Index before = m_index;
    std::vector<std::unique_ptr<Demuxer>> walked(runs.size());
    std::atomic<std::size_t> next{0};
    std::atomic<bool> failed{false};
    const auto walk = [&](Reader& reader) {
        for (std::size_t r; !failed && (r = next++) < runs.size();) {
            try {
                auto run = std::make_unique<Demuxer>(reader);
                run->m_index = before;
                run->m_states.resize(m_index.tracks.size());
                run->m_clusters.assign(m_clusters.begin() + std::ptrdiff_t(runs[r].first),
                                       m_clusters.begin() + std::ptrdiff_t(runs[r].second));
                run->clusterBlocks();
                walked[r] = std::move(run);
            } catch (...) {
                failed = true;
            }
        }
    };
    std::vector<std::thread> workers;
    workers.reserve(readers.size());
    for (auto& reader : readers) {
        try {
            workers.emplace_back(walk, std::ref(*reader));
        } catch (const std::system_error&) {
            break; // the threads that did start, and this one, walk every run
        }
    }
    walk(m_reader);
    for (auto& worker : workers)
        worker.join();

    if (!failed) {
        // The first run's walk is this one's start; the others follow it.
        m_index = std::move(walked[0]->m_index);
        m_states = std::move(walked[0]->m_states);
        for (std::size_t r = 1; r < walked.size() && !failed; ++r)
            failed = !takeRun(*walked[r]);
        if (!failed) return;
    }
    walked.clear();
    m_index = before;
    m_states.assign(m_index.tracks.size(), {});
    clusterBlocks();
}

bool Demuxer::takeRun(Demuxer& run)
{
    for (std::size_t t = 0; t < m_index.tracks.size(); ++t) {
        auto& samples = m_index.tracks[t].samples;
        const auto& theirs = run.m_index.tracks[t];
        // A single walk would have refused the first of these blocks.
        if (m_states[t].discardSeen && !theirs.samples.empty()) return false;
        samples.insert(samples.end(), theirs.samples.begin(), theirs.samples.end());
        if (run.m_states[t].discardSeen) {
            m_states[t].discardSeen = true;
            m_index.tracks[t].discardPadding = theirs.discardPadding;
        }
    }
    m_index.sampleCount += run.m_index.sampleCount;
    for (std::size_t s = 0; s < m_index.subtitles.size(); ++s) {
        auto& mine = m_index.subtitles[s];
        auto& theirs = run.m_index.subtitles[s];
        // Within the caps together, every event each run kept or cut fares the same in one walk.
        if (mine.events.size() + theirs.events.size() > limits::kMaxSubtitleEvents ||
            mine.textBytes + theirs.textBytes > limits::kMaxSubtitleTextBytes)
            return false;
        std::move(theirs.events.begin(), theirs.events.end(), std::back_inserter(mine.events));
        mine.textBytes += theirs.textBytes;
        mine.cutEvents += theirs.cutEvents;
    }
    return true;
}

// Blocks are timed from their cluster's Timecode, and the last Timecode of a cluster wins. Muxers
// write it first, so each cluster is normally walked once with the Timecode it starts with; only
// when a different Timecode follows blocks is the cluster's work undone and walked again.
void Demuxer::clusterBlocks()
{
    std::vector<std::size_t> counts(m_index.tracks.size());
    for (auto& cluster : m_clusters) {
        m_reader.check();
        for (std::size_t t = 0; t < counts.size(); ++t)
            counts[t] = m_index.tracks[t].samples.size();
        const auto sampleCount = m_index.sampleCount;
        const auto states = m_states;
        std::vector<std::pair<std::size_t, std::uint64_t>> subtitleCounts;
        for (const auto& s : m_index.subtitles)
            subtitleCounts.emplace_back(s.events.size(), s.textBytes);
        const auto padding = [&] {
            std::vector<std::uint64_t> v;
            for (const auto& t : m_index.tracks)
                v.push_back(t.discardPadding);
            return v;
        }();
        bool blocksSeen = false;
        bool again = false;
        for (int walk = 0; walk < 2; ++walk) {
            for (auto p = cluster.start; p < cluster.end;) {
                const Element e = ebml::element(m_reader, p, cluster.end);
                if (e.id == mkv::kTimecode && walk == 0) {
                    const auto timecode = ebml::unsignedInteger(m_reader, e);
                    again = again || (blocksSeen && timecode != cluster.timecode);
                    cluster.timecode = timecode;
                } else if (e.id == mkv::kSimpleBlock) {
                    blocksSeen = true;
                    block(e, cluster, std::nullopt, 0, std::nullopt);
                } else if (e.id == mkv::kBlockGroup) {
                    blocksSeen = true;
                    blockGroup(e, cluster);
                }
                p = e.end;
            }
            if (!again || walk == 1) break;
            for (std::size_t t = 0; t < counts.size(); ++t) {
                m_index.tracks[t].samples.resize(counts[t]);
                m_index.tracks[t].discardPadding = padding[t];
            }
            m_index.sampleCount = sampleCount;
            m_states = states;
            for (std::size_t s = 0; s < subtitleCounts.size(); ++s) {
                m_index.subtitles[s].events.resize(subtitleCounts[s].first);
                m_index.subtitles[s].textBytes = subtitleCounts[s].second;
            }
        }
    }
}

void Demuxer::blockGroup(const Element& group, const Cluster& cluster)
{
    std::optional<Element> blockElement;
    std::optional<std::uint64_t> duration;
    std::int64_t discardPadding = 0;
    bool referenced = false;
    for (auto p = group.start; p < group.end;) {
        const Element e = ebml::element(m_reader, p, group.end);
        switch (e.id) {
        case mkv::kBlock:
            require(!blockElement.has_value());
            blockElement = e;
            break;
        case mkv::kBlockDuration:
            duration = ebml::unsignedInteger(m_reader, e);
            break;
        case mkv::kReferenceBlock:
            referenced = true;
            break;
        case mkv::kDiscardPadding:
            discardPadding = ebml::signedInteger(m_reader, e);
            break;
        case mkv::kCodecState:
            fail(kUnsupported);
        default:
            break;
        }
        p = e.end;
    }
    require(blockElement.has_value());
    block(*blockElement, cluster, duration, discardPadding, !referenced);
}

std::int64_t Demuxer::trackIndex(std::uint64_t number) const
{
    for (std::size_t i = 0; i < m_index.tracks.size(); ++i)
        if (m_index.tracks[i].number == number) return static_cast<std::int64_t>(i);
    return -1;
}

void Demuxer::block(const Element& b, const Cluster& cluster, std::optional<std::uint64_t> duration,
                    std::int64_t discardPadding, std::optional<bool> key)
{
    const auto number = ebml::vint(m_reader, b.start, b.end, false);
    const auto found = trackIndex(number.value);
    if (found < 0) {
        subtitleBlock(b, number.value, number.length, cluster, duration);
        return;
    }
    Track& track = m_index.tracks[static_cast<std::size_t>(found)];
    TrackState& state = m_states[static_cast<std::size_t>(found)];

    // DiscardPadding trims the end of a stream, so only a track's last block may carry it.
    require(discardPadding >= 0 && !state.discardSeen, kUnsupported);
    require(static_cast<std::uint64_t>(discardPadding) <= limits::kMaxDelayNs, kTooLarge);
    if (discardPadding > 0) {
        state.discardSeen = true;
        track.discardPadding = static_cast<std::uint64_t>(discardPadding);
    }

    auto p = b.start + number.length;
    require(p <= b.end && b.end - p >= 3);
    const auto relative = static_cast<std::int16_t>(m_reader.uintBE(p, 2));
    const std::uint8_t flags = m_reader.byte(p + 2);
    Frames& frames = m_frames;
    splitLaces(m_reader, p + 3, b.end, static_cast<Lacing>((flags >> 1) & 3), frames);
    const bool isKey = key.has_value() ? *key : (flags & 0x80) != 0;

    const auto scale = static_cast<std::int64_t>(m_index.timecodeScale);
    require(cluster.timecode <= limits::kMaxClusterTimeNs / m_index.timecodeScale);
    const std::int64_t ticks = static_cast<std::int64_t>(cluster.timecode) + relative;
    const std::int64_t maxTicks = std::numeric_limits<std::int64_t>::max() / scale;
    require(ticks < maxTicks && ticks > -maxTicks);

    const auto count = static_cast<std::uint64_t>(frames.sizes.size());
    std::uint64_t frameDuration = track.defaultDuration;
    if (frameDuration == 0 && duration.has_value()) {
        require(*duration == 0 ||
                *duration <= std::numeric_limits<std::uint64_t>::max() / m_index.timecodeScale);
        frameDuration = m_index.timecodeScale * *duration / count;
    }
    // No frame lasts longer than the longest cluster time; this keeps every later time difference
    // inside 64 bits.
    require(frameDuration <= limits::kMaxClusterTimeNs);
    require(!(track.kind == kVideo && count > 1 && frameDuration == 0), kUnsupported);
    const std::int64_t start = scale * ticks - static_cast<std::int64_t>(track.codecDelay);

    auto position = frames.dataStart;
    std::uint64_t pcmBefore = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        const auto size = frames.sizes[i];
        require(size < limits::kMaxFrameSize + 1, kTooLarge);
        // An empty frame carries nothing, and allowing it would let a few header bytes stand for
        // hundreds of samples.
        require(size > 0);
        require(position <= b.end && size <= b.end - position);
        Sample sample;
        sample.position = position;
        sample.size = static_cast<std::uint32_t>(size);
        sample.key = isKey;
        if (track.kind == kVideo) {
            std::int64_t offset = 0;
            require(!__builtin_mul_overflow(static_cast<std::int64_t>(i),
                                            static_cast<std::int64_t>(frameDuration), &offset) &&
                    frameDuration <=
                        static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
            require(!__builtin_add_overflow(start, offset, &sample.time));
        } else {
            sample.pcmSamples = qv_audio::audioSamples(m_reader, track, position, size);
            sample.time = start + static_cast<std::int64_t>(pcmBefore * 1'000'000'000ull /
                                                            track.audio.sampleRate);
            pcmBefore += sample.pcmSamples;
            require(pcmBefore < limits::kMaxBlockSamples);
        }
        m_index.append(track, sample);
        position += size;
    }
    require(position == b.end);
}

void Demuxer::subtitleBlock(const Element& b, std::uint64_t number, std::uint64_t numberLength,
                            const Cluster& cluster, std::optional<std::uint64_t> duration)
{
    auto track = std::find_if(m_index.subtitles.begin(), m_index.subtitles.end(),
                              [&](const SubtitleTrack& t) { return t.number == number; });
    if (track == m_index.subtitles.end()) return;
    try {
        const auto p = b.start + numberLength;
        require(p <= b.end && b.end - p >= 3);
        const auto relative = static_cast<std::int16_t>(m_reader.uintBE(p, 2));
        const std::uint8_t flags = m_reader.byte(p + 2);
        const auto scale = static_cast<std::int64_t>(m_index.timecodeScale);
        require(cluster.timecode <= limits::kMaxClusterTimeNs / m_index.timecodeScale);
        const std::int64_t start = scale * (static_cast<std::int64_t>(cluster.timecode) + relative);
        std::optional<std::int64_t> length;
        if (duration) {
            require(*duration <= limits::kMaxClusterTimeNs / m_index.timecodeScale);
            length = static_cast<std::int64_t>(*duration) * scale;
        }
        addSubtitleBlock(m_reader, *track, p + 3, b.end, flags, start, length);
    } catch (const Failure& failure) {
        if (failure.code() == kCancelled || failure.code() == kInputOutput) throw;
        ++track->cutEvents;
    }
}

} // namespace

bool probeMatroska(Reader& reader)
{
    return reader.size() >= 4 && reader.uintBE(0, 4) == mkv::kEbml;
}

Index matroska(Reader& reader, std::uint64_t parallelFrom)
{
    return Demuxer(reader).run(parallelFrom);
}

MatroskaHead matroskaHead(Reader& reader)
{
    return Demuxer(reader).head();
}

void matroskaClusters(Reader& reader, Index& index, std::uint64_t start, std::uint64_t end)
{
    Demuxer(reader).clusters(index, start, end);
}

void matroskaBlock(Reader& reader, Index& index, std::uint64_t cluster, std::uint64_t relative)
{
    Demuxer(reader).blockAt(index, cluster, relative);
}

Index matroskaTextTracks(Reader& reader)
{
    return Demuxer(reader).textTracks();
}

} // namespace qv
