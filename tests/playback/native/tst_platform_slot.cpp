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

} // namespace

TEST(StandardSlotsTest, EachFileReachesTheSlotThatCanPlayIt)
{
    const std::pair<QUrl, const char*> cases[] = {
        {sharedFixture("truncated.mkv"), "platform"}, // cut after 40,000 bytes; header says 3 s
        {sharedFixture("h264_mp3.flv"), "platform"},
        {sharedFixture("h264_vorbis.mkv"), "platform"},
        {fixture("native-h264-aac.mkv"), "native"}, // the engine stays first for what it accepts
        {fixture("native-text.mkv"), nullptr},      // neither: fails, in bounded time
    };
    for (const auto& [url, slot] : cases) {
        SCOPED_TRACE(qPrintable(url.fileName()));
        EventRecorder recorder;
        PlaybackRouter router;
        router.setOnEvent(recorder.handler());
        QElapsedTimer clock;
        clock.start();
        router.open(url);
        // Both slots may run their whole open, each bounded by its own limit.
        ASSERT_TRUE(waitUntil([&] { return recorder.settled(); },
                              2 * NativePlayback::kPlayerOpenTimeoutMs + 5000));
        const auto ready = recorder.all<PlaybackEvents::Ready>();
        if (!slot) {
            EXPECT_EQ(recorder.all<PlaybackEvents::Failed>(),
                      QList<PlaybackEvents::Failed>{{kFileFormatNotRecognized}});
            EXPECT_EQ(router.activeSlotID(), QStringLiteral("platform"));
            EXPECT_LT(clock.elapsed(), 2 * NativePlayback::kPlayerOpenTimeoutMs);
            continue;
        }
        ASSERT_EQ(ready.size(), 1);
        EXPECT_EQ(router.activeSlotID(), QLatin1String(slot));
        EXPECT_EQ(lastReadySlot(), QLatin1String(slot));
        const PlaybackMediaInfo& info = ready[0].info;
        EXPECT_NEAR(info.duration, 3.0, 0.1);
        EXPECT_EQ(QSizeF(info.width, info.height), QSizeF(320, 240));
        ASSERT_EQ(info.tracks.size(), 1);
        EXPECT_EQ(std::pair(info.tracks[0].id, info.tracks[0].kind),
                  std::pair(qint64(1), PlaybackTrackKind::Audio));
        EXPECT_EQ(router.snapshot().audioID, 1);
    }
}
