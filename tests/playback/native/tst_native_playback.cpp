// The native backend against real GStreamer and real files: what it reports when a file opens,
// how it plays, pauses, seeks and ends, and which code it fails with.
#include "ContainerSubtitles.h"
#include "InterfaceLanguage.h"
#include "MediaSourceElement.h"
#include "NativePlayback.h"
#include "NativeTestSupport.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace quorvane;
using namespace quorvane::testing;
using Ready = PlaybackEvents::Ready;
using Failed = PlaybackEvents::Failed;
using SeekCompleted = PlaybackEvents::SeekCompleted;
using Ended = PlaybackEvents::Ended;

namespace {

class NativePlaybackTest : public ::testing::Test {
protected:
    void SetUp() override { backend.setOnEvent(recorder.handler()); }

    // Opens `name` and waits for Ready, returning its media information.
    PlaybackMediaInfo openReady(const QString& name)
    {
        backend.open(fixture(name));
        EXPECT_TRUE(waitUntil([&] { return recorder.settled(); })) << qPrintable(name);
        const auto ready = recorder.all<Ready>();
        EXPECT_EQ(ready.size(), 1)
            << qPrintable(name) << " failed with "
            << (recorder.count<Failed>() ? recorder.all<Failed>()[0].code : 0);
        return ready.isEmpty() ? PlaybackMediaInfo{} : ready[0].info;
    }

    qint64 failureOf(const QUrl& url)
    {
        backend.open(url);
        EXPECT_TRUE(waitUntil([&] { return recorder.settled(); }));
        EXPECT_EQ(recorder.count<Ready>(), 0);
        const auto failed = recorder.all<Failed>();
        return failed.size() == 1 ? failed[0].code : 0;
    }

    EventRecorder recorder;
    NativePlayback backend;
};

void expectH264Movie(const PlaybackMediaInfo& info)
{
    EXPECT_NEAR(info.duration, 3.0, 0.05);
    EXPECT_EQ(info.width, 320);
    EXPECT_EQ(info.height, 240);
    EXPECT_NEAR(info.frameRate, 25.0, 0.01);
    EXPECT_FALSE(info.hdr);
    EXPECT_EQ(info.tracks, (QList<PlaybackTrack>{{1, PlaybackTrackKind::Audio, "Track 1"}}));
}

} // namespace

TEST_F(NativePlaybackTest, Mp4OpensWithItsInformationAndPlaysPausesAndEnds)
{
    expectH264Movie(openReady("native-h264-aac.mp4"));
    EXPECT_EQ(backend.snapshot(), (PlaybackSnapshot{0, 0, 1, 0, 0}));

    backend.play(1.0);
    ASSERT_TRUE(waitUntil([&] { return backend.snapshot().position > 0.3; }));
    EXPECT_EQ(backend.snapshot().rate, 1.0);

    backend.pause();
    QTest::qWait(100);
    const double paused = backend.snapshot().position;
    QTest::qWait(300);
    EXPECT_EQ(backend.snapshot().position, paused);
    EXPECT_EQ(backend.snapshot().rate, 0.0);

    // The end is reported once, and the position stays at the end.
    backend.seek(2.6, QUuid::createUuid());
    backend.play(2.0);
    ASSERT_TRUE(waitUntil([&] { return recorder.count<Ended>() > 0; }));
    QTest::qWait(400);
    EXPECT_EQ(recorder.count<Ended>(), 1);
    EXPECT_NEAR(backend.snapshot().position, 3.0, 0.05);
    EXPECT_EQ(recorder.count<Failed>(), 0);
}

// Text subtitles of a Matroska file are not in the virtual MP4: they come with Ready, for the
// player to draw.
TEST_F(NativePlaybackTest, EmbeddedTextSubtitlesComeWithReady)
{
    const PlaybackMediaInfo info = openReady("native-subtitles.mkv");
    expectH264Movie(info);
    ASSERT_TRUE(info.embeddedSubtitles);
    const auto& tracks = info.embeddedSubtitles->tracks;
    ASSERT_EQ(tracks.size(), 2);
    EXPECT_EQ(tracks[0].codecId, "S_TEXT/UTF8");
    EXPECT_EQ(tracks[0].events.value(0).text, "<b>Hello</b>");
    EXPECT_EQ(tracks[0].events.value(0).start, 500);
    EXPECT_TRUE(tracks[1].forced);
    EXPECT_EQ(tracks[1].events.value(0).text, "0,0,Default,,0,0,0,,{\\an8}Sign");

    // Files without them carry none.
    backend.stop();
    recorder.events.clear();
    EXPECT_FALSE(openReady("native-h264-aac.mkv").embeddedSubtitles);
}

TEST_F(NativePlaybackTest, TransportStreamOpensOnceItsProbeAgrees)
{
    const auto info = openReady("native-h264-aac.ts");
    EXPECT_EQ(info.width, 320);
    EXPECT_EQ(info.tracks.size(), 1);
}

TEST_F(NativePlaybackTest, RatesOutsideTheRangeAndBadVolumesAreIgnored)
{
    openReady("native-h264-aac.mp4");
    backend.play(0.2);
    backend.play(25);
    backend.play(std::numeric_limits<double>::quiet_NaN());
    QTest::qWait(200);
    EXPECT_EQ(backend.snapshot().rate, 0.0);
    backend.play(0.25);
    ASSERT_TRUE(waitUntil([&] { return backend.snapshot().rate == 0.25; }, 2000));
    backend.play(20);
    ASSERT_TRUE(waitUntil([&] { return backend.snapshot().rate == 20; }, 2000));

    backend.setVolume(3);
    EXPECT_EQ(backend.volume(), 1.0);
    backend.setVolume(-1);
    EXPECT_EQ(backend.volume(), 0.0);
    backend.setVolume(0.5);
    backend.setVolume(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(backend.volume(), 0.5);
}

TEST_F(NativePlaybackTest, SeekLandsWithinAFrameAndOnlyTheLatestCompletes)
{
    openReady("native-h264-aac.mp4");
    const QUuid id = QUuid::createUuid();
    backend.seek(1.52, id);
    ASSERT_TRUE(waitUntil([&] { return recorder.count<SeekCompleted>() > 0; }, 3000));
    EXPECT_EQ(recorder.all<SeekCompleted>(), QList<SeekCompleted>{{id}});
    EXPECT_NEAR(backend.snapshot().position, 1.52, 0.04);

    const QUuid older = QUuid::createUuid();
    const QUuid newer = QUuid::createUuid();
    backend.seek(0.5, older);
    backend.seek(2.0, newer);
    // Long enough for the older seek's fallback to have fired, had it not been superseded.
    QTest::qWait(2000);
    EXPECT_EQ(recorder.all<SeekCompleted>(), (QList<SeekCompleted>{{id}, {newer}}));
    EXPECT_NEAR(backend.snapshot().position, 2.0, 0.04);
}

TEST_F(NativePlaybackTest, AudioOnlyFileOpensSeeksAndSwitchesAreIgnored)
{
    const auto info = openReady("native-aac.m4a");
    EXPECT_NEAR(info.duration, 2.0, 0.05);
    EXPECT_EQ(info.width, 0);
    EXPECT_EQ(info.frameRate, 0);
    const QUuid id = QUuid::createUuid();
    backend.seek(1.0, id);
    ASSERT_TRUE(waitUntil([&] { return recorder.count<SeekCompleted>() > 0; }, 3000));
    EXPECT_EQ(recorder.all<SeekCompleted>()[0].id, id);
    // No subtitle group: selecting one changes nothing.
    backend.selectTrack(PlaybackTrackKind::Subtitle, 1);
    EXPECT_EQ(backend.snapshot().subtitleID, 0);
}

TEST_F(NativePlaybackTest, AudioTracksSwitchAndTheSnapshotFollows)
{
    for (const char* name : {"native-two-audio.mp4", "native-two-audio.mkv"}) {
        recorder.events.clear();
        const auto info = openReady(name);
        ASSERT_EQ(info.tracks.size(), 2) << name;
        EXPECT_EQ(info.tracks[1].id, 2);
        EXPECT_EQ(info.tracks[1].kind, PlaybackTrackKind::Audio);
        EXPECT_TRUE(waitUntil([&] { return backend.snapshot().audioID == 1; }, 2000)) << name;
        backend.selectTrack(PlaybackTrackKind::Audio, 2);
        EXPECT_TRUE(waitUntil([&] { return backend.snapshot().audioID == 2; }, 2000)) << name;
        backend.selectTrack(PlaybackTrackKind::Audio, 3); // past the last track: ignored
        QTest::qWait(50);
        EXPECT_EQ(backend.snapshot().audioID, 2) << name;
    }
}

// Qt reads no language or title back from the virtual MP4; the labels come from the engine.
TEST_F(NativePlaybackTest, ContainerAudioTracksAreLabelledFromTheFileInTheInterfaceLanguage)
{
    const std::pair<QString, QStringList> cases[] = {
        {"en", {"English \u2014 Commentary", "Japanese"}},
        {"zh-Hans", {"\u82f1\u8bed \u2014 Commentary", "\u65e5\u8bed"}},
    };
    for (const auto& [language, labels] : cases) {
        InterfaceLanguage interface(language);
        recorder.events.clear();
        const auto info = openReady("native-two-audio-named.mkv");
        ASSERT_EQ(info.tracks.size(), 2) << qPrintable(language);
        EXPECT_EQ(info.tracks[0].label.toStdString(), labels[0].toStdString());
        EXPECT_EQ(info.tracks[1].label.toStdString(), labels[1].toStdString());
    }
}

TEST_F(NativePlaybackTest, RotatedVideoReportsItsDisplayedSize)
{
    const auto info = openReady("native-rotated.mp4");
    EXPECT_EQ(info.width, 240);
    EXPECT_EQ(info.height, 320);
}

TEST_F(NativePlaybackTest, Hdr10IsReportedFromTheTransferFunction)
{
    EXPECT_TRUE(openReady("native-hdr10.mp4").hdr);
    recorder.events.clear();
    EXPECT_TRUE(openReady("native-hdr10.mkv").hdr);
    recorder.events.clear();
    EXPECT_FALSE(openReady("native-vp9-opus.webm").hdr);
}

TEST_F(NativePlaybackTest, FilesThatCannotPlayFailWithTheirCodes)
{
    // Not a file at all: refused at once.
    backend.open(QUrl("https://example.invalid/movie.mp4"));
    EXPECT_EQ(recorder.all<Failed>(), QList<Failed>{{kFileFormatNotRecognized}});

    recorder.events.clear();
    EXPECT_EQ(failureOf(fixture("native-text.mp4")), kFileFormatNotRecognized);
    // The container engine's own codes reach the owner, so the router can fall back.
    const std::pair<const char*, qint64> cases[] = {
        {"native-vp8.webm", 2}, {"native-text.mkv", 2}, {"native-truncated.mkv", 1}};
    for (const auto& [name, code] : cases) {
        recorder.events.clear();
        EXPECT_EQ(failureOf(fixture(name)), code) << name;
    }
}

TEST_F(NativePlaybackTest, NothingOfAnEarlierFileReachesTheOwner)
{
    // A second open while the first file loads (directly, or still in the container engine):
    // only the second file is ever heard of.
    for (const char* first : {"native-h264-aac.mp4", "native-h264-aac.mkv"}) {
        recorder.events.clear();
        backend.open(fixture(first));
        QTest::qWait(5);
        const auto info = openReady("native-aac.m4a");
        QTest::qWait(500);
        EXPECT_EQ(recorder.events.size(), 1) << first;
        EXPECT_NEAR(info.duration, 2.0, 0.05) << first;
    }

    // After stop(), a pending seek and the playing file stay silent.
    backend.play(1.0);
    backend.seek(1.9, QUuid::createUuid());
    backend.stop();
    QTest::qWait(2000);
    EXPECT_EQ(recorder.events.size(), 1);
    EXPECT_EQ(backend.snapshot(), PlaybackSnapshot{});
}

TEST_F(NativePlaybackTest, AFileCutShortWhilePlayingFailsWithoutHanging)
{
    // The remuxed path reads the source for every piece the player asks for; a source that loses
    // its data under the player must end playback, never hang it.
    QTemporaryDir dir;
    const QString path = dir.filePath("movie.mkv");
    ASSERT_TRUE(QFile::copy(fixture("native-long.mkv").toLocalFile(), path));
    backend.open(QUrl::fromLocalFile(path));
    ASSERT_TRUE(waitUntil([&] { return recorder.count<Ready>() == 1; }));
    backend.play(1.0);
    ASSERT_TRUE(waitUntil([&] { return backend.snapshot().position > 0.2; }));
    ASSERT_TRUE(QFile::resize(path, 4000));
    backend.seek(8.0, QUuid::createUuid());
    ASSERT_TRUE(
        waitUntil([&] { return recorder.count<Failed>() + recorder.count<Ended>() > 0; }, 10000));
    // The failed read reaches GStreamer as a read error, not as bytes that were never read.
    EXPECT_EQ(recorder.all<Failed>(), QList<Failed>{{kUnknownMediaError}});
    EXPECT_EQ(recorder.count<Ended>(), 0);
}

TEST_F(NativePlaybackTest, DraggingTheSliderLandsOnTheLastTarget)
{
    // A dozen seeks 30 ms apart while playing, as a dragged position slider makes them. Dragged
    // backwards, so that a lost last seek shows: the player would be past the last target.
    for (const char* name : {"native-long.mkv", "native-h264-aac.mkv"}) {
        recorder.events.clear();
        const double length = openReady(name).duration;
        backend.play(1.0);
        QUuid last;
        double target = 0;
        for (int i = 0; i < 12; ++i) {
            last = QUuid::createUuid();
            target = length * (0.85 - 0.05 * i);
            backend.seek(target, last);
            QTest::qWait(30);
        }
        ASSERT_TRUE(waitUntil(
            [&] {
                const auto done = recorder.all<SeekCompleted>();
                return !done.isEmpty() && done.last().id == last;
            },
            5000))
            << name;
        const double position = backend.snapshot().position;
        EXPECT_GE(position, target - 0.05) << name;
        EXPECT_LT(position, target + 0.5) << name;
        EXPECT_EQ(recorder.count<Failed>(), 0) << name;
        // Still playing from there.
        EXPECT_TRUE(waitUntil([&] { return backend.snapshot().position > position + 0.2; }))
            << name;
    }
}

TEST_F(NativePlaybackTest, RemuxedContainersOpenWithTheirInformation)
{
    // Remuxed files are read through our own source element, never through a device.
    const quint64 readsBefore = mediasource::counters().reads;
    expectH264Movie(openReady("native-h264-aac.mkv"));
    EXPECT_GT(mediasource::counters().reads, readsBefore);
    // Played to its end, a remuxed file ends like any other.
    backend.seek(2.5, QUuid::createUuid());
    backend.play(2.0);
    ASSERT_TRUE(waitUntil([&] { return recorder.count<Ended>() + recorder.count<Failed>() > 0; }));
    EXPECT_EQ(recorder.count<Ended>(), 1);
    EXPECT_EQ(recorder.count<Failed>(), 0);

    recorder.events.clear();
    expectH264Movie(openReady("native-h264-aac.flv"));

    recorder.events.clear();
    const auto webm = openReady("native-vp9-opus.webm");
    EXPECT_NEAR(webm.duration, 2.0, 0.05);
    EXPECT_EQ(webm.width, 320);
    EXPECT_EQ(webm.height, 240);
    EXPECT_NEAR(webm.frameRate, 25.0, 0.01);
    EXPECT_EQ(webm.tracks.size(), 1);

    // The remuxed file plays and seeks like any other.
    const QUuid id = QUuid::createUuid();
    backend.seek(1.0, id);
    ASSERT_TRUE(waitUntil([&] { return recorder.count<SeekCompleted>() > 0; }, 3000));
    EXPECT_NEAR(backend.snapshot().position, 1.0, 0.04);
    backend.play(1.0);
    EXPECT_TRUE(waitUntil([&] { return backend.snapshot().position > 1.3; }));
}
