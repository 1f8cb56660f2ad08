// The standard slots against real GStreamer: the engine plays what it accepts, the "platform" slot
// plays what only GStreamer can, and a file neither can play fails in bounded time.
#include "DiagnosticLog.h"
#include "NativePlayback.h"
#include "NativeTestSupport.h"
#include "PlaybackRouter.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

using namespace quorvane;
using namespace quorvane::testing;
using Ready = PlaybackEvents::Ready;
using Failed = PlaybackEvents::Failed;

namespace {

QUrl sharedFixture(const char* name)
{
    return QUrl::fromLocalFile(QStringLiteral(QV_SHARED_FIXTURE_DIR "/") + QLatin1String(name));
}

// The slot named by the last "media.ready" record.
QString lastReadySlot()
{
    QString slot;
    for (const auto& entry : SupportDiagnostics::log().entries())
        if (entry.event == QLatin1String("media.ready"))
            slot = entry.fields.value(QStringLiteral("slot"));
    return slot;
}

class StandardSlotsTest : public ::testing::Test {
protected:
    void SetUp() override { router.setOnEvent(recorder.handler()); }

    // Opens `url`, waits for the outcome and returns it with the slot that was active.
    void open(const QUrl& url)
    {
        recorder.events.clear();
        router.open(url);
        // Both slots may run their whole open, each bounded by its own limit.
        ASSERT_TRUE(waitUntil([&] { return recorder.settled(); },
                              2 * NativePlayback::kPlayerOpenTimeoutMs + 5000));
    }

    EventRecorder recorder;
    PlaybackRouter router;
};

} // namespace

TEST_F(StandardSlotsTest, WhatTheEngineRefusesPlaysThroughThePlatform)
{
    const struct {
        const char* name;
        double duration;
    } cases[] = {
        {"truncated.mkv", 3.0}, // cut after 40,000 bytes; the header still says 3 s
        {"h264_mp3.flv", 3.0},
        {"h264_vorbis.mkv", 3.0},
    };
    for (const auto& [name, duration] : cases) {
        open(sharedFixture(name));
        const auto ready = recorder.all<Ready>();
        ASSERT_EQ(ready.size(), 1) << name;
        EXPECT_EQ(router.activeSlotID(), QStringLiteral("platform")) << name;
        EXPECT_EQ(lastReadySlot(), QStringLiteral("platform")) << name;
        const PlaybackMediaInfo& info = ready[0].info;
        EXPECT_NEAR(info.duration, duration, 0.1) << name;
        EXPECT_EQ(info.width, 320) << name;
        EXPECT_EQ(info.height, 240) << name;
        ASSERT_EQ(info.tracks.size(), 1) << name;
        EXPECT_EQ(info.tracks[0].id, 1) << name;
        EXPECT_EQ(info.tracks[0].kind, PlaybackTrackKind::Audio) << name;
        EXPECT_EQ(router.snapshot().audioID, 1) << name;
    }
}

TEST_F(StandardSlotsTest, TheEngineStaysFirstForWhatItAccepts)
{
    open(fixture("native-h264-aac.mkv"));
    EXPECT_EQ(recorder.count<Ready>(), 1);
    EXPECT_EQ(router.activeSlotID(), QStringLiteral("native"));
    EXPECT_EQ(lastReadySlot(), QStringLiteral("native"));
}

TEST_F(StandardSlotsTest, AFileNeitherPathPlaysFailsInBoundedTime)
{
    QElapsedTimer clock;
    clock.start();
    open(fixture("native-text.mkv"));
    EXPECT_EQ(recorder.all<Failed>(), QList<Failed>{{kFileFormatNotRecognized}});
    EXPECT_EQ(router.activeSlotID(), QStringLiteral("platform"));
    EXPECT_LT(clock.elapsed(), 2 * NativePlayback::kPlayerOpenTimeoutMs);
}
