#include "movie_writer.h"

#include "box_writer.h"
#include "failure.h"
#include "language.h"
#include "sample_entry.h"

#include <algorithm>

namespace qv {
namespace {

std::uint64_t mediaDuration(const Track& t)
{
    return t.timing.mediaEnd - t.timing.mediaStart;
}

// The track's length on the movie timeline, in movie units, without its lead-in.
std::uint64_t movieDuration(const Track& t)
{
    if (t.timing.timescale == 0) return 0;
    const auto d = static_cast<unsigned __int128>(mediaDuration(t)) * kMovieTimescale;
    return static_cast<std::uint64_t>((d + t.timing.timescale - 1) / t.timing.timescale);
}

std::uint64_t sumDurations(const Track& t)
{
    std::uint64_t total = 0;
    for (const auto d : t.timing.durations)
        total += d;
    return total;
}

void writeMvhd(BoxWriter& w, const Index& index)
{
    std::uint64_t duration = 0;
    for (const auto& t : index.tracks)
        duration = std::max(duration, movieDuration(t) + t.timing.movieOffset);
    auto mvhd = w.full("mvhd", 1, 0);
    w.u64(0);
    w.u64(0);
    w.u32(kMovieTimescale);
    w.u64(duration);
    w.u32(0x00010000);
    w.u16(0x0100);
    w.zeros(10);
    w.matrix();
    w.zeros(24);
    w.u32(static_cast<std::uint32_t>(index.tracks.size() + 1));
}

void writeTkhd(BoxWriter& w, const Track& t, std::uint32_t id, bool enabled)
{
    auto tkhd = w.full("tkhd", 1, enabled ? 3 : 2);
    w.u64(0);
    w.u64(0);
    w.u32(id);
    w.u32(0);
    w.u64(movieDuration(t) + t.timing.movieOffset);
    w.zeros(8);
    w.u16(0);                        // layer
    w.u16(t.kind == kVideo ? 2 : 1); // tracks of one kind are alternatives to each other
    w.u16(t.kind == kVideo ? 0 : 0x0100);
    w.u16(0);
    w.matrix();
    if (t.kind == kVideo) {
        const auto [width, height] = displaySize(t);
        w.u32(width << 16);
        w.u32(height << 16);
    } else {
        w.u32(0);
        w.u32(0);
    }
}

void writeEdts(BoxWriter& w, const Track& t)
{
    auto edts = w.box("edts");
    const bool lead = t.timing.movieOffset > 0;
    auto elst = w.full("elst", 1, 0);
    w.u32(lead ? 2 : 1);
    if (lead) {
        // An empty edit: the track starts later than the movie.
        w.u64(t.timing.movieOffset);
        w.u64(~std::uint64_t(0));
        w.u16(1);
        w.u16(0);
    }
    w.u64(movieDuration(t));
    w.u64(t.timing.mediaStart);
    w.u16(1);
    w.u16(0);
}

void writeStts(BoxWriter& w, const std::vector<std::uint32_t>& durations)
{
    std::vector<std::pair<std::uint32_t, std::uint32_t>> runs;
    for (const auto d : durations) {
        if (!runs.empty() && runs.back().second == d)
            ++runs.back().first;
        else
            runs.emplace_back(1, d);
    }
    auto stts = w.full("stts", 0, 0);
    w.u32(static_cast<std::uint32_t>(runs.size()));
    for (const auto& [count, delta] : runs) {
        w.u32(count);
        w.u32(delta);
    }
}

void writeRoll(BoxWriter& w, const Track& t)
{
    if (t.timing.rollDistance == 0) return;
    {
        auto sgpd = w.full("sgpd", 1, 0);
        w.fourcc("roll");
        w.u32(2); // default description length
        w.u32(1);
        w.u16(static_cast<std::uint16_t>(static_cast<std::int16_t>(t.timing.rollDistance)));
    }
    // A track whose samples all live in movie fragments maps them in each fragment instead.
    if (t.samples.empty()) return;
    auto sbgp = w.full("sbgp", 0, 0);
    w.fourcc("roll");
    w.u32(1);
    w.u32(static_cast<std::uint32_t>(t.samples.size()));
    w.u32(1);
}

void writeCtts(BoxWriter& w, const std::vector<std::int32_t>& offsets)
{
    if (std::all_of(offsets.begin(), offsets.end(), [](std::int32_t o) { return o == 0; })) return;
    std::vector<std::pair<std::uint32_t, std::int32_t>> runs;
    for (const auto o : offsets) {
        if (!runs.empty() && runs.back().second == o)
            ++runs.back().first;
        else
            runs.emplace_back(1, o);
    }
    auto ctts = w.full("ctts", 1, 0);
    w.u32(static_cast<std::uint32_t>(runs.size()));
    for (const auto& [count, offset] : runs) {
        w.u32(count);
        w.u32(static_cast<std::uint32_t>(offset));
    }
}

void writeStbl(BoxWriter& w, const Track& t, const std::vector<std::uint64_t>& offsets)
{
    const auto count = static_cast<std::uint32_t>(t.samples.size());
    auto stbl = w.box("stbl");
    {
        auto stsd = w.full("stsd", 0, 0);
        w.u32(1);
        writeSampleEntry(w, t);
    }
    writeStts(w, t.timing.durations);
    writeRoll(w, t);
    writeCtts(w, t.timing.compositions);
    {
        auto stsc = w.full("stsc", 0, 0);
        w.u32(1);
        w.u32(1); // from the first chunk on
        w.u32(1); // one sample per chunk
        w.u32(1);
    }
    {
        w.reserve(std::size_t(count) * 12 + 64); // stsz and co64 entries
        auto stsz = w.full("stsz", 0, 0);
        w.u32(0);
        w.u32(count);
        for (const auto& s : t.samples)
            w.u32(s.size);
    }
    {
        auto co64 = w.full("co64", 0, 0);
        w.u32(count);
        for (const auto o : offsets)
            w.u64(o);
    }
    std::uint32_t keys = 0;
    for (const auto& s : t.samples)
        keys += s.key ? 1 : 0;
    if (keys != count) {
        auto stss = w.full("stss", 0, 0);
        w.u32(keys);
        for (std::uint32_t i = 0; i < count; ++i)
            if (t.samples[i].key) w.u32(i + 1);
    }
}

// The track's own name, where players look for a title (ffmpeg reads it as "title").
void writeUdta(BoxWriter& w, const Track& t)
{
    if (t.name.empty()) return;
    auto udta = w.box("udta");
    auto name = w.box("name");
    w.text(t.name);
}

void writeMdia(BoxWriter& w, const Track& t, bool video, const std::vector<std::uint64_t>& offsets)
{
    auto mdia = w.box("mdia");
    {
        auto mdhd = w.full("mdhd", 1, 0);
        w.u64(0);
        w.u64(0);
        w.u32(t.timing.timescale);
        w.u64(sumDurations(t));
        w.u16(packedLanguage(t.language));
        w.u16(0);
    }
    {
        auto hdlr = w.full("hdlr", 0, 0);
        w.u32(0);
        w.fourcc(video ? "vide" : "soun");
        w.zeros(12);
        const std::string_view name =
            t.name.empty() ? std::string_view(video ? "Video" : "Audio") : std::string_view(t.name);
        w.text(name);
        w.u8(0);
    }
    auto minf = w.box("minf");
    if (video) {
        auto vmhd = w.full("vmhd", 0, 1);
        w.zeros(8);
    } else {
        auto smhd = w.full("smhd", 0, 0);
        w.zeros(4);
    }
    {
        auto dinf = w.box("dinf");
        auto dref = w.full("dref", 0, 0);
        w.u32(1);
        auto url = w.full("url ", 0, 1);
    }
    writeStbl(w, t, offsets);
}

void writeTrak(BoxWriter& w, const Track& t, std::uint32_t id, bool enabled,
               const std::vector<std::uint64_t>& offsets)
{
    const bool video = t.kind == kVideo;
    auto trak = w.box("trak");
    writeTkhd(w, t, id, enabled);
    writeEdts(w, t);
    writeMdia(w, t, video, offsets);
    writeUdta(w, t);
}

} // namespace

std::vector<bool> enabledTracks(const Index& index)
{
    std::vector<bool> enabled(index.tracks.size(), false);
    for (const std::uint8_t kind : {std::uint8_t(kVideo), std::uint8_t(kAudio)}) {
        const auto ofKind = [&](const Track& t) { return (t.kind == kVideo) == (kind == kVideo); };
        std::ptrdiff_t chosen = -1;
        for (std::size_t i = 0; i < index.tracks.size(); ++i) {
            if (!ofKind(index.tracks[i])) continue;
            if (chosen < 0) chosen = static_cast<std::ptrdiff_t>(i);
            if (index.tracks[i].isDefault) {
                chosen = static_cast<std::ptrdiff_t>(i);
                break;
            }
        }
        if (chosen >= 0) enabled[static_cast<std::size_t>(chosen)] = true;
    }
    return enabled;
}

std::vector<std::uint8_t> writeMovie(const Index& index,
                                     const std::vector<std::vector<std::uint64_t>>& chunkOffsets)
{
    return writeMovie(index, chunkOffsets, {});
}

std::vector<std::uint8_t> writeMovie(const Index& index,
                                     const std::vector<std::vector<std::uint64_t>>& chunkOffsets,
                                     const std::function<void(BoxWriter&)>& tail)
{
    require(chunkOffsets.size() == index.tracks.size());
    const auto enabled = enabledTracks(index);
    BoxWriter w;
    {
        auto moov = w.box("moov");
        writeMvhd(w, index);
        for (std::size_t i = 0; i < index.tracks.size(); ++i)
            writeTrak(w, index.tracks[i], static_cast<std::uint32_t>(i + 1), enabled[i],
                      chunkOffsets[i]);
        if (tail) tail(w);
    }
    return w.take();
}

} // namespace qv
