// Text subtitle tracks and attachments through the flat interface: of hand-built Matroska files,
// what is kept, the events with their times and texts, the limits, and damage that must not fail
// the file; of files muxed by mkvmerge, the same events through the fragmented layout as through
// the full index.
#include "engine/engine_limits.h"
#include "engine/language.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>
#include <tuple>

using namespace qv_test;

namespace {

// A SimpleBlock (no lacing unless flags say so), or with a duration a BlockGroup.
Bytes blockOf(std::uint8_t track, std::int16_t relative, const std::string& text,
              std::uint8_t flags = 0x80, std::uint64_t duration = 0)
{
    const Bytes body = cat({{static_cast<std::uint8_t>(0x80 | track)},
                            be(static_cast<std::uint16_t>(relative), 2),
                            {duration ? std::uint8_t(0) : flags},
                            Bytes(text.begin(), text.end())});
    return duration ? el(0xA0, cat({el(0xA1, body), uintEl(0x9B, duration, 2)})) : el(0xA3, body);
}

Bytes subtitleTrack(std::uint8_t number, const std::string& codec, const Bytes& extra = {})
{
    return el(0xAE,
              cat({uintEl(0xD7, number, 1), uintEl(0x83, 0x11, 1), textEl(0x86, codec), extra}));
}

const std::string kHeader = "[Script Info]\nScriptType: v4.00+\n\n[Events]\nFormat: Layer, Start, "
                            "End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n";

// A handle on its own copy of the bytes, which must open.
struct Opened {
    Bytes bytes;
    QVMedia* media = nullptr;
    ~Opened() { qv_media_close(media); }
};

std::unique_ptr<Opened> open(const Bytes& bytes)
{
    auto opened = std::make_unique<Opened>(Opened{bytes});
    std::uint32_t code = 0;
    opened->media = openBytes(opened->bytes, code);
    EXPECT_EQ(code, 0u);
    return opened;
}

std::string textOf(const QVMediaSubtitleEvent& event)
{
    return std::string(event.text, event.text_size);
}

// Every event of every track, sorted: (start, duration, text).
using Events = std::vector<std::vector<std::tuple<std::int64_t, std::int64_t, std::string>>>;

Events eventsOf(QVMedia* media)
{
    Events all(qv_media_subtitle_tracks(media));
    for (std::uint32_t t = 0; t < all.size(); ++t) {
        QVMediaSubtitleEvent e{};
        for (std::uint64_t i = 0; qv_media_subtitle_event(media, t, i, &e) == 0; ++i)
            all[t].emplace_back(e.start, e.duration, textOf(e));
        std::sort(all[t].begin(), all[t].end());
    }
    return all;
}

using EventList = std::vector<std::tuple<std::int64_t, std::int64_t, std::string>>;

// The tracks of a text-track handle as (codec, language, name, default, events), its format and
// attachments (name and bytes), or the code.
struct TextTracks {
    std::uint32_t code = 0;
    std::vector<std::tuple<std::string, std::string, std::string, bool, EventList>> tracks;
    std::uint32_t format = 0;
    std::vector<std::pair<std::string, std::string>> attachments;
};

TextTracks tracksOf(QVMedia* media)
{
    TextTracks result;
    for (std::uint32_t t = 0; t < qv_media_subtitle_tracks(media); ++t) {
        QVMediaSubtitleTrack track{};
        EXPECT_EQ(qv_media_subtitle_track(media, t, &track), 0);
        EXPECT_EQ(track.complete, 1u);
        EventList events;
        QVMediaSubtitleEvent e{};
        for (std::uint64_t i = 0; qv_media_subtitle_event(media, t, i, &e) == 0; ++i)
            events.emplace_back(e.start / 1'000'000, e.duration / 1'000'000, textOf(e));
        result.tracks.emplace_back(track.codec_id, track.language, track.name,
                                   track.is_default != 0, events);
    }
    result.format = qv_media_format(media);
    for (std::uint32_t a = 0; a < qv_media_attachments(media); ++a) {
        QVMediaAttachment attachment{};
        EXPECT_EQ(qv_media_attachment(media, a, &attachment), 0);
        std::string data(attachment.size, '\0');
        EXPECT_EQ(qv_media_attachment_read(
                      media, a, 0, reinterpret_cast<std::uint8_t*>(data.data()), data.size()),
                  std::int64_t(data.size()));
        result.attachments.emplace_back(attachment.name, data);
    }
    return result;
}

// The same of a text-track handle on the bytes, swept; it plays nothing.
TextTracks textTracksOf(const Bytes& bytes)
{
    swept(bytes, [&](std::uint64_t failAt) {
        std::uint32_t code = 99;
        qv_media_close(
            qv::openTextTracks([&] { return sourceOf(bytes, failAt); }, nullptr, nullptr, &code));
        return code;
    });
    std::uint32_t code = 0;
    QVMedia* media = qv::openTextTracks([&] { return sourceOf(bytes); }, nullptr, nullptr, &code);
    EXPECT_EQ(qv_media_size(media), 0u);
    auto result = tracksOf(media);
    result.code = code;
    qv_media_close(media);
    return result;
}

} // namespace

TEST(Subtitles, TracksEventsAndAttachments)
{
    const auto tracks = cat({
        aacTrack(1),
        subtitleTrack(2, "S_TEXT/UTF8",
                      cat({textEl(0x22B59C, "chi"), textEl(0x536E, "Chinese"), uintEl(0x55AA, 1, 1),
                           uintEl(0x88, 0, 1)})),
        subtitleTrack(3, "S_TEXT/ASS", el(0x63A2, Bytes(kHeader.begin(), kHeader.end()))),
        subtitleTrack(4, "S_TEXT/UTF8", el(0x6D80, {})), // compressed: left out
        subtitleTrack(5, "S_HDMV/PGS"),                  // pictures: left out
    });
    const auto clusters = cat({
        cluster(0, cat({simpleBlock(0, true, Bytes(9, 1)), blockOf(2, 1000, "<i>first</i>"),
                        blockOf(3, 500, "0,0,Default,,0,0,0,,{\\pos(10,10)}ass", 0, 1500),
                        blockOf(2, 2500, std::string("second\0\0", 8)),
                        blockOf(2, 2600, "laced", 0x82), blockOf(4, 100, "dropped")})),
        // Out of order across clusters: events come back sorted.
        cluster(4000, cat({blockOf(2, 0, "last"), el(0xA3, {0x82, 0x00})})),
    });
    const auto attachments = el(
        0x1941A469,
        el(0x61A7, cat({textEl(0x466E, "Test.ttf"), textEl(0x4660, "application/x-truetype-font"),
                        el(0x465C, text("FONTDATA"))})));
    const auto file = open(matroskaFile(tracks, clusters, attachments));
    QVMedia* media = file->media;
    ASSERT_NE(media, nullptr);
    EXPECT_EQ(qv_media_audio_tracks(media), 1u);
    ASSERT_EQ(qv_media_subtitle_tracks(media), 2u);

    // In milliseconds, in order as given; without BlockDuration an event lasts until the next one.
    const auto found = tracksOf(media);
    EXPECT_EQ(
        found.tracks[0],
        std::make_tuple(
            std::string("S_TEXT/UTF8"), std::string("zho"), std::string("Chinese"), false,
            EventList{{1000, 1500, "<i>first</i>"}, {2500, 1500, "second"}, {4000, 0, "last"}}));
    EXPECT_EQ(found.tracks[1],
              std::make_tuple(std::string("S_TEXT/ASS"), std::string("eng"), std::string(), true,
                              EventList{{500, 1500, "0,0,Default,,0,0,0,,{\\pos(10,10)}ass"}}));
    EXPECT_EQ(found.attachments,
              (std::vector<std::pair<std::string, std::string>>{{"Test.ttf", "FONTDATA"}}));
    QVMediaSubtitleTrack srt{}, ass{};
    ASSERT_EQ(qv_media_subtitle_track(media, 0, &srt), 0);
    ASSERT_EQ(qv_media_subtitle_track(media, 1, &ass), 0);
    EXPECT_EQ(srt.forced, 1u);
    EXPECT_EQ(srt.codec_private, nullptr);
    EXPECT_EQ(srt.cut_events, 2u); // the laced block and the one too short to hold a header
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(ass.codec_private), ass.codec_private_size),
              kHeader);
    QVMediaSubtitleEvent event{};
    EXPECT_EQ(qv_media_subtitle_event(media, 2, 0, &event), -1);
    EXPECT_EQ(qv_media_subtitle_track(media, 2, &srt), -1);
    QVMediaAttachment attachment{};
    ASSERT_EQ(qv_media_attachment(media, 0, &attachment), 0);
    EXPECT_STREQ(attachment.mime_type, "application/x-truetype-font");
    std::uint8_t bytes[16] = {};
    EXPECT_EQ(qv_media_attachment_read(media, 0, 4, bytes, sizeof bytes), 4);
    EXPECT_EQ(std::string(bytes, bytes + 4), "DATA");
    EXPECT_EQ(qv_media_attachment_read(media, 0, 9, bytes, 1), -1);
    EXPECT_EQ(qv_media_attachment_read(media, 1, 0, bytes, 1), -1);
}

TEST(Subtitles, DamageAndLimitsNeverFailTheFile)
{
    const auto longName =
        el(0x1941A469, el(0x61A7, cat({textEl(0x466E, std::string(2000, 'x')), el(0x465C, {1})})));
    const auto file = [](const Bytes& tracks, const Bytes& blocks, const Bytes& extra = {}) {
        return matroskaFile(tracks, cluster(0, blocks), extra);
    };
    const auto tracks = cat({aacTrack(1), subtitleTrack(2, "S_TEXT/UTF8")});
    const auto audio = simpleBlock(0, true, Bytes(9, 1));

    // An attachment list with an absurd name is dropped; the file plays.
    auto opened = open(file(tracks, audio, longName));
    EXPECT_EQ(qv_media_attachments(opened->media), 0u);

    // An oversized event is cut, its neighbours stay.
    opened = open(
        file(tracks, cat({audio, blockOf(2, 0, "a"),
                          blockOf(2, 10, std::string(qv::limits::kMaxSubtitleEventBytes + 1, 'b')),
                          blockOf(2, 20, "c")})));
    QVMediaSubtitleTrack track{};
    ASSERT_EQ(qv_media_subtitle_track(opened->media, 0, &track), 0);
    EXPECT_EQ(track.event_count, 2u);
    EXPECT_EQ(track.cut_events, 1u);

    // A track with more events than the limit keeps the first ones.
    Bytes many = audio;
    for (std::uint64_t i = 0; i < qv::limits::kMaxSubtitleEvents + 5; ++i) {
        const auto block = blockOf(2, static_cast<std::int16_t>(i % 30000), "x");
        many.insert(many.end(), block.begin(), block.end());
    }
    opened = open(file(tracks, many));
    ASSERT_EQ(qv_media_subtitle_track(opened->media, 0, &track), 0);
    EXPECT_EQ(track.event_count, qv::limits::kMaxSubtitleEvents);
    EXPECT_EQ(track.cut_events, 5u);
}

namespace {

bool complete(QVMedia* media)
{
    QVMediaSubtitleTrack track{};
    for (std::uint32_t t = 0; qv_media_subtitle_track(media, t, &track) == 0; ++t)
        if (!track.complete) return false;
    return true;
}

QVMedia* openIn(const std::string& path, const char* layout)
{
    ::setenv("QV_MEDIA_LAYOUT", layout, 1);
    std::uint32_t code = 0;
    QVMedia* media = qv_media_open(path.c_str(), nullptr, nullptr, &code);
    ::unsetenv("QV_MEDIA_LAYOUT");
    EXPECT_EQ(code, 0u) << path;
    return media;
}

} // namespace

// A SubRip line every half second and an ASS line every three seconds over 20 clusters; the Cues
// of one file list every subtitle block, those of the other only the video. The fragmented layout
// and the text-only read find the events the full index does.
TEST(Subtitles, FragmentedLayoutFindsEveryEvent)
{
    for (const char* name : {"subtitles_cued.mkv", "subtitles_uncued.mkv"}) {
        const std::string path = std::string(QV_FIXTURE_DIR) + "/" + name;
        if (!std::filesystem::exists(path)) GTEST_SKIP() << "generated fixtures are missing";
        QVMedia* full = openIn(path, "full");
        const Events expected = eventsOf(full);
        EXPECT_TRUE(complete(full));
        qv_media_close(full);
        ASSERT_EQ(expected.size(), 2u);
        ASSERT_EQ(expected[0].size(), 60u);
        ASSERT_EQ(expected[1].size(), 10u);
        EXPECT_EQ(expected[0][3], std::make_tuple(1'500'000'000ll, 400'000'000ll, "line 3"));
        EXPECT_EQ(std::get<2>(expected[1][9]), "9,0,Sign,,0,0,0,,{\\pos(10,10)}sign 9");

        // Read for the text tracks alone (from the Cues, or a walk of the clusters): the same.
        std::uint32_t code = 0;
        QVMedia* text = qv_media_open_text_tracks(path.c_str(), nullptr, nullptr, &code);
        EXPECT_EQ(eventsOf(text), expected) << name;
        EXPECT_TRUE(complete(text));
        qv_media_close(text);

        // Asked for from the middle: the thread collects the rest, the same events come out.
        QVMedia* media = openIn(path, "fragmented");
        ASSERT_EQ(qv_media_layout(media), std::uint32_t(QV_MEDIA_LAYOUT_FRAGMENTED));
        EXPECT_LT(eventsOf(media)[0].size(), 60u) << name;
        EXPECT_FALSE(complete(media));
        for (std::uint32_t t = 0; t < 2; ++t)
            EXPECT_EQ(qv_media_subtitle_want(media, t, 12'000'000'000), 0);
        EXPECT_EQ(qv_media_subtitle_want(media, 2, 0), -1);
        for (int i = 0; i < 1500 && !complete(media); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_TRUE(complete(media)) << name;
        EXPECT_EQ(eventsOf(media), expected) << name;
        qv_media_close(media);

        // Not asked for: playback's reads of every fragment find the events all the same.
        media = openIn(path, "fragmented");
        std::vector<std::uint8_t> chunk(QV_MEDIA_MAX_READ);
        for (std::uint64_t at = 0; at < qv_media_size(media); at += chunk.size())
            ASSERT_GT(qv_media_read(media, at, chunk.data(), chunk.size()), 0);
        EXPECT_EQ(eventsOf(media), expected) << name;
        qv_media_close(media);
    }
}

namespace {

Bytes box(const char* type, const Bytes& payload)
{
    return cat({be(payload.size() + 8, 4), text(type), payload});
}

// A full box: version, flags, then the payload.
Bytes fullBox(const char* type, std::uint8_t version, std::uint32_t flags, const Bytes& payload)
{
    return box(type, cat({{version}, be(flags, 3), payload}));
}

Bytes tx3gSample(const Bytes& text, const Bytes& styles = {})
{
    return cat({be(text.size(), 2), text, styles});
}

// A styl box of tx3g style records: first and end character, face flags, RGBA colour.
Bytes stylBox(std::initializer_list<std::array<std::uint32_t, 4>> records, std::uint16_t count = 0)
{
    Bytes payload = be(count ? count : records.size(), 2);
    for (const auto& [first, end, face, rgba] : records)
        payload = cat(
            {payload, be(first, 2), be(end, 2), be(1, 2), {std::uint8_t(face), 18}, be(rgba, 4)});
    return box("styl", payload);
}

Bytes cueBox(const std::string& payload)
{
    return box("vttc", box("payl", text(payload)));
}

// A text track: the sample entry, the sample tables (stsz or stz2 and stco or co64 given whole)
// and the track's other boxes.
Bytes textTrak(std::uint32_t enabled, std::uint16_t language, const Bytes& entry,
               const Bytes& tables, const Bytes& extra = {}, const char* handler = "sbtl")
{
    const Bytes stbl = box("stbl", cat({fullBox("stsd", 0, 0, cat({be(1, 4), entry})), tables}));
    const Bytes mdhd =
        fullBox("mdhd", 0, 0, cat({be(0, 8), be(1000, 4), be(0, 4), be(language, 2), be(0, 2)}));
    const Bytes hdlr = fullBox("hdlr", 0, 0, cat({be(0, 4), text(handler), Bytes(13, 0)}));
    return box("trak", cat({fullBox("tkhd", 0, enabled, Bytes(80, 0)), extra,
                            box("mdia", cat({mdhd, hdlr, box("minf", stbl)}))}));
}

// A table box of entries with `fields` values each.
Bytes table(const char* type, std::size_t fields, std::initializer_list<std::uint64_t> values,
            int width = 4)
{
    Bytes entries = be(values.size() / fields, 4);
    for (const auto v : values)
        entries = cat({entries, be(v, width)});
    return fullBox(type, 0, 0, entries);
}

// ffmpeg-like: ftyp, mdat with the samples at known places, then moov with a tx3g track (an empty
// edit first, stsc over three chunks, co64), a video track and a wvtt track (stz2, stco).
struct IsoFile {
    Bytes bytes;
    std::size_t moov = 0;     // where the moov box starts
    std::size_t tx3gTrak = 0; // and the tx3g track's trak box
};

IsoFile isoFile()
{
    // UTF-16 with a byte-order mark: "Grüße 你" and a character beyond the basic plane.
    const Bytes utf16{0xFE, 0xFF, 0, 'G', 0,    'r',  0,    0xFC, 0,    0xDF,
                      0,    'e',  0, ' ', 0x4F, 0x60, 0xD8, 0x3D, 0xDE, 0x00};
    const Bytes s0 = tx3gSample(text("Hello")), s1 = tx3gSample({}), s2 = tx3gSample(utf16),
                s3 = tx3gSample(text("Two\nlines"), box("styl", be(0, 2)));
    // Styled: counted in characters, not bytes; a colour, a range past the end, a record inside
    // another; a damaged box (more records than it holds) keeps the text plain.
    const Bytes s4 = tx3gSample(text("Hé & <you>"),
                                cat({box("hlit", be(0, 4)), stylBox({{0, 2, 2, 0xFFFFFF80}})})),
                s5 = tx3gSample(text("bold red x"), stylBox({{0, 4, 5, 0xFFFFFFFF},
                                                             {5, 8, 0, 0xFF0000FF},
                                                             {8, 99, 2, 0xFFFFFFFF}})),
                s6 = tx3gSample(text("abcd"),
                                stylBox({{0, 4, 1, 0xFFFFFFFF}, {2, 3, 3, 0xFFFFFFFF}})),
                s7 = tx3gSample(text("Plain & <kept>"), stylBox({{0, 5, 2, 0xFFFFFFFF}}, 5));
    const Bytes styled = cat({s4, s5, s6, s7});
    const Bytes v0 = box("vtte", {}), v1 = cat({cueBox("cue one"), cueBox("cue two")});
    const Bytes ftyp = box("ftyp", text("isom\0\0\0\0isom"));
    // Chunks: [s0 s1] filler [s2] filler [s3] filler [v0 v1].
    const Bytes filler(7, 0xEE);
    const Bytes media = cat({s0, s1, filler, s2, filler, s3, styled, filler, v0, v1});
    const std::uint64_t base = ftyp.size() + 8;
    const std::uint64_t c1 = base, c2 = c1 + s0.size() + s1.size() + 7, c3 = c2 + s2.size() + 7,
                        c4 = c3 + s3.size() + styled.size() + 7;

    const Bytes tx3gEntry =
        box("tx3g", cat({Bytes(8, 0), be(0, 4), Bytes(22, 0), be(0xFFFFFFFF, 4), Bytes(4, 0)}));
    const Bytes elst = fullBox("elst", 0, 0,
                               cat({be(2, 4), be(500, 4), be(0xFFFFFFFF, 4), be(0x10000, 4),
                                    be(3000, 4), be(0, 4), be(0x10000, 4)}));
    const Bytes tx3g =
        textTrak(1, qv::packedLanguage("fra"), tx3gEntry,
                 cat({table("stts", 2, {1, 1000, 1, 500, 1, 1000, 5, 500}),
                      table("stsc", 3, {1, 2, 1, 2, 1, 1, 3, 5, 1}),
                      fullBox("stsz", 0, 0,
                              cat({be(0, 4), be(8, 4), be(s0.size(), 4), be(s1.size(), 4),
                                   be(s2.size(), 4), be(s3.size(), 4), be(s4.size(), 4),
                                   be(s5.size(), 4), be(s6.size(), 4), be(s7.size(), 4)})),
                      table("co64", 1, {c1, c2, c3}, 8)}),
                 cat({box("edts", elst), box("udta", box("name", text("Français")))}));
    const Bytes wvttEntry = box("wvtt", cat({Bytes(8, 0), box("vttC", text("WEBVTT"))}));
    const Bytes wvtt = textTrak(
        0, 11 /* QuickTime's Japanese */, wvttEntry,
        cat({table("stts", 2, {1, 1000, 1, 2000}), table("stsc", 3, {1, 2, 1}),
             fullBox("stz2", 0, 0, cat({be(8, 4), be(2, 4), be(v0.size(), 1), be(v1.size(), 1)})),
             table("stco", 1, {c4})}));
    const Bytes video =
        textTrak(1, qv::packedLanguage("und"), box("avc1", Bytes(8, 0)), {}, {}, "vide");
    const Bytes mvhd = fullBox("mvhd", 0, 0, cat({be(0, 8), be(1000, 4), Bytes(84, 0)}));
    IsoFile file;
    const Bytes head = cat({ftyp, be(media.size() + 8, 4), text("mdat"), media});
    file.bytes = cat({head, box("moov", cat({mvhd, tx3g, video, wvtt}))});
    file.moov = head.size();
    file.tx3gTrak = head.size() + 8 + mvhd.size();
    return file;
}

} // namespace

// Timed text of an MP4: the samples found through chunks of several sizes and 64-bit offsets,
// UTF-16 converted, gaps left out, style records as SubRip markup, times moved by the edit list;
// WebVTT cues, two in one sample; other tracks ignored.
TEST(Mp4Text, TracksAndEventsAsWritten)
{
    const auto found = textTracksOf(isoFile().bytes);
    ASSERT_EQ(found.code, 0u);
    EXPECT_EQ(found.format, std::uint32_t(QV_MEDIA_FORMAT_MP4_TEXT));
    ASSERT_EQ(found.tracks.size(), 2u);
    EXPECT_EQ(found.tracks[0], std::make_tuple(std::string("S_TEXT/UTF8"), std::string("fra"),
                                               std::string("Français"), true,
                                               EventList{{500, 1000, "Hello"},
                                                         {2000, 1000, "Grüße 你\xF0\x9F\x98\x80"},
                                                         {3000, 500, "Two\nlines"},
                                                         {3500, 500, "<i>Hé</i> &amp; &lt;you>"},
                                                         {4000, 500,
                                                          "<b><u>bold</u></b> <font "
                                                          "color=\"#FF0000\">red</font><i> x</i>"},
                                                         {4500, 500, "<b>ab<i>c</i>d</b>"},
                                                         {5000, 500, "Plain & <kept>"}}));
    EXPECT_EQ(found.tracks[1],
              std::make_tuple(std::string("S_TEXT/WEBVTT"), std::string("jpn"), std::string(),
                              false, EventList{{1000, 2000, "cue one"}, {1000, 2000, "cue two"}}));
}

// What the file-level checks refuse, and damage inside one track, which loses that track alone.
TEST(Mp4Text, DamageDropsTheTrackOrRefusesTheFile)
{
    const IsoFile good = isoFile();
    // The bytes with `value` written `skip` bytes into the payload of the first box of the type.
    const auto patched = [&](const char* type, std::size_t skip, const Bytes& value) {
        Bytes bytes = good.bytes;
        const auto at = std::search(bytes.begin(), bytes.end(), type, type + 4);
        EXPECT_NE(at, bytes.end()) << type;
        std::copy(value.begin(), value.end(), at + 4 + std::ptrdiff_t(skip));
        return bytes;
    };
    Bytes overrun = good.bytes;
    std::copy_n(be(good.bytes.size(), 4).begin(), 4, overrun.begin() + std::ptrdiff_t(good.moov));
    const std::vector<std::tuple<const char*, Bytes, std::uint32_t, std::size_t>> cases{
        {"an EBML file of another type",
         cat({ebmlHeader("other"), el(0x18538067, el(0x1654AE6B, aacTrack()))}), qv::kUnsupported,
         0},
        {"no moov", Bytes(good.bytes.begin(), good.bytes.begin() + std::ptrdiff_t(good.moov)),
         qv::kUnsupported, 0},
        {"moov past the end", overrun, qv::kMalformed, 0},
        {"chunk offset past the end", patched("co64", 8, be(~0ull >> 1, 8)), 0, 1},
        {"stsc's first chunk 0", patched("stsc", 8, be(0, 4)), 0, 1},
        {"text longer than its sample", patched("mdat", 0, be(200, 2)), 0, 1},
        {"a zero timescale", patched("mdhd", 12, be(0, 4)), 0, 1},
    };
    for (const auto& [what, bytes, code, tracks] : cases) {
        const auto found = textTracksOf(bytes);
        EXPECT_EQ(found.code, code) << what;
        EXPECT_EQ(found.tracks.size(), tracks) << what;
    }
    // The Matroska open still refuses the file.
    std::uint32_t code = 0;
    EXPECT_EQ(openBytes(good.bytes, code), nullptr);
    EXPECT_EQ(code, qv::kUnsupported);
}

// Matroska files the engine does not play (MPEG-4 Part 2 video with a width it would refuse,
// Vorbis): only the text tracks and fonts are read, their events from the Cues when those place
// every text block, else from a walk of the clusters that a cut file ends at the cut.
TEST(MatroskaText, TracksOfFilesTheEngineRefuses)
{
    const auto tracks =
        el(0x1654AE6B,
           cat({el(0xAE, cat({uintEl(0xD7, 1, 1), uintEl(0x83, 1, 1),
                              textEl(0x86, "V_MPEG4/ISO/ASP"), el(0xE0, uintEl(0xB0, 70000))})),
                audioTrack("A_VORBIS", {}, 2),
                subtitleTrack(3, "S_TEXT/UTF8", textEl(0x22B59C, "fre")),
                subtitleTrack(4, "S_TEXT/UTF8", el(0x6D80, {}))}));
    const auto attachments =
        el(0x1941A469, el(0x61A7, cat({textEl(0x466E, "Sub.ttf"), textEl(0x4660, "font/ttf"),
                                       el(0x465C, text("FONT"))})));
    const auto video = simpleBlock(0, true, Bytes(40, 1));
    const auto one = blockOf(3, 500, "one", 0x80, 1000);
    const auto two = blockOf(3, 0, "two");
    const auto first = cluster(0, cat({video, one, blockOf(2, 0, "vorbis")}));
    const auto second = cluster(3000, cat({two, video, blockOf(3, 1000, "three")}));
    const auto file = [&](const Bytes& cues) {
        return cat({ebmlHeader("matroska"),
                    el(0x18538067, cat({tracks, attachments, cues, first, second}))});
    };
    // Cues naming "one" and "three" by their places in the clusters (every field four bytes wide,
    // so the Cues' size does not depend on the values).
    const auto cuePoint = [](std::uint64_t time, std::uint64_t cluster, std::uint64_t relative) {
        return el(0xBB,
                  cat({uintEl(0xB3, time), el(0xB7, cat({uintEl(0xF7, 3), uintEl(0xF1, cluster),
                                                         uintEl(0xF0, relative)}))}));
    };
    const auto cues = [&](std::uint64_t firstAt, std::uint64_t threeAt) {
        const auto secondAt = firstAt + first.size();
        return el(0x1C53BB6B, cat({cuePoint(500, firstAt, 11 + video.size()),
                                   cuePoint(4000, secondAt, threeAt)}));
    };
    const auto firstAt = tracks.size() + attachments.size() + cues(0, 0).size();
    const auto placed = cues(firstAt, 11 + two.size() + video.size());
    const auto misplaced = cues(firstAt, 11 + two.size()); // the video block
    const Bytes walked = file({});
    // A whole walked file is judged by the oracle on a muxed one.
    const std::vector<std::tuple<const char*, Bytes, std::uint32_t, EventList>> cases{
        {"cut inside the last block",
         Bytes(walked.begin(), walked.end() - 3),
         0,
         {{500, 1000, "one"}, {3000, 0, "two"}}},
        {"cued: the blocks the Cues place",
         file(placed),
         0,
         {{500, 1000, "one"}, {4000, 0, "three"}}},
        {"cued at a video block: walked",
         file(misplaced),
         0,
         {{500, 1000, "one"}, {3000, 1000, "two"}, {4000, 0, "three"}}},
        {"cut inside the track list",
         Bytes(walked.begin(), walked.begin() + 80),
         qv::kMalformed,
         {}},
    };
    for (const auto& [what, bytes, code, events] : cases) {
        const auto found = textTracksOf(bytes);
        EXPECT_EQ(found.code, code) << what;
        if (code != 0) continue;
        EXPECT_EQ(found.format, std::uint32_t(QV_MEDIA_FORMAT_MATROSKA)) << what;
        ASSERT_EQ(found.tracks.size(), 1u) << what;
        EXPECT_EQ(found.tracks[0], std::make_tuple(std::string("S_TEXT/UTF8"), std::string("fra"),
                                                   std::string(), true, events))
            << what;
        EXPECT_EQ(found.attachments,
                  (std::vector<std::pair<std::string, std::string>>{{"Sub.ttf", "FONT"}}))
            << what;
    }
    std::uint32_t code = 0;
    EXPECT_EQ(openBytes(walked, code), nullptr);
    EXPECT_EQ(code, qv::kMalformed);
}
