// The pure parts of the native backend: which files take the container path, what size a rotated
// picture reports, how tracks are numbered and labelled, and which seek gets to complete.
#include "NativeMediaInfo.h"
#include "SeekTracker.h"
#include "StandardSlots.h"

#include <QLocale>

#include <gtest/gtest.h>

using namespace quorvane;

TEST(NativeMediaInfo, ContainerPathByExtensionInAnyCase)
{
    for (const char* name :
         {"/m/a.mkv", "/m/a.MKV", "/m/a.Mka", "/m/a.webm", "/m/a.WebM", "/m/a.flv"})
        EXPECT_TRUE(nativemedia::usesContainerPath(QUrl::fromLocalFile(name))) << name;
    for (const char* name : {"/m/a.mp4", "/m/a.ogg", "/m/mkv", "/m/a.mkv.mp4", "/m/a.ts"})
        EXPECT_FALSE(nativemedia::usesContainerPath(QUrl::fromLocalFile(name))) << name;
    EXPECT_TRUE(nativemedia::isTransportStream(QUrl::fromLocalFile("/m/a.M2TS")));
    EXPECT_TRUE(nativemedia::isTransportStream(QUrl::fromLocalFile("/m/a.mts")));
    EXPECT_FALSE(nativemedia::isTransportStream(QUrl::fromLocalFile("/m/a.mkv")));
}

TEST(NativeMediaInfo, DisplaySizeFollowsQuarterTurns)
{
    const QSize coded(1920, 1080);
    EXPECT_EQ(nativemedia::displaySize(coded, 0), QSizeF(1920, 1080));
    EXPECT_EQ(nativemedia::displaySize(coded, 90), QSizeF(1080, 1920));
    EXPECT_EQ(nativemedia::displaySize(coded, 180), QSizeF(1920, 1080));
    EXPECT_EQ(nativemedia::displaySize(coded, 270), QSizeF(1080, 1920));
    EXPECT_EQ(nativemedia::displaySize(coded, -90), QSizeF(1080, 1920));
    EXPECT_EQ(nativemedia::displaySize(QSize(), 90), QSizeF());

    EXPECT_EQ(nativemedia::rotationDegrees(QStringLiteral("rotate-270")), 270);
    EXPECT_EQ(nativemedia::rotationDegrees(QStringLiteral("flip-rotate-90")), 90);
    EXPECT_EQ(nativemedia::rotationDegrees(QStringLiteral("flip-horizontal-1")), 0);
    EXPECT_EQ(nativemedia::rotationDegrees(180), 180);
    EXPECT_EQ(nativemedia::rotationDegrees(QVariant()), 0);
}

TEST(NativeMediaInfo, OnlyPqAndHlgAreHdr)
{
    EXPECT_TRUE(nativemedia::isHdrTransfer(QVideoFrameFormat::ColorTransfer_ST2084));
    EXPECT_TRUE(nativemedia::isHdrTransfer(QVideoFrameFormat::ColorTransfer_STD_B67));
    EXPECT_FALSE(nativemedia::isHdrTransfer(QVideoFrameFormat::ColorTransfer_BT709));
    EXPECT_FALSE(nativemedia::isHdrTransfer(QVideoFrameFormat::ColorTransfer_Unknown));
}

TEST(NativeMediaInfo, TracksAreNumberedFromOnePerKindAndLabelled)
{
    QMediaMetaData titled;
    titled.insert(QMediaMetaData::Title, QStringLiteral("Commentary"));
    titled.insert(QMediaMetaData::Language, QVariant::fromValue(QLocale::German));
    QMediaMetaData german;
    german.insert(QMediaMetaData::Language, QVariant::fromValue(QLocale::German));
    const QMediaMetaData bare;

    const auto tracks = nativemedia::playbackTracks({german, titled}, {bare});
    ASSERT_EQ(tracks.size(), 3);
    EXPECT_EQ(tracks[0], (PlaybackTrack{1, PlaybackTrackKind::Audio, QStringLiteral("German")}));
    EXPECT_EQ(tracks[1],
              (PlaybackTrack{2, PlaybackTrackKind::Audio, QStringLiteral("Commentary")}));
    EXPECT_EQ(tracks[2],
              (PlaybackTrack{1, PlaybackTrackKind::Subtitle, QStringLiteral("Track 1")}));
    EXPECT_EQ(nativemedia::durationSeconds(-5), 0.0);
    EXPECT_EQ(nativemedia::durationSeconds(2500), 2.5);
}

TEST(SeekTracker, OnlyTheLatestSeekCompletesAndOnlyOnce)
{
    SeekTracker seeks;
    const QUuid first = QUuid::createUuid();
    const QUuid second = QUuid::createUuid();
    seeks.begin(first, 1000, 40);
    const quint64 firstSerial = seeks.serial();
    seeks.begin(second, 2000, 40);

    // A picture at the first target no longer completes anything; nor does its fallback.
    EXPECT_EQ(seeks.arrived(1000), std::nullopt);
    EXPECT_EQ(seeks.expire(firstSerial), std::nullopt);
    // Within one frame before the target completes, once.
    EXPECT_EQ(seeks.arrived(2000 - 80), std::nullopt);
    EXPECT_EQ(seeks.arrived(2000 - 40), second);
    EXPECT_EQ(seeks.arrived(2000), std::nullopt);
    EXPECT_FALSE(seeks.pending());

    // After it, up to two frames (pictures stamped before an MP4's edit list), not three.
    seeks.begin(first, 2000, 40);
    EXPECT_EQ(seeks.arrived(2000 + 121), std::nullopt);
    EXPECT_EQ(seeks.arrived(2000 + 80), first);
}

TEST(SeekTracker, FallbackCompletesTheSeekItWasArmedFor)
{
    SeekTracker seeks;
    const QUuid id = QUuid::createUuid();
    seeks.begin(id, 5000, 40);
    EXPECT_EQ(seeks.expire(seeks.serial()), id);
    EXPECT_EQ(seeks.expire(seeks.serial()), std::nullopt);

    // clear() (stop, failure) disarms a pending fallback too.
    seeks.begin(id, 5000, 40);
    const quint64 serial = seeks.serial();
    seeks.clear();
    EXPECT_EQ(seeks.expire(serial), std::nullopt);
}

TEST(StandardSlots, PlatformComesLastAndTakesOnlyContainers)
{
    QStringList ids;
    const auto list = standardSlots();
    for (const auto& slot : list)
        ids.append(slot.id);
    ASSERT_FALSE(ids.isEmpty());
    EXPECT_EQ(ids.first(), QStringLiteral("native"));
    EXPECT_EQ(ids.last(), QStringLiteral("platform"));
    const auto& platform = list.back();
    for (const char* name : {"/m/a.mkv", "/m/a.MKA", "/m/a.WebM", "/m/a.Flv"})
        EXPECT_TRUE(platform.accepts(QUrl::fromLocalFile(name))) << name;
    for (const char* name : {"/m/a.mp4", "/m/a.ogg", "/m/a.ts"})
        EXPECT_FALSE(platform.accepts(QUrl::fromLocalFile(name))) << name;
    EXPECT_FALSE(platform.accepts(QUrl("https://example.invalid/a.mkv")));
}
