#include "mp4_text.h"

#include "engine_limits.h"
#include "failure.h"
#include "language.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <optional>
#include <utility>

namespace qv {
namespace {

constexpr std::uint32_t fourcc(const char (&s)[5])
{
    return std::uint32_t(std::uint8_t(s[0])) << 24 | std::uint32_t(std::uint8_t(s[1])) << 16 |
           std::uint32_t(std::uint8_t(s[2])) << 8 | std::uint32_t(std::uint8_t(s[3]));
}

struct Box {
    std::uint32_t type = 0;
    std::uint64_t start = 0; // of the payload
    std::uint64_t end = 0;
    std::uint64_t size() const { return end - start; }
};

// Walks boxes, counting them against one budget for the whole file.
class Boxes {
public:
    explicit Boxes(Reader& reader) : m_reader(reader) {}

    // The box at position, inside [position, end).
    Box at(std::uint64_t position, std::uint64_t end)
    {
        require(++m_visited <= limits::kMaxIsoBoxes, kTooLarge);
        require(position <= end && end - position >= 8);
        std::uint64_t size = m_reader.uintBE(position, 4);
        const auto type = static_cast<std::uint32_t>(m_reader.uintBE(position + 4, 4));
        std::uint64_t header = 8;
        if (size == 1) {
            require(end - position >= 16);
            size = m_reader.uintBE(position + 8, 8);
            header = 16;
        } else if (size == 0) {
            size = end - position; // runs to the end of its parent
        }
        require(size >= header && size <= end - position);
        return {type, position + header, position + size};
    }

    // Calls visit for every child of the range; fewer than 8 bytes left over end the list (some
    // writers close a list with a 32-bit zero).
    template <typename Visit> void children(std::uint64_t start, std::uint64_t end, Visit&& visit)
    {
        for (std::uint64_t p = start; p < end && end - p >= 8;) {
            const Box box = at(p, end);
            p = box.end;
            visit(box);
        }
    }

    std::optional<Box> child(const Box& parent, std::uint32_t type, std::uint64_t skip = 0)
    {
        std::optional<Box> found;
        children(parent.start + skip, parent.end, [&](const Box& box) {
            if (!found && box.type == type) found = box;
        });
        return found;
    }

    Box need(const Box& parent, std::uint32_t type)
    {
        const auto found = child(parent, type);
        require(found.has_value());
        return *found;
    }

    Reader& reader() { return m_reader; }

private:
    Reader& m_reader;
    std::uint64_t m_visited = 0;
};

// A table of a full box: its entry count at `countAt` (from the payload), entries of `entrySize`
// bytes right after it, all inside the box.
struct Table {
    std::uint64_t first = 0;
    std::uint64_t count = 0;
};

Table table(Reader& r, const Box& box, std::uint64_t countAt, std::uint64_t entrySize)
{
    require(box.size() >= countAt + 4);
    const std::uint64_t count = r.uintBE(box.start + countAt, 4);
    const std::uint64_t first = box.start + countAt + 4;
    require(count <= (box.end - first) / entrySize);
    return {first, count};
}

// Ticks of a timescale in nanoseconds, for times below a year.
std::int64_t nanoseconds(std::uint64_t ticks, std::uint64_t timescale)
{
    require(timescale > 0 && ticks / timescale <= limits::kMaxTextSeconds);
    return static_cast<std::int64_t>(ticks / timescale * 1'000'000'000 +
                                     ticks % timescale * 1'000'000'000 / timescale);
}

// The QuickTime (Macintosh) language codes below 0x400 that name a language.
constexpr std::array<const char*, 41> kMacLanguages{
    "eng", "fra", "deu", "ita", "nld", "swe", "spa", "dan", "por", "nor", "heb",
    "jpn", "ara", "fin", "ell", "isl", "mlt", "tur", "hrv", "zho", "urd", "hin",
    "tha", "kor", "lit", "pol", "hun", "est", "lav", "sme", "fao", "fas", "rus",
    "zho", "nld", "gle", "sqi", "ron", "ces", "slk", "slv"};

std::string languageOf(std::uint64_t code)
{
    if (code < 0x400) return code < kMacLanguages.size() ? kMacLanguages[code] : "und";
    const char letters[3] = {char(((code >> 10) & 31) + 0x60), char(((code >> 5) & 31) + 0x60),
                             char((code & 31) + 0x60)};
    return languageFromIso639(std::string_view(letters, 3));
}

struct Sample {
    std::uint64_t time = 0; // media ticks
    std::uint64_t duration = 0;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

// Every sample's time, size and place from the sample table, up to kMaxTextSamples; `cut` gets the
// number of samples past that.
std::vector<Sample> samplesOf(Boxes& boxes, const Box& stbl, std::uint64_t& cut)
{
    Reader& r = boxes.reader();
    std::vector<Sample> samples;

    // Sizes: stsz (one size for all, or one each) or stz2 (4, 8 or 16 bits each).
    if (const auto stsz = boxes.child(stbl, fourcc("stsz"))) {
        require(stsz->size() >= 12);
        const std::uint64_t fixed = r.uintBE(stsz->start + 4, 4);
        const std::uint64_t count = r.uintBE(stsz->start + 8, 4);
        if (fixed == 0) require(count <= (stsz->end - stsz->start - 12) / 4);
        samples.resize(std::min(count, limits::kMaxTextSamples));
        cut = count - samples.size();
        for (std::uint64_t i = 0; i < samples.size(); ++i)
            samples[i].size = fixed != 0 ? fixed : r.uintBE(stsz->start + 12 + 4 * i, 4);
    } else {
        const Box stz2 = boxes.need(stbl, fourcc("stz2"));
        require(stz2.size() >= 12);
        const std::uint64_t bits = r.uintBE(stz2.start + 7, 1);
        require(bits == 4 || bits == 8 || bits == 16);
        const std::uint64_t count = r.uintBE(stz2.start + 8, 4);
        require(count <= (stz2.size() - 12) * 8 / bits);
        samples.resize(std::min(count, limits::kMaxTextSamples));
        cut = count - samples.size();
        for (std::uint64_t i = 0; i < samples.size(); ++i) {
            const std::uint64_t at = stz2.start + 12 + i * bits / 8;
            samples[i].size =
                bits == 4 ? (r.uintBE(at, 1) >> (i % 2 ? 0 : 4)) & 15 : r.uintBE(at, bits / 8);
        }
    }

    // Times: runs of equal durations. Samples beyond the table have no time and are left out.
    const Box stts = boxes.need(stbl, fourcc("stts"));
    const Table runs = table(r, stts, 4, 8);
    std::uint64_t timed = 0, time = 0;
    for (std::uint64_t e = 0; e < runs.count && timed < samples.size(); ++e) {
        const std::uint64_t count = r.uintBE(runs.first + 8 * e, 4);
        const std::uint64_t delta = r.uintBE(runs.first + 8 * e + 4, 4);
        for (std::uint64_t k = 0; k < count && timed < samples.size(); ++k, ++timed) {
            samples[timed] = {time, delta, 0, samples[timed].size};
            time += delta; // at most 2^32 ticks each, kMaxTextSamples of them: no overflow
        }
    }
    cut += samples.size() - timed;
    samples.resize(timed);

    // Places: chunk offsets (stco or co64), and runs of chunks with as many samples each (stsc).
    std::vector<std::uint64_t> chunks;
    const auto stco = boxes.child(stbl, fourcc("stco"));
    const Box offsets = stco ? *stco : boxes.need(stbl, fourcc("co64"));
    const std::uint64_t width = stco ? 4 : 8;
    const Table chunkTable = table(r, offsets, 4, width);
    chunks.resize(std::min<std::uint64_t>(chunkTable.count, samples.size()));
    for (std::uint64_t c = 0; c < chunks.size(); ++c)
        chunks[c] = r.uintBE(chunkTable.first + width * c, width);

    const Table stsc = table(r, boxes.need(stbl, fourcc("stsc")), 4, 12);
    std::uint64_t placed = 0, previous = 0;
    for (std::uint64_t e = 0; e < stsc.count && placed < samples.size(); ++e) {
        const std::uint64_t firstChunk = r.uintBE(stsc.first + 12 * e, 4);
        const std::uint64_t perChunk = r.uintBE(stsc.first + 12 * e + 4, 4);
        require(firstChunk > previous);
        previous = firstChunk;
        const std::uint64_t last =
            e + 1 < stsc.count ? r.uintBE(stsc.first + 12 * (e + 1), 4) - 1 : chunks.size();
        for (std::uint64_t c = firstChunk - 1;
             c < std::min<std::uint64_t>(last, chunks.size()) && placed < samples.size(); ++c) {
            std::uint64_t offset = chunks[c];
            for (std::uint64_t k = 0; k < perChunk && placed < samples.size(); ++k, ++placed) {
                samples[placed].offset = offset;
                require(offset <= r.size() && samples[placed].size <= r.size() - offset);
                offset += samples[placed].size;
            }
        }
    }
    cut += samples.size() - placed;
    samples.resize(placed);
    return samples;
}

// Where the edit list puts the media: leading empty edits delay it (movie ticks), and the first
// edit with media starts at that media time.
struct Edit {
    std::int64_t delayNs = 0;
    std::uint64_t mediaStart = 0;
};

Edit editOf(Boxes& boxes, const Box& trak, std::uint64_t movieTimescale)
{
    Edit edit;
    const auto edts = boxes.child(trak, fourcc("edts"));
    const auto elst = edts ? boxes.child(*edts, fourcc("elst")) : std::nullopt;
    if (!elst) return edit;
    Reader& r = boxes.reader();
    require(elst->size() >= 4);
    const bool wide = r.uintBE(elst->start, 1) == 1;
    const std::uint64_t field = wide ? 8 : 4;
    const Table entries = table(r, *elst, 4, 2 * field + 4);
    std::uint64_t delay = 0;
    for (std::uint64_t e = 0; e < entries.count; ++e) {
        const std::uint64_t at = entries.first + e * (2 * field + 4);
        const std::uint64_t duration = r.uintBE(at, field);
        const std::uint64_t mediaTime = r.uintBE(at + field, field);
        const bool empty = mediaTime == (wide ? ~std::uint64_t(0) : 0xFFFF'FFFFu);
        if (!empty) {
            require(!wide || mediaTime < (std::uint64_t(1) << 63)); // a negative time
            edit.mediaStart = mediaTime;
            break;
        }
        require(duration <= ~std::uint64_t(0) - delay);
        delay += duration;
    }
    if (delay > 0) edit.delayNs = nanoseconds(delay, movieTimescale);
    return edit;
}

// How a run of a tx3g sample's characters looks: face flags (bold 1, italic 2, underline 4) and
// the text colour as 0xRRGGBB, or kDefaultColour.
struct Look {
    std::uint8_t face = 0;
    std::uint32_t colour = kDefaultColour;
    static constexpr std::uint32_t kDefaultColour = 0xFF00'0000; // no RGB value has these bits
    bool operator==(const Look&) const = default;
};

// The sample's style records applied in order to its `chars` characters, or nothing when it has
// no styl box or a damaged one. Records out of order or overlapping just restyle their range;
// ranges are clipped to the text. Colours equal to the track's default are left as the default.
std::optional<std::vector<Look>> looksOf(Reader& r, const Sample& sample, std::uint64_t textEnd,
                                         std::size_t chars, std::uint32_t defaultColour)
{
    const std::uint64_t end = sample.offset + sample.size;
    if (end - textEnd < 8 || end - textEnd > limits::kMaxSubtitleEventBytes) return std::nullopt;
    try {
        // The sample's boxes have their own budget, like a wvtt sample's.
        Boxes boxes(r);
        std::optional<Box> styl;
        boxes.children(textEnd, end, [&](const Box& box) {
            if (!styl && box.type == fourcc("styl")) styl = box;
        });
        if (!styl) return std::nullopt;
        require(styl->size() >= 2);
        const std::uint64_t count = r.uintBE(styl->start, 2);
        require(count <= (styl->size() - 2) / 12);
        if (count == 0) return std::nullopt;
        const auto records = r.bytes(styl->start + 2, count * 12);
        // Later records win where they overlap, so they are applied last first and each character
        // is set once: `unset[c]` leads to the first character from c on that no record has set
        // yet, which keeps thousands of records over a long line linear.
        std::vector<Look> looks(chars);
        std::vector<std::size_t> unset(chars + 1);
        for (std::size_t c = 0; c <= chars; ++c)
            unset[c] = c;
        const auto nextUnset = [&](std::size_t c) {
            std::size_t root = c;
            while (unset[root] != root)
                root = unset[root];
            while (unset[c] != root)
                c = std::exchange(unset[c], root);
            return root;
        };
        bool styled = false;
        for (std::size_t at = records.size(); at >= 12;) {
            at -= 12;
            const auto field = [&](std::size_t i, std::size_t width) {
                std::uint32_t v = 0;
                for (std::size_t k = 0; k < width; ++k)
                    v = v << 8 | records[at + i + k];
                return v;
            };
            const std::size_t first = std::min<std::size_t>(field(0, 2), chars);
            const std::size_t last = std::min<std::size_t>(field(2, 2), chars);
            const std::uint32_t rgb = field(8, 4) >> 8;
            const Look look{std::uint8_t(field(6, 1) & 7),
                            rgb == (defaultColour >> 8) ? Look::kDefaultColour : rgb};
            for (std::size_t c = nextUnset(first); c < last; c = nextUnset(c)) {
                looks[c] = look;
                unset[c] = c + 1;
                styled = styled || look != Look();
            }
        }
        if (!styled) return std::nullopt;
        return looks;
    } catch (const Failure& failure) {
        if (failure.code() == kCancelled || failure.code() == kInputOutput) throw;
        return std::nullopt; // the plain text stands
    }
}

// The text with SubRip markup (<b>, <i>, <u>, <font color>) around its styled runs, the way the
// SubRip tracks of other files carry it; the text's own '&' and '<' escaped. Tags close in the
// reverse order they opened, so overlapping looks still nest.
std::string withMarkup(const std::string& text, const std::vector<Look>& looks)
{
    std::string out;
    std::vector<int> open; // 0 b, 1 i, 2 u, 3 font
    Look current;
    const auto wanted = [](const Look& look, int tag) {
        return tag == 3 ? look.colour != Look::kDefaultColour : (look.face >> tag & 1) != 0;
    };
    const auto change = [&](const Look& next) {
        // Close back to the first open tag the next run does not keep.
        std::size_t keep = 0;
        while (keep < open.size() && wanted(next, open[keep]) &&
               (open[keep] != 3 || next.colour == current.colour))
            ++keep;
        for (std::size_t k = open.size(); k > keep; --k)
            out += open[k - 1] == 3 ? "</font>" : std::string("</") + "biu"[open[k - 1]] + '>';
        open.resize(keep);
        for (int tag = 0; tag < 4; ++tag) {
            if (!wanted(next, tag) || std::find(open.begin(), open.end(), tag) != open.end())
                continue;
            open.push_back(tag);
            if (tag < 3) {
                out += std::string("<") + "biu"[tag] + '>';
            } else {
                char colour[8];
                std::snprintf(colour, sizeof colour, "#%06X", unsigned(next.colour));
                out += std::string("<font color=\"") + colour + "\">";
            }
        }
        current = next;
    };
    std::size_t c = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool starts = (std::uint8_t(text[i]) & 0xC0) != 0x80; // a character's first byte
        if (starts) {
            const Look next = c < looks.size() ? looks[c] : Look();
            if (!(next == current)) change(next);
            ++c;
        }
        if (text[i] == '&') {
            out += "&amp;";
        } else if (text[i] == '<') {
            out += "&lt;";
        } else {
            out += text[i];
        }
    }
    change(Look());
    return out;
}

// A tx3g sample's text: a 16-bit length, the text, then boxes; the styl box's records become
// markup. Empty for a gap.
std::optional<std::string> tx3gText(Reader& r, const Sample& sample, SubtitleTrack& track,
                                    std::uint32_t defaultColour)
{
    if (sample.size < 2) return std::string();
    const std::uint64_t length = r.uintBE(sample.offset, 2);
    require(length <= sample.size - 2);
    if (length == 0) return std::string();
    if (length > limits::kMaxSubtitleEventBytes) {
        ++track.cutEvents;
        return std::nullopt;
    }
    std::string text = timedText(r.bytes(sample.offset + 2, length));
    // Style records count characters, not bytes.
    const auto chars = std::size_t(std::count_if(
        text.begin(), text.end(), [](char b) { return (std::uint8_t(b) & 0xC0) != 0x80; }));
    const auto looks = looksOf(r, sample, sample.offset + 2 + length, chars, defaultColour);
    if (!looks) return text;
    std::string marked = withMarkup(text, *looks);
    // Markup on every other character could outgrow an event; the plain text stands then.
    return marked.size() <= limits::kMaxSubtitleEventBytes ? marked : text;
}

// The cues of a wvtt sample: the payload of each vttc box; a vtte box (no cue) gives none. The
// sample's boxes have their own budget (a sample is at most an event long), so that a long track
// does not use up the movie's.
std::vector<std::string> webVttCues(Reader& r, const Sample& sample, SubtitleTrack& track)
{
    std::vector<std::string> cues;
    if (sample.size > limits::kMaxSubtitleEventBytes) {
        ++track.cutEvents;
        return cues;
    }
    Boxes boxes(r);
    boxes.children(sample.offset, sample.offset + sample.size, [&](const Box& box) {
        if (box.type != fourcc("vttc")) return;
        const auto payload = boxes.child(box, fourcc("payl"));
        if (payload && payload->size() > 0)
            cues.push_back(timedText(r.bytes(payload->start, payload->size())));
    });
    return cues;
}

void appendUtf8(std::string& out, std::uint32_t c)
{
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | c >> 6);
        out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | c >> 12);
        out += char(0x80 | (c >> 6 & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | c >> 18);
        out += char(0x80 | (c >> 12 & 0x3F));
        out += char(0x80 | (c >> 6 & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

// One text track, or nothing when the trak is no text track of ours.
std::optional<SubtitleTrack> textTrack(Boxes& boxes, const Box& trak, std::uint64_t movieTimescale)
{
    Reader& r = boxes.reader();
    const Box mdia = boxes.need(trak, fourcc("mdia"));
    const Box hdlr = boxes.need(mdia, fourcc("hdlr"));
    require(hdlr.size() >= 12);
    const auto handler = static_cast<std::uint32_t>(r.uintBE(hdlr.start + 8, 4));
    if (handler != fourcc("sbtl") && handler != fourcc("text") && handler != fourcc("subt"))
        return std::nullopt;

    const Box mdhd = boxes.need(mdia, fourcc("mdhd"));
    require(mdhd.size() >= 4);
    const bool wide = r.uintBE(mdhd.start, 1) == 1;
    require(mdhd.size() >= (wide ? 34u : 22u));
    const std::uint64_t timescale = r.uintBE(mdhd.start + (wide ? 20 : 12), 4);
    require(timescale > 0);

    const Box stbl = boxes.need(boxes.need(mdia, fourcc("minf")), fourcc("stbl"));
    const Box stsd = boxes.need(stbl, fourcc("stsd"));
    require(stsd.size() >= 8 && r.uintBE(stsd.start + 4, 4) >= 1);
    const Box entry = boxes.at(stsd.start + 8, stsd.end);
    const bool webVtt = entry.type == fourcc("wvtt");
    if (entry.type != fourcc("tx3g") && !webVtt) return std::nullopt;

    SubtitleTrack track;
    track.codecId = webVtt ? "S_TEXT/WEBVTT" : "S_TEXT/UTF8";
    track.language = languageOf(r.uintBE(mdhd.start + (wide ? 32 : 20), 2));
    const Box tkhd = boxes.need(trak, fourcc("tkhd"));
    require(tkhd.size() >= 4);
    track.isDefault = (r.uintBE(tkhd.start + 1, 3) & 1) != 0; // enabled
    // After the sample entry's 8 bytes, tx3g's display flags: "all samples are forced".
    if (!webVtt && entry.size() >= 12) track.forced = (r.uintBE(entry.start + 8, 4) >> 31) != 0;
    // Then justification, background colour, text box and the default style record, whose last
    // field is the text colour (RGBA) that styled runs are compared against.
    const std::uint32_t defaultColour =
        !webVtt && entry.size() >= 38 ? std::uint32_t(r.uintBE(entry.start + 34, 4)) : 0xFFFFFFFF;
    if (webVtt) {
        // The configuration box holds the file's header text ("WEBVTT" and any style blocks).
        const auto config = boxes.child(entry, fourcc("vttC"), 8);
        if (config && config->size() <= limits::kMaxSubtitleEventBytes) {
            const auto header = r.bytes(config->start, config->size());
            track.codecPrivate.assign(header.begin(), header.end());
        }
    }
    if (const auto udta = boxes.child(trak, fourcc("udta")))
        if (const auto name = boxes.child(*udta, fourcc("name")))
            track.name =
                cutUtf8(validUtf8(r.text(name->start,
                                         std::min<std::uint64_t>(name->size(), limits::kMaxName),
                                         limits::kMaxName)),
                        limits::kMaxTitle);

    const Edit edit = editOf(boxes, trak, movieTimescale);
    const std::int64_t skipNs = nanoseconds(edit.mediaStart, timescale);
    std::uint64_t cut = 0;
    const auto samples = samplesOf(boxes, stbl, cut);
    track.cutEvents = cut;
    for (const Sample& sample : samples) {
        r.check();
        // Times on the movie's clock: what comes before the edit's media start is not shown.
        const std::int64_t end =
            nanoseconds(sample.time + sample.duration, timescale) - skipNs + edit.delayNs;
        std::int64_t start = nanoseconds(sample.time, timescale) - skipNs + edit.delayNs;
        if (sample.duration > 0 && end <= edit.delayNs) continue;
        start = std::max(start, edit.delayNs);
        std::vector<std::string> texts;
        if (webVtt) {
            texts = webVttCues(r, sample, track);
        } else if (auto text = tx3gText(r, sample, track, defaultColour); text && !text->empty()) {
            texts.push_back(std::move(*text));
        }
        for (auto& text : texts) {
            if (text.empty()) continue;
            if (track.events.size() >= limits::kMaxSubtitleEvents ||
                track.textBytes + text.size() > limits::kMaxSubtitleTextBytes) {
                ++track.cutEvents;
                continue;
            }
            track.textBytes += text.size();
            track.events.push_back({start, end - start, std::move(text), sample.offset});
        }
    }
    if (track.events.empty() && track.cutEvents == 0) return std::nullopt;
    return track;
}

} // namespace

std::vector<SubtitleTrack> readIsoTextTracks(Reader& reader)
{
    Boxes boxes(reader);
    // The first box must be one an ISO BMFF or QuickTime file starts with.
    require(reader.size() >= 8, kUnsupported);
    const auto first = static_cast<std::uint32_t>(reader.uintBE(4, 4));
    const std::uint32_t heads[] = {fourcc("ftyp"), fourcc("moov"), fourcc("mdat"),
                                   fourcc("free"), fourcc("skip"), fourcc("wide")};
    require(std::find(std::begin(heads), std::end(heads), first) != std::end(heads), kUnsupported);
    std::optional<Box> moov;
    boxes.children(0, reader.size(), [&](const Box& box) {
        if (!moov && box.type == fourcc("moov")) moov = box;
    });
    require(moov.has_value(), kUnsupported);

    std::uint64_t movieTimescale = 0;
    if (const auto mvhd = boxes.child(*moov, fourcc("mvhd")); mvhd && mvhd->size() >= 4) {
        const bool wide = reader.uintBE(mvhd->start, 1) == 1;
        if (mvhd->size() >= (wide ? 24u : 16u))
            movieTimescale = reader.uintBE(mvhd->start + (wide ? 20 : 12), 4);
    }
    std::vector<SubtitleTrack> tracks;
    boxes.children(moov->start, moov->end, [&](const Box& box) {
        if (box.type != fourcc("trak") || tracks.size() >= limits::kMaxSubtitleTracks) return;
        try {
            if (auto track = textTrack(boxes, box, movieTimescale))
                tracks.push_back(std::move(*track));
        } catch (const Failure& failure) {
            // A damaged track is left out; the file and its other tracks are not.
            if (failure.code() == kCancelled || failure.code() == kInputOutput) throw;
        }
    });
    return tracks;
}

std::string timedText(const std::vector<std::uint8_t>& bytes)
{
    std::string text;
    const bool big = bytes.size() >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF;
    const bool little = bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE;
    if (big || little) {
        const auto unit = [&](std::size_t i) {
            return big ? std::uint32_t(bytes[i]) << 8 | bytes[i + 1]
                       : std::uint32_t(bytes[i + 1]) << 8 | bytes[i];
        };
        for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
            std::uint32_t c = unit(i);
            if (c >= 0xD800 && c <= 0xDBFF && i + 3 < bytes.size() && unit(i + 2) >= 0xDC00 &&
                unit(i + 2) <= 0xDFFF) {
                c = 0x10000 + ((c - 0xD800) << 10) + (unit(i + 2) - 0xDC00);
                i += 2;
            } else if (c >= 0xD800 && c <= 0xDFFF) {
                c = 0xFFFD; // a lone surrogate
            }
            if (c == 0) break;
            appendUtf8(text, c);
        }
        return text;
    }
    text = validUtf8(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    if (const auto zero = text.find('\0'); zero != std::string::npos) text.resize(zero);
    return text;
}

} // namespace qv
