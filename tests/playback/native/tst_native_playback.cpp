// The native backend against real GStreamer and real files: what it reports when a file opens,
// how it plays, pauses, seeks, switches tracks and ends, and which code it fails with.
#include "ContainerSubtitles.h"
#include "InterfaceLanguage.h"
#include "MediaSourceElement.h"
#include "NativePlayback.h"
#include "NativeTestSupport.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <limits>

using namespace quorvane;
using namespace quorvane::testing;
using Ready = PlaybackEvents::Ready;
using Failed = PlaybackEvents::Failed;
using SeekCompleted = PlaybackEvents::SeekCompleted;
using Ended = PlaybackEvents::Ended;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

class NativePlaybackTest : public ::testing::Test {
protected:
    void SetUp() override { backend.setOnEvent(recorder.handler()); }

    // Opens `name` afresh and waits until it settles; the media information of its Ready.
    PlaybackMediaInfo openReady(const QString& name)
    {
        recorder.events.clear();
        backend.open(name.contains('/') ? QUrl::fromLocalFile(name) : fixture(name));
        EXPECT_TRUE(waitUntil([&] { return recorder.settled(); })) << qPrintable(name);
        const auto ready = recorder.all<Ready>();
        EXPECT_EQ(ready.size(), 1) << qPrintable(name) << " failed";
        return ready.isEmpty() ? PlaybackMediaInfo{} : ready[0].info;
    }

    bool seekCompletes(double to, int ms = 3000)
    {
        const QUuid id = QUuid::createUuid();
        backend.seek(to, id);
        return waitUntil(
            [&] {
                const auto done = recorder.all<SeekCompleted>();
                return !done.isEmpty() && done.last().id == id;
            },
            ms);
    }

    EventRecorder recorder;
    NativePlayback backend;
};

} // namespace

TEST_F(NativePlaybackTest, EachContainerOpensWithItsInformationSeeksAndEnds)
{
    const struct {
        const char* name;
        double duration;
        int width, height;
        double fps; // -1: not checked, and neither are seeking and the end
        qsizetype tracks, subtitles;
        bool hdr;
    } cases[] = {
        {"native-h264-aac.mp4", 3.0, 320, 240, 25, 1, 0, false},
        {"native-h264-aac.mkv", 3.0, 320, 240, 25, 1, 0, false}, // remuxed, like FLV and WebM
        {"native-h264-aac.flv", 3.0, 320, 240, 25, 1, 0, false},
        {"native-vp9-opus.webm", 2.0, 320, 240, 25, 1, 0, false},
        {"native-h264-aac.ts", 3.0, 320, 240, -1, 1, 0, false}, // opens once its probe agrees
        {"native-rotated.mp4", 3.0, 240, 320, 25, 1, 0, false}, // the displayed size
        {"native-aac.m4a", 2.0, 0, 0, 0, 1, 0, false},
        {"native-hdr10.mp4", 1.0, 320, 240, 25, 0, 0, true}, // HDR: no seeking and end
        {"native-hdr10.mkv", 1.0, 320, 240, 25, 0, 0, true},
        // Text subtitles are not in the virtual MP4: they come with Ready.
        {"native-subtitles.mkv", 3.0, 320, 240, 25, 1, 2, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const quint64 readsBefore = mediasource::counters().reads;
        const auto info = openReady(c.name);
        EXPECT_NEAR(info.duration, c.duration, 0.05);
        EXPECT_EQ(QSizeF(info.width, info.height), QSizeF(c.width, c.height));
        EXPECT_TRUE(c.fps < 0 || std::abs(info.frameRate - c.fps) < 0.01) << info.frameRate;
        EXPECT_EQ(info.tracks.size(), c.tracks);
        EXPECT_EQ(info.hdr, c.hdr);
        EXPECT_EQ(info.embeddedSubtitles ? info.embeddedSubtitles->tracks.size() : 0, c.subtitles);
        // Remuxed files, and only they, are read through our own source element.
        const bool remuxed = QString(c.name).contains(QRegularExpression("\\.(mkv|flv|webm)$"));
        EXPECT_EQ(mediasource::counters().reads > readsBefore, remuxed);
        if (c.fps < 0 || c.hdr) continue;
        ASSERT_TRUE(seekCompletes(1.52)); // within a frame, between key frames
        EXPECT_NEAR(backend.snapshot().position, 1.52, 0.04);
        // Played from near the end: the end comes once and the position stays there.
        backend.seek(c.duration - 0.4, QUuid::createUuid());
        backend.play(2.0);
        ASSERT_TRUE(waitUntil([&] { return recorder.count<Ended>() + recorder.count<Failed>(); }));
        QTest::qWait(400);
        EXPECT_EQ(recorder.count<Ended>(), 1);
        EXPECT_EQ(recorder.count<Failed>(), 0);
        EXPECT_NEAR(backend.snapshot().position, c.duration, 0.05);
    }
    const auto& subtitles = recorder.all<Ready>()[0].info.embeddedSubtitles->tracks;
    EXPECT_EQ(subtitles[0].events.value(0).text, "<b>Hello</b>");
    EXPECT_TRUE(subtitles[1].forced);
}

TEST_F(NativePlaybackTest, PlaysPausesAndIgnoresBadRates)
{
    openReady("native-h264-aac.mp4");
    EXPECT_EQ(backend.snapshot(), (PlaybackSnapshot{0, 0, 1, 0, 0}));
    EXPECT_EQ(recorder.all<Ready>()[0].info.tracks,
              (QList<PlaybackTrack>{{1, PlaybackTrackKind::Audio, "Track 1"}}));
    for (double bad : {0.2, 25.0, kNaN})
        backend.play(bad);
    QTest::qWait(200);
    EXPECT_EQ(backend.snapshot().rate, 0.0);
    for (double rate : {0.25, 20.0, 1.0}) {
        backend.play(rate);
        ASSERT_TRUE(waitUntil([&] { return backend.snapshot().rate == rate; }, 2000)) << rate;
    }
    ASSERT_TRUE(waitUntil([&] { return backend.snapshot().position > 0.3; }));
    backend.pause();
    QTest::qWait(100);
    const PlaybackSnapshot paused = backend.snapshot();
    QTest::qWait(300);
    EXPECT_EQ(backend.snapshot(), paused);
    EXPECT_EQ(paused.rate, 0.0);
    // No subtitle group: selecting one does nothing.
    backend.selectTrack(PlaybackTrackKind::Subtitle, 1);
    EXPECT_EQ(backend.snapshot().subtitleID, 0);
}

// Qt reads no language or title back from the virtual MP4; the labels come from the engine.
TEST_F(NativePlaybackTest, AudioTracksSwitchAndAreLabelledInTheInterfaceLanguage)
{
    for (const char* name : {"native-two-audio.mp4", "native-two-audio.mkv"}) {
        ASSERT_EQ(openReady(name).tracks.size(), 2) << name;
        ASSERT_TRUE(seekCompletes(1.0)) << name;
        const double position = backend.snapshot().position;
        // Switched while paused: reported at once, the position kept, still paused; the player
        // itself switches once playback resumes, without the old track being heard.
        backend.selectTrack(PlaybackTrackKind::Audio, 2);
        backend.selectTrack(PlaybackTrackKind::Audio, 3); // past the last track: ignored
        QTest::qWait(300);
        EXPECT_EQ(backend.snapshot(), (PlaybackSnapshot{position, 0, 2, 0, 0})) << name;
        auto* player = backend.findChild<QMediaPlayer*>();
        EXPECT_EQ(player->activeAudioTrack(), 0) << name;
        backend.play(1.0);
        EXPECT_TRUE(waitUntil([&] { return player->activeAudioTrack() == 1; })) << name;
        EXPECT_FALSE(backend.isMuted()) << name;
        EXPECT_EQ(backend.snapshot().audioID, 2) << name;
    }
    for (const auto& [language, labels] :
         {std::pair<QString, QStringList>{"en", {"English \u2014 Commentary", "Japanese"}},
          {"zh-Hans", {"\u82f1\u8bed \u2014 Commentary", "\u65e5\u8bed"}}}) {
        InterfaceLanguage interface(language);
        const auto tracks = openReady("native-two-audio-named.mkv").tracks;
        ASSERT_EQ(tracks.size(), 2) << qPrintable(language);
        EXPECT_EQ(QStringList({tracks[0].label, tracks[1].label}), labels);
    }
}

TEST_F(NativePlaybackTest, FilesThatCannotPlayFailWithTheirCodes)
{
    // Not a file at all: refused at once. The container engine's own codes reach the owner, so
    // the router can fall back.
    backend.open(QUrl("https://example.invalid/movie.mp4"));
    EXPECT_EQ(recorder.all<Failed>(), QList<Failed>{{kFileFormatNotRecognized}});
    const std::pair<const char*, qint64> cases[] = {{"native-text.mp4", kFileFormatNotRecognized},
                                                    {"native-vp8.webm", 2},
                                                    {"native-text.mkv", 2},
                                                    {"native-truncated.mkv", 1}};
    for (const auto& [name, code] : cases) {
        recorder.events.clear();
        backend.open(fixture(name));
        EXPECT_TRUE(waitUntil([&] { return recorder.settled(); })) << name;
        EXPECT_EQ(recorder.events, QList<PlaybackEvent>{Failed{code}}) << name;
    }
}

TEST_F(NativePlaybackTest, NothingOfAnEarlierFileReachesTheOwner)
{
    // A second open while the first file loads (directly, or still in the container engine).
    for (const char* first : {"native-h264-aac.mp4", "native-h264-aac.mkv"}) {
        backend.open(fixture(first));
        QTest::qWait(5);
        EXPECT_NEAR(openReady("native-aac.m4a").duration, 2.0, 0.05) << first;
        QTest::qWait(500);
        EXPECT_EQ(recorder.events.size(), 1) << first;
    }
    // After stop(), a pending seek and the playing file stay silent.
    backend.play(1.0);
    backend.seek(1.9, QUuid::createUuid());
    backend.stop();
    QTest::qWait(2000);
    EXPECT_EQ(recorder.events.size(), 1);
    EXPECT_EQ(backend.snapshot(), PlaybackSnapshot{});
}

TEST_F(NativePlaybackTest, AFileCutShortWhilePlayingFailsWithAReadError)
{
    // The remuxed path reads the source for every piece; losing its data must end playback.
    QTemporaryDir dir;
    const QString path = dir.filePath("movie.mkv");
    ASSERT_TRUE(QFile::copy(fixture("native-long.mkv").toLocalFile(), path));
    openReady(path);
    backend.play(1.0);
    ASSERT_TRUE(waitUntil([&] { return backend.snapshot().position > 0.2; }));
    ASSERT_TRUE(QFile::resize(path, 4000));
    backend.seek(8.0, QUuid::createUuid());
    ASSERT_TRUE(waitUntil([&] { return recorder.count<Failed>() + recorder.count<Ended>() > 0; }));
    // A read error, not bytes that were never read.
    EXPECT_EQ(recorder.all<Failed>(), QList<Failed>{{kUnknownMediaError}});
    EXPECT_EQ(recorder.count<Ended>(), 0);
}

TEST_F(NativePlaybackTest, DraggingTheSliderLandsOnTheLastTarget)
{
    // A dozen seeks 30 ms apart while playing, as a dragged slider makes them. Dragged backwards,
    // so that a lost last seek shows: the player would be past the last target.
    for (const char* name : {"native-long.mkv", "native-h264-aac.mkv"}) {
        const double length = openReady(name).duration;
        backend.play(1.0);
        for (int i = 0; i < 11; ++i) {
            backend.seek(length * (0.85 - 0.05 * i), QUuid::createUuid());
            QTest::qWait(30);
        }
        const double target = length * (0.85 - 0.05 * 11);
        ASSERT_TRUE(seekCompletes(target, 5000)) << name;
        const double position = backend.snapshot().position;
        EXPECT_GE(position, target - 0.05) << name;
        EXPECT_LT(position, target + 0.5) << name;
        // Long enough for the earlier seeks' fallbacks to have fired, had they not been superseded.
        const auto completed = recorder.all<SeekCompleted>();
        QTest::qWait(1600);
        EXPECT_EQ(recorder.all<SeekCompleted>(), completed) << name;
        EXPECT_EQ(recorder.count<Failed>(), 0) << name;
        EXPECT_GT(backend.snapshot().position, position + 0.2) << name; // still playing
    }
}
