// Text subtitle tracks and attachments through the flat interface: of hand-built Matroska files,
// what is kept, the events with their times and texts, the limits, and damage that must not fail
// the file; of files muxed by mkvmerge, the same events through the fragmented layout as through
// the full index.
#include "engine/engine_limits.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
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

struct Opened {
    std::unique_ptr<TempFile> file;
    QVMedia* media = nullptr;
    ~Opened() { qv_media_close(media); }
};

std::unique_ptr<Opened> open(const Bytes& bytes)
{
    auto opened = std::make_unique<Opened>();
    opened->file = std::make_unique<TempFile>(bytes);
    std::uint32_t code = 0;
    opened->media = qv_media_open(opened->file->path().c_str(), nullptr, nullptr, &code);
    EXPECT_EQ(code, 0u);
    return opened;
}

std::string textOf(const QVMediaSubtitleEvent& event)
{
    return std::string(event.text, event.text_size);
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
    const Bytes font{'F', 'O', 'N', 'T', 'D', 'A', 'T', 'A'};
    const auto attachments =
        el(0x1941A469,
           el(0x61A7, cat({textEl(0x466E, "Test.ttf"),
                           textEl(0x4660, "application/x-truetype-font"), el(0x465C, font)})));
    const auto file = open(
        cat({ebmlHeader(), el(0x18538067, cat({el(0x1654AE6B, tracks), attachments, clusters}))}));
    QVMedia* media = file->media;
    ASSERT_NE(media, nullptr);
    EXPECT_EQ(qv_media_audio_tracks(media), 1u);
    ASSERT_EQ(qv_media_subtitle_tracks(media), 2u);

    QVMediaSubtitleTrack srt{}, ass{};
    ASSERT_EQ(qv_media_subtitle_track(media, 0, &srt), 0);
    ASSERT_EQ(qv_media_subtitle_track(media, 1, &ass), 0);
    EXPECT_STREQ(srt.language, "zho");
    EXPECT_STREQ(srt.name, "Chinese");
    EXPECT_EQ(srt.forced, 1u);
    EXPECT_EQ(srt.is_default, 0u);
    EXPECT_EQ(srt.codec_private, nullptr);
    EXPECT_EQ(srt.cut_events, 2u); // the laced block and the one too short to hold a header
    EXPECT_STREQ(ass.language, "eng");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(ass.codec_private), ass.codec_private_size),
              kHeader);

    // Times in nanoseconds; without BlockDuration an event lasts until the next one.
    const std::vector<std::tuple<std::uint32_t, std::int64_t, std::int64_t, std::string>> events{
        {0, 1'000'000'000, 1'500'000'000, "<i>first</i>"},
        {0, 2'500'000'000, 1'500'000'000, "second"},
        {0, 4'000'000'000, 0, "last"},
        {1, 500'000'000, 1'500'000'000, "0,0,Default,,0,0,0,,{\\pos(10,10)}ass"},
    };
    std::uint64_t next[2] = {0, 0};
    for (const auto& [track, start, duration, text] : events) {
        QVMediaSubtitleEvent event{};
        ASSERT_EQ(qv_media_subtitle_event(media, track, next[track]++, &event), 0);
        EXPECT_EQ(event.start, start) << text;
        EXPECT_EQ(event.duration, duration) << text;
        EXPECT_EQ(textOf(event), text);
    }
    QVMediaSubtitleEvent event{};
    EXPECT_EQ(qv_media_subtitle_event(media, 0, 3, &event), -1);
    EXPECT_EQ(qv_media_subtitle_event(media, 2, 0, &event), -1);
    EXPECT_EQ(qv_media_subtitle_track(media, 2, &srt), -1);

    ASSERT_EQ(qv_media_attachments(media), 1u);
    QVMediaAttachment attachment{};
    ASSERT_EQ(qv_media_attachment(media, 0, &attachment), 0);
    EXPECT_STREQ(attachment.name, "Test.ttf");
    EXPECT_STREQ(attachment.mime_type, "application/x-truetype-font");
    EXPECT_EQ(attachment.size, font.size());
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
        return cat({ebmlHeader(),
                    el(0x18538067, cat({el(0x1654AE6B, tracks), extra, cluster(0, blocks)}))});
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
// of one file list every subtitle block, those of the other only the video.
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
