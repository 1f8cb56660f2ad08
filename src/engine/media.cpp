#include "media.h"

#include "failure.h"
#include "flv.h"
#include "matroska.h"
#include "movie_writer.h"
#include "mp4_text.h"
#include "timing.h"

#include <algorithm>
#include <cstring>

namespace qv {
namespace {

// Frees a vector's storage (assigning {} would only empty it and keep the capacity).
template <typename Vector> void release(Vector& v)
{
    Vector().swap(v);
}

struct Location {
    std::uint64_t track = 0;
    std::uint64_t sample = 0;
    std::uint64_t position = 0;
};

std::vector<std::uint8_t> fileType()
{
    const std::uint8_t bytes[28] = {0,   0,   0,   28,  'f', 't', 'y', 'p', 'i', 's',
                                    'o', 'm', 0,   0,   2,   0,   'i', 's', 'o', 'm',
                                    'i', 's', 'o', '6', 'm', 'p', '4', '1'};
    return {bytes, bytes + sizeof bytes};
}

// Copies a fixed number of bytes, all loaded before any is stored.
template <std::size_t N>
inline void moveFixed(std::uint8_t* destination, const std::uint8_t* source)
{
    std::uint8_t block[N];
    std::memcpy(block, source, N);
    std::memcpy(destination, block, N);
}

// Moves take bytes at base + from down to base + to (to <= from), in a buffer of length bytes.
// Most samples of a long file are small, and there a call to memmove costs more than the copy: a
// small sample goes as one fixed-size block instead, which may run past the sample's end. The
// bytes after it are free (the next sample will overwrite them) once the sample has moved at least
// that overrun, and the block must still lie inside the buffer. Samples never share source bytes
// (each lies inside its own block or tag), so the next sample starts at from + take or later.
inline void squeeze(std::uint8_t* base, std::uint64_t to, std::uint64_t from, std::uint64_t take,
                    std::uint64_t length)
{
    const std::uint64_t reach = from - to + take; // where the next sample's bytes may begin
    if (take <= 64 && reach >= 64 && length - from >= 64)
        moveFixed<64>(base + to, base + from);
    else if (take <= 128 && reach >= 128 && length - from >= 128)
        moveFixed<128>(base + to, base + from);
    else
        std::memmove(base + to, base + from, take);
}

Index demux(Reader& reader)
{
    if (probeMatroska(reader)) return matroska(reader);
    if (probeFlv(reader)) return flv(reader);
    fail(kUnsupported);
}

} // namespace
} // namespace qv

QVMedia::QVMedia(const char* path, qv::CancelFn cancel, void* context)
    : QVMedia(std::make_unique<qv::FileSource>(path), cancel, context,
              [file = std::string(path)] { return std::make_unique<qv::FileSource>(file.c_str()); })
{
}

QVMedia::QVMedia(std::unique_ptr<qv::Source> source, qv::CancelFn cancel, void* context,
                 qv::SourceMaker reopen)
    : reader(std::move(source), cancel, context)
{
    fragmented = qv::FragmentedMovie::open(reader);
    if (fragmented) {
        const auto& index = fragmented->index();
        tracks = index.tracks;
        sampleCount = index.sampleCount;
        format = index.format;
        timecodeScale = index.timecodeScale;
        size = fragmented->size();
        attachments = index.attachments;
        subtitles = std::make_unique<qv::SubtitleFeed>(index.subtitles, index.timecodeScale,
                                                       fragmented->fragments(), std::move(reopen),
                                                       cancel, context);
        fragmented->subtitleSink = [feed = subtitles.get()](auto& found) { feed->add(found); };
        return;
    }
    qv::Index index = qv::demux(reader);
    qv::require(!index.tracks.empty(), qv::kUnsupported);
    qv::prepareTracks(reader, index);
    layout(index);
    sampleCount = index.sampleCount;
    format = index.format;
    timecodeScale = index.timecodeScale;
    tracks = std::move(index.tracks);
    subtitles = std::make_unique<qv::SubtitleFeed>(std::move(index.subtitles));
    attachments = std::move(index.attachments);
    // Reads go through the slices alone; the per-sample lists are no longer needed.
    for (auto& t : tracks) {
        t.sampleCount = t.samples.size();
        qv::release(t.samples);
        qv::release(t.timing.durations);
        qv::release(t.timing.compositions);
    }
}

QVMedia::QVMedia(qv::TextTracksOnly, std::unique_ptr<qv::Source> source, qv::CancelFn cancel,
                 void* context)
    : reader(std::move(source), cancel, context)
{
    if (qv::probeMatroska(reader)) {
        qv::Index index = qv::matroskaTextTracks(reader);
        format = QV_MEDIA_FORMAT_MATROSKA;
        timecodeScale = index.timecodeScale;
        subtitles = std::make_unique<qv::SubtitleFeed>(std::move(index.subtitles));
        attachments = std::move(index.attachments);
    } else {
        format = QV_MEDIA_FORMAT_MP4_TEXT;
        subtitles = std::make_unique<qv::SubtitleFeed>(qv::readIsoTextTracks(reader));
    }
    reader.dropCache();
}

void QVMedia::layout(qv::Index& index)
{
    using namespace qv;
    std::vector<Location> locations;
    locations.reserve(index.sampleCount);
    for (std::size_t t = 0; t < index.tracks.size(); ++t)
        for (std::size_t s = 0; s < index.tracks[t].samples.size(); ++s)
            locations.push_back({t, s, index.tracks[t].samples[s].position});
    // The virtual mdat keeps the source's own interleaving of the tracks. Each track's samples are
    // normally in file order already, so the tracks' runs only need merging.
    const auto byPosition = [](const Location& a, const Location& b) {
        return a.position < b.position;
    };
    auto runStart = locations.begin();
    for (const auto& track : index.tracks) {
        const auto runEnd = runStart + static_cast<std::ptrdiff_t>(track.samples.size());
        if (!std::is_sorted(runStart, runEnd, byPosition)) std::sort(runStart, runEnd, byPosition);
        std::inplace_merge(locations.begin(), runStart, runEnd, byPosition);
        runStart = runEnd;
    }

    std::vector<std::vector<std::uint64_t>> offsets(index.tracks.size());
    for (std::size_t t = 0; t < index.tracks.size(); ++t)
        offsets[t].assign(index.tracks[t].samples.size(), 0);

    const auto ftyp = fileType();
    const auto measured = writeMovie(index, offsets);
    const std::uint64_t headerSize = ftyp.size() + measured.size() + 16;

    slices.reserve(locations.size());
    std::uint64_t cursor = headerSize;
    for (const auto& l : locations) {
        const auto sampleSize = index.tracks[l.track].samples[l.sample].size;
        offsets[l.track][l.sample] = cursor;
        slices.push_back({cursor, l.position, sampleSize});
        require(cursor + sampleSize >= cursor);
        cursor += sampleSize;
    }
    release(locations);

    const auto moov = writeMovie(index, offsets);
    release(offsets);
    header.reserve(headerSize);
    header = ftyp;
    header.insert(header.end(), moov.begin(), moov.end());
    const std::uint64_t mdatSize = cursor - headerSize + 16;
    const std::uint8_t mdat[8] = {0, 0, 0, 1, 'm', 'd', 'a', 't'};
    header.insert(header.end(), mdat, mdat + 8);
    for (int i = 7; i >= 0; --i)
        header.push_back(static_cast<std::uint8_t>(mdatSize >> (8 * i)));
    require(header.size() == headerSize && cursor < ~std::uint64_t(0), kTooLarge);
    size = cursor;
    reader.check();
    reader.dropCache();
}

void QVMedia::read(std::uint64_t offset, std::uint8_t* buffer, std::uint64_t n)
{
    using namespace qv;
    if (fragmented) return fragmented->read(offset, buffer, n);
    std::uint64_t done = 0;
    if (offset < header.size()) {
        done = std::min<std::uint64_t>(header.size() - offset, n);
        std::memcpy(buffer, header.data() + offset, done);
    }
    if (done == n) return;
    auto next =
        std::upper_bound(slices.begin(), slices.end(), offset + done,
                         [](std::uint64_t value, const Slice& s) { return value < s.position; });
    require(next != slices.begin());
    auto k = static_cast<std::size_t>(next - slices.begin()) - 1;
    while (done < n) {
        // One source read of up to the bytes still wanted, starting at the next sample byte, then
        // the gaps between samples (block headers, other tracks' data) are squeezed out in place.
        require(k < slices.size());
        const std::uint64_t room = n - done;
        const Slice& first = slices[k];
        const std::uint64_t p = offset + done;
        require(p >= first.position && p - first.position < first.size);
        const std::uint64_t spanStart = first.source + (p - first.position);
        require(spanStart < reader.size());
        const std::uint64_t spanLength = std::min(room, reader.size() - spanStart);
        std::uint8_t* const base = buffer + done;
        reader.copy(spanStart, base, spanLength);
        std::uint64_t out = std::min<std::uint64_t>(first.position + first.size - p, room);
        require(out <= spanLength);
        const Slice* slice = slices.data() + k + 1;
        const Slice* const last = slices.data() + slices.size();
        for (; out < room && slice != last; ++slice) {
            const std::uint64_t take = std::min<std::uint64_t>(slice->size, room - out);
            // Wraps to a huge value for a sample before the span, which the test below refuses.
            const std::uint64_t at = slice->source - spanStart;
            if (at < out || at > spanLength || take > spanLength - at) break; // read it afresh
            squeeze(base, out, at, take, spanLength);
            out += take;
        }
        done += out;
        k = static_cast<std::size_t>(slice - slices.data());
    }
}
