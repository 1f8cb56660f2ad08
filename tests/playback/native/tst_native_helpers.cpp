// The pure parts of the native backend: which files take the container path, what size a rotated
// picture reports and which seek gets to complete.
#include "NativeMediaInfo.h"
#include "SeekTracker.h"
#include "StandardSlots.h"

#include <gtest/gtest.h>

using namespace quorvane;

TEST(NativeMediaInfo, PathsByExtensionInAnyCase)
{
    const auto list = standardSlots();
    const auto& platform = list.back();
    // name, container path (and so the platform slot), transport stream
    const std::tuple<const char*, bool, bool> cases[] = {
        {"/m/a.mkv", true, false},  {"/m/a.MKV", true, false},  {"/m/a.Mka", true, false},
        {"/m/a.WebM", true, false}, {"/m/a.Flv", true, false},  {"/m/a.mp4", false, false},
        {"/m/a.ogg", false, false}, {"/m/mkv", false, false},   {"/m/a.mkv.mp4", false, false},
        {"/m/a.ts", false, true},   {"/m/a.M2TS", false, true}, {"/m/a.mts", false, true}};
    for (const auto& [name, container, ts] : cases) {
        const QUrl url = QUrl::fromLocalFile(name);
        EXPECT_EQ(nativemedia::usesContainerPath(url), container) << name;
        EXPECT_EQ(platform.accepts(url), container) << name;
        EXPECT_EQ(nativemedia::isTransportStream(url), ts) << name;
    }
    EXPECT_FALSE(platform.accepts(QUrl("https://example.invalid/a.mkv")));
}

TEST(NativeMediaInfo, RotationsHdrAndDurations)
{
    // The quarter turn itself is played end to end; here the tags and sizes no fixture has.
    EXPECT_EQ(nativemedia::displaySize(QSize(1920, 1080), -90), QSizeF(1080, 1920));
    EXPECT_EQ(nativemedia::displaySize(QSize(), 90), QSizeF());
    const std::pair<QVariant, int> rotations[] = {
        {"rotate-270", 270}, {"flip-rotate-90", 90}, {"flip-horizontal-1", 0}, {180, 180}, {{}, 0}};
    for (const auto& [tag, degrees] : rotations)
        EXPECT_EQ(nativemedia::rotationDegrees(tag), degrees) << qPrintable(tag.toString());
    // HDR10 and SDR files are played end to end; HLG is the other HDR transfer.
    EXPECT_TRUE(nativemedia::isHdrTransfer(QVideoFrameFormat::ColorTransfer_STD_B67));
    EXPECT_EQ(nativemedia::durationSeconds(-1), 0.0); // a live stream: no length
}

TEST(SeekTracker, OnlyTheLatestSeekCompletesAndOnlyOnce)
{
    SeekTracker seeks;
    const QUuid first = QUuid::createUuid(), second = QUuid::createUuid();
    seeks.begin(first, 1000, 40);
    const quint64 firstSerial = seeks.serial();
    seeks.begin(second, 2000, 40);
    // A picture at the first target no longer completes anything; nor does its fallback. Within
    // one frame before the target completes, once.
    for (qint64 ms : {1000, 2000 - 80})
        EXPECT_EQ(seeks.arrived(ms), std::nullopt) << ms;
    EXPECT_EQ(seeks.expire(firstSerial), std::nullopt);
    EXPECT_EQ(seeks.arrived(2000 - 40), second);
    EXPECT_EQ(seeks.arrived(2000), std::nullopt);
    EXPECT_FALSE(seeks.pending());
    // After the target, up to two frames (pictures stamped before an MP4's edit list), not three.
    seeks.begin(first, 2000, 40);
    EXPECT_EQ(seeks.arrived(2000 + 121), std::nullopt);
    EXPECT_EQ(seeks.arrived(2000 + 80), first);
    // The fallback completes the seek it was armed for, once; clear() (stop, failure) disarms it.
    seeks.begin(first, 5000, 40);
    EXPECT_EQ(seeks.expire(seeks.serial()), first);
    EXPECT_EQ(seeks.expire(seeks.serial()), std::nullopt);
    seeks.begin(first, 5000, 40);
    seeks.clear();
    EXPECT_EQ(seeks.expire(seeks.serial()), std::nullopt);
}
