// The web fallback end to end: the router, the real QtWebEngine in a window, the loopback server
// and generated WebM and Ogg files.
#include "NativeTestSupport.h"
#include "PlaybackRouter.h"
#include "Player.h"
#include "StandardSlots.h"
#include "WebMediaPlayback.h"
#include "support/ScriptedBackend.h"

#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <csignal>

using namespace quorvane;
using quorvane::testing::waitUntil;

namespace {

QUrl fixture(const char* name)
{
    return QUrl::fromLocalFile(QStringLiteral(QV_FIXTURE_DIR "/") + QLatin1String(name));
}

// A native slot that refuses every file, as the native path does on macOS, then the real web slot.
std::vector<PlaybackSlot> refusedNativelySlots()
{
    std::vector<PlaybackSlot> list{
        {QStringLiteral("native"), [](const QUrl&) { return true; },
         [] {
             auto refusing = std::make_unique<quorvane::testing::ScriptedBackend>();
             QTimer::singleShot(0, refusing.get(), [b = refusing.get()] {
                 b->emitEvent(PlaybackEvents::Failed{kFileFormatNotRecognized});
             });
             return refusing;
         }}};
    for (PlaybackSlot& slot : standardSlots())
        if (slot.id == QLatin1String("webm-system")) list.push_back(slot);
    return list;
}

class WebMediaPlaybackTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_engine.loadData(R"(
            import QtQuick
            import QtWebEngine
            Window {
                width: 480; height: 360; visible: true; color: "black"
                property var probed
                function probe(script) { probed = undefined; web.runJavaScript(script, r => { probed = r }) }
                WebEngineView { id: web; objectName: "web"; anchors.fill: parent }
            }
        )");
        ASSERT_FALSE(m_engine.rootObjects().isEmpty());
        m_window = qobject_cast<QQuickWindow*>(m_engine.rootObjects().first());
        m_view = m_window->findChild<QQuickItem*>(QStringLiteral("web"));
        ASSERT_TRUE(m_view);
    }

    template <typename Backend> void listen(Backend& backend)
    {
        backend.setWebView(m_view);
        backend.setOnEvent(m_recorder.handler());
    }
    template <typename T> QList<T> all() const { return m_recorder.all<T>(); }

    // Evaluated in the page.
    QVariant probe(const QString& script)
    {
        QMetaObject::invokeMethod(m_window, "probe", Q_ARG(QVariant, script));
        waitUntil([&] { return m_window->property("probed").isValid(); }, 10000);
        return m_window->property("probed");
    }

    // testsrc2 is full of saturated colours; an empty or black view has none. Saved for a look.
    void expectPicture(const char* name)
    {
        QTest::qWait(500);
        const QImage shot = m_window->grabWindow();
        const QString path =
            QDir(QStringLiteral(QV_SCREENSHOT_DIR)).filePath(QLatin1String(name) + ".png");
        shot.save(path);
        QSet<QRgb> colours;
        for (int y = 0; y < shot.height(); y += 8)
            for (int x = 0; x < shot.width(); x += 8)
                colours.insert(shot.pixel(x, y) & 0xf0f0f0);
        EXPECT_GT(colours.size(), 20) << "see " << path.toStdString();
    }

    QQmlApplicationEngine m_engine;
    QQuickWindow* m_window = nullptr;
    QQuickItem* m_view = nullptr;
    quorvane::testing::EventRecorder m_recorder;
};

} // namespace

TEST_F(WebMediaPlaybackTest, PlaysSeeksAndEndsThroughTheRouterAndShowsThePicture)
{
    PlaybackRouter router(refusedNativelySlots());
    listen(router);
    router.setVolume(0.25);
    router.setMuted(true);
    router.open(fixture("web_vp8_vorbis.webm"));
    ASSERT_TRUE(waitUntil([&] { return !m_recorder.events.isEmpty(); })) << "no event at all";
    ASSERT_EQ(all<PlaybackEvents::Ready>().size(), 1)
        << "failed with " << all<PlaybackEvents::Failed>().value(0).code;
    EXPECT_EQ(router.activeSlotID(), QStringLiteral("webm-system"));
    const PlaybackMediaInfo info = all<PlaybackEvents::Ready>().first().info;
    EXPECT_NEAR(info.duration, 3.0, 0.1);
    EXPECT_EQ(QSizeF(info.width, info.height), QSizeF(320, 240));
    EXPECT_TRUE(
        qvariant_cast<QObject*>(m_view->property("profile"))->property("offTheRecord").toBool());

    // Volume and mute set before the page was ready reached it right after.
    const QString volumeAndMute =
        QStringLiteral("(v => [v.volume, v.muted].join())(document.querySelector('video'))");
    EXPECT_TRUE(
        waitUntil([&] { return probe(volumeAndMute) == QStringLiteral("0.25,true"); }, 10000));

    router.play(1.0);
    EXPECT_TRUE(waitUntil(
        [&] { return router.snapshot().position > 0.5 && router.snapshot().rate == 1.0; }));
    router.pause();
    const QUuid seek = QUuid::createUuid();
    router.seek(1.0, seek);
    EXPECT_TRUE(waitUntil([&] { return !all<PlaybackEvents::SeekCompleted>().isEmpty(); }));
    EXPECT_TRUE(waitUntil([&] { return std::abs(router.snapshot().position - 1.0) < 0.1; }, 5000));
    expectPicture("web_vp8_vorbis.webm");

    router.seek(info.duration - 0.4, QUuid::createUuid());
    router.play(1.0);
    EXPECT_TRUE(waitUntil([&] { return !all<PlaybackEvents::Ended>().isEmpty(); }));
    QTest::qWait(1500);
    EXPECT_EQ(all<PlaybackEvents::SeekCompleted>().count(PlaybackEvents::SeekCompleted{seek}), 1);
    EXPECT_EQ(all<PlaybackEvents::Ended>().size(), 1);
    EXPECT_TRUE(all<PlaybackEvents::Failed>().isEmpty());

    // The other clips, on the same router: ready with their size, and Theora's first picture.
    // Plain Vorbis in Ogg reaches ready in the stop-while-loading and failure tests.
    for (const auto& [name, width, height] :
         {std::tuple{"web_theora_vorbis.ogg", 320, 240}, std::tuple{"web_opus.oga", 0, 0}}) {
        m_recorder.events.clear();
        router.open(fixture(name));
        ASSERT_TRUE(waitUntil([&] { return !all<PlaybackEvents::Ready>().isEmpty(); })) << name;
        const PlaybackMediaInfo clip = all<PlaybackEvents::Ready>().first().info;
        EXPECT_NEAR(clip.duration, 3.0, 0.1) << name;
        EXPECT_EQ(QSizeF(clip.width, clip.height), QSizeF(width, height)) << name;
        if (width > 0) expectPicture(name);
    }
    router.stop();
    EXPECT_FALSE(router.showsWebView());
}

TEST_F(WebMediaPlaybackTest, TheRealNativePathRefusesVp8AndThePlayerShowsTheWebView)
{
    QTemporaryDir dir;
    QSettings settings(dir.filePath(QStringLiteral("player.ini")), QSettings::IniFormat);
    Player player(&settings, std::make_unique<PlaybackRouter>(std::nullopt));
    player.setWebView(m_view);
    QSignalSpy changes(&player, &Player::webViewActiveChanged);
    player.open(fixture("web_vp8_vorbis.webm"));
    EXPECT_TRUE(waitUntil([&] { return player.loaded(); }));
    EXPECT_EQ(static_cast<PlaybackRouter*>(player.playback())->activeSlotID(),
              QStringLiteral("webm-system"));
    EXPECT_TRUE(player.webViewActive());
    EXPECT_EQ(player.videoSize(), QSizeF(320, 240));
    EXPECT_EQ(changes.size(), 1);
}

TEST_F(WebMediaPlaybackTest, StopWhileLoadingReportsNothingLaterAndASecondOpenWins)
{
    // The backend alone, its handler left in place: only its own stop() can silence it.
    WebMediaPlayback backend;
    listen(backend);
    const std::function<bool()> stages[] = {
        [] { return true; },                                  // at once
        [&] { return backend.pageUrl().has_value(); },        // page requested
        [&] { return m_view->property("loading").toBool(); }, // page loading
    };
    for (const auto& stage : stages) {
        backend.open(fixture("web_vp8_vorbis.webm"));
        const QUuid session = backend.sessionToken();
        waitUntil(stage, 5000);
        backend.stop();
        EXPECT_NE(backend.sessionToken(), session);
        QTest::qWait(2500);
        EXPECT_TRUE(m_recorder.events.isEmpty()) << "the page was ready before it could be stopped";
    }
    // The view is usable again; a second open while the first page loads: only the second file
    // is ever reported.
    backend.open(fixture("web_vp8_vorbis.webm"));
    backend.open(fixture("web_vorbis.ogg"));
    ASSERT_TRUE(waitUntil([&] { return !m_recorder.events.isEmpty(); }));
    QTest::qWait(500);
    ASSERT_EQ(m_recorder.events.size(), 1);
    EXPECT_EQ(all<PlaybackEvents::Ready>().value(0).info.width, 0);
    EXPECT_TRUE(backend.showsWebView());
    backend.stop();
    EXPECT_FALSE(backend.showsWebView());
}

TEST_F(WebMediaPlaybackTest, FailuresCarryTheirCodes)
{
    PlaybackRouter router(refusedNativelySlots());
    listen(router);
    // A page that never becomes ready fails once, after twelve seconds; every message without a
    // duration was dropped, so nothing reached the snapshot.
    QElapsedTimer elapsed;
    elapsed.start();
    router.open(fixture("web_live_vp8.webm"));
    bool snapshotMoved = false;
    ASSERT_TRUE(waitUntil([&] {
        snapshotMoved |= !(router.snapshot() == PlaybackSnapshot{});
        return !m_recorder.events.isEmpty();
    }));
    EXPECT_GE(elapsed.elapsed(), WebMediaPlayback::kLoadTimeoutMs);
    EXPECT_FALSE(snapshotMoved);
    QTest::qWait(1500);
    EXPECT_EQ(m_recorder.events,
              QList<PlaybackEvent>{PlaybackEvents::Failed{kFileFormatNotRecognized}});

    // A file the page's media element cannot decode: the page posts "error".
    QFile garbage(QDir(QStringLiteral(QV_SCREENSHOT_DIR)).filePath(QStringLiteral("garbage.webm")));
    ASSERT_TRUE(garbage.open(QIODevice::WriteOnly));
    garbage.write(QByteArray(50000, 'q'));
    garbage.close();
    m_recorder.events.clear();
    router.open(QUrl::fromLocalFile(garbage.fileName()));
    ASSERT_TRUE(waitUntil([&] { return !m_recorder.events.isEmpty(); }));
    EXPECT_EQ(all<PlaybackEvents::Failed>().value(0).code, kFileFormatNotRecognized);

    // A navigation away from the page is refused; the renderer dying fails with -11800.
    m_recorder.events.clear();
    router.open(fixture("web_vorbis.ogg"));
    ASSERT_TRUE(waitUntil([&] { return !all<PlaybackEvents::Ready>().isEmpty(); }));
    const QUrl page = m_view->property("url").toUrl();
    probe(QStringLiteral("location.href = 'http://127.0.0.1:9/elsewhere'; 1"));
    QTest::qWait(1000);
    EXPECT_EQ(m_view->property("url").toUrl(), page);
    ASSERT_EQ(::kill(pid_t(m_view->property("renderProcessPid").toLongLong()), SIGKILL), 0);
    ASSERT_TRUE(waitUntil([&] { return !all<PlaybackEvents::Failed>().isEmpty(); }, 10000));
    EXPECT_EQ(all<PlaybackEvents::Failed>().first().code, kUnknownMediaError);
}

int main(int argc, char** argv)
{
    WebMediaPlayback::initializeWebEngine();
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
