#include "media.h"

#include "failure.h"
#include "flv.h"
#include "matroska.h"
#include "movie_writer.h"
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

Index demux(Reader& reader)
{
    if (probeMatroska(reader)) return matroska(reader);
    if (probeFlv(reader)) return flv(reader);
    fail(kUnsupported);
}

} // namespace
} // namespace qv

QVMedia::QVMedia(const char* path, qv::CancelFn cancel, void* context)
    : reader(path, cancel, context)
{
    qv::Index index = qv::demux(reader);
    qv::require(!index.tracks.empty(), qv::kUnsupported);
    qv::prepareTracks(reader, index);
    layout(index);
    sampleCount = index.sampleCount;
    format = index.format;
    timecodeScale = index.timecodeScale;
    tracks = std::move(index.tracks);
    // Reads go through the slices alone; the per-sample lists are no longer needed.
    for (auto& t : tracks) {
        t.sampleCount = t.samples.size();
        qv::release(t.samples);
        qv::release(t.timing.durations);
        qv::release(t.timing.compositions);
    }
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
        auto i = k + 1;
        for (; out < room && i < slices.size(); ++i) {
            const Slice& s = slices[i];
            const auto take = std::min<std::uint64_t>(s.size, room - out);
            if (s.source < spanStart) break;
            const auto at = s.source - spanStart;
            if (at < out || at > spanLength || take > spanLength - at) break; // read it afresh
            std::memmove(base + out, base + at, take);
            out += take;
        }
        done += out;
        k = i;
    }
}
