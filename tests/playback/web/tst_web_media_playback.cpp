// The web fallback end to end: the router, the real QtWebEngine in a window, the loopback server
// and generated WebM and Ogg files.
#include "PlaybackRouter.h"
#include "Player.h"
#include "StandardSlots.h"
#include "WebMediaPlayback.h"

#include <QDeadlineTimer>
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
#include <limits>
#include <unistd.h>

using namespace quorvane;

namespace {

QUrl fixture(const QString& name)
{
    return QUrl::fromLocalFile(QStringLiteral(QV_FIXTURE_DIR "/") + name);
}

bool waitUntil(const std::function<bool()>& done, int ms = 30000)
{
    QDeadlineTimer deadline(ms);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QTest::qWait(20);
    }
    return true;
}

// Stands in for a native backend that refuses the file, as the native path does on macOS.
class RefusingBackend final : public PlaybackBackend {
public:
    void setOnEvent(EventHandler handler) override { m_handler = std::move(handler); }
    bool isMuted() const override { return false; }
    void setMuted(bool) override {}
    PlaybackSnapshot snapshot() const override { return {}; }
    void open(const QUrl&) override
    {
        QTimer::singleShot(0, this, [this] {
            if (m_handler) m_handler(PlaybackEvents::Failed{kFileFormatNotRecognized});
        });
    }
    void play(double) override {}
    void pause() override {}
    void stop() override { m_handler = nullptr; }
    void seek(double, const QUuid&) override {}
    void setVolume(double) override {}
    void selectTrack(PlaybackTrackKind, qint64) override {}

private:
    EventHandler m_handler;
};

int parentOf(int pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly)) return 0;
    const QByteArray text = stat.readAll();
    return text.mid(text.lastIndexOf(')') + 2).split(' ').value(1).toInt();
}

QByteArray commandLine(int pid)
{
    QFile file(QStringLiteral("/proc/%1/cmdline").arg(pid));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Our renderer processes: Chromium forks them from its zygote, and they keep its command line.
QList<int> ourRenderers()
{
    const auto isZygote = [](int pid) { return commandLine(pid).contains("--type=zygote"); };
    // Renderers hang below a zygote, so look a few generations up for this process.
    const auto startedByUs = [](int pid) {
        for (int depth = 0; depth < 6 && pid > 1; ++depth)
            if ((pid = parentOf(pid)) == ::getpid()) return true;
        return false;
    };
    QList<int> found;
    for (const QString& name : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        const int pid = name.toInt();
        const QByteArray line = commandLine(pid);
        if (pid <= 0 || !line.contains("QtWebEngineProcess") || !startedByUs(pid)) continue;
        const int parent = parentOf(pid);
        if (line.contains("--type=renderer") || isZygote(parent)) found.append(pid);
    }
    return found;
}

std::vector<PlaybackSlot> refusedNativelySlots()
{
    std::vector<PlaybackSlot> list;
    list.push_back({QStringLiteral("native"), [](const QUrl& url) { return url.isLocalFile(); },
                    [] { return std::make_unique<RefusingBackend>(); }});
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
                id: window
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

    void makeRouter(std::optional<std::vector<PlaybackSlot>> slotList)
    {
        m_router = std::make_unique<PlaybackRouter>(std::move(slotList));
        m_router->setWebView(m_view);
        m_router->setOnEvent([this](const PlaybackEvent& event) { m_events.append(event); });
    }

    template <typename T> QList<T> all() const
    {
        QList<T> found;
        for (const auto& event : m_events)
            if (const auto* value = std::get_if<T>(&event)) found.append(*value);
        return found;
    }

    // What the page's video element says, evaluated in the page.
    QVariant probe(const QString& script)
    {
        QMetaObject::invokeMethod(m_window, "probe", Q_ARG(QVariant, script));
        waitUntil([&] { return m_window->property("probed").isValid(); }, 10000);
        return m_window->property("probed");
    }

    QQmlApplicationEngine m_engine;
    QQuickWindow* m_window = nullptr;
    QQuickItem* m_view = nullptr;
    std::unique_ptr<PlaybackRouter> m_router;
    QList<PlaybackEvent> m_events;
};

struct Clip {
    const char* name;
    double width, height;
};

class WebClipTest : public WebMediaPlaybackTest, public ::testing::WithParamInterface<Clip> {};

} // namespace

TEST_P(WebClipTest, PlaysSeeksAndEndsThroughTheRouter)
{
    const Clip clip = GetParam();
    makeRouter(refusedNativelySlots());
    m_router->setVolume(0.25);
    m_router->setMuted(true);
    m_router->open(fixture(QString::fromLatin1(clip.name)));
    ASSERT_TRUE(waitUntil([&] { return !m_events.isEmpty(); })) << "no event at all";
    ASSERT_EQ(all<PlaybackEvents::Ready>().size(), 1)
        << "failed with " << all<PlaybackEvents::Failed>().value(0).code;
    EXPECT_EQ(m_router->activeSlotID(), QStringLiteral("webm-system"));
    EXPECT_TRUE(m_router->showsWebView());
    const PlaybackMediaInfo info = all<PlaybackEvents::Ready>().first().info;
    EXPECT_NEAR(info.duration, 3.0, 0.1);
    EXPECT_EQ(info.width, clip.width);
    EXPECT_EQ(info.height, clip.height);
    EXPECT_TRUE(
        qvariant_cast<QObject*>(m_view->property("profile"))->property("offTheRecord").toBool());

    // Volume and mute set before the page was ready reached it right after.
    const auto volumeAndMute = [&] {
        return probe(
            QStringLiteral("(v => [v.volume, v.muted].join())(document.querySelector('video'))"));
    };
    EXPECT_TRUE(waitUntil([&] { return volumeAndMute() == QStringLiteral("0.25,true"); }, 10000));
    m_router->setMuted(false);
    m_router->setVolume(0.5);
    EXPECT_TRUE(waitUntil([&] { return volumeAndMute() == QStringLiteral("0.5,false"); }, 10000));

    m_router->play(1.0);
    EXPECT_TRUE(waitUntil([&] {
        const PlaybackSnapshot s = m_router->snapshot();
        return s.position > 0.5 && s.rate == 1.0;
    }));

    m_router->pause();
    const QUuid seek = QUuid::createUuid();
    m_router->seek(1.0, seek);
    EXPECT_TRUE(waitUntil([&] { return !all<PlaybackEvents::SeekCompleted>().isEmpty(); }));
    EXPECT_TRUE(
        waitUntil([&] { return std::abs(m_router->snapshot().position - 1.0) < 0.1; }, 5000));

    m_router->seek(info.duration - 0.4, QUuid::createUuid());
    m_router->play(1.0);
    EXPECT_TRUE(waitUntil([&] { return !all<PlaybackEvents::Ended>().isEmpty(); }));
    QTest::qWait(1500);
    EXPECT_EQ(all<PlaybackEvents::SeekCompleted>().count(PlaybackEvents::SeekCompleted{seek}), 1);
    EXPECT_EQ(all<PlaybackEvents::Ended>().size(), 1);
    EXPECT_TRUE(all<PlaybackEvents::Failed>().isEmpty());

    m_router->stop();
    EXPECT_FALSE(m_router->showsWebView());
}

INSTANTIATE_TEST_SUITE_P(
    Fixtures, WebClipTest,
    ::testing::Values(Clip{"web_vp8_vorbis.webm", 320, 240}, Clip{"web_vorbis.ogg", 0, 0},
                      Clip{"web_theora_vorbis.ogg", 320, 240}, Clip{"web_opus.oga", 0, 0}),
    [](const auto& info) {
        return QString::fromLatin1(info.param.name).section(QLatin1Char('.'), 0, 0).toStdString();
    });

TEST_F(WebMediaPlaybackTest, TheRealNativePathRefusesVp8AndTheWebViewShowsItsPicture)
{
    makeRouter(std::nullopt);
    m_router->open(fixture(QStringLiteral("web_vp8_vorbis.webm")));
    ASSERT_TRUE(waitUntil([&] { return !m_events.isEmpty(); }));
    ASSERT_EQ(all<PlaybackEvents::Ready>().size(), 1);
    EXPECT_EQ(m_router->activeSlotID(), QStringLiteral("webm-system"));

    m_router->seek(1.0, QUuid::createUuid());
    ASSERT_TRUE(waitUntil([&] { return !all<PlaybackEvents::SeekCompleted>().isEmpty(); }));
    QTest::qWait(500);
    const QImage shot = m_window->grabWindow();
    const QString path =
        QDir(QStringLiteral(QV_SCREENSHOT_DIR)).filePath(QStringLiteral("web_vp8.png"));
    shot.save(path);
    // testsrc2 is full of saturated colours; an empty or black view has none.
    QSet<QRgb> colours;
    for (int y = 0; y < shot.height(); y += 8)
        for (int x = 0; x < shot.width(); x += 8)
            colours.insert(shot.pixel(x, y) & 0xf0f0f0);
    EXPECT_GT(colours.size(), 20) << "see " << path.toStdString();
}

TEST_F(WebMediaPlaybackTest, ThePlayerPublishesWhenTheWebViewShowsThePicture)
{
    QTemporaryDir dir;
    QSettings settings(dir.filePath(QStringLiteral("player.ini")), QSettings::IniFormat);
    Player player(&settings, std::make_unique<PlaybackRouter>(refusedNativelySlots()));
    player.setWebView(m_view);
    QSignalSpy changes(&player, &Player::webViewActiveChanged);
    player.open(fixture(QStringLiteral("web_theora_vorbis.ogg")));
    EXPECT_TRUE(waitUntil([&] { return player.loaded(); }));
    EXPECT_TRUE(player.webViewActive());
    EXPECT_EQ(player.videoSize(), QSizeF(320, 240));
    EXPECT_EQ(changes.size(), 1);
}

TEST_F(WebMediaPlaybackTest, IgnoresCallsOutsideTheirLimits)
{
    WebMediaPlayback backend;
    backend.setWebView(m_view);
    backend.setOnEvent([this](const PlaybackEvent& event) { m_events.append(event); });
    // A second open while the first page loads: only the second file is ever reported.
    backend.open(fixture(QStringLiteral("web_vp8_vorbis.webm")));
    backend.open(fixture(QStringLiteral("web_vorbis.ogg")));
    ASSERT_TRUE(waitUntil([&] { return !m_events.isEmpty(); }));
    QTest::qWait(500);
    ASSERT_EQ(m_events.size(), 1);
    EXPECT_EQ(all<PlaybackEvents::Ready>().value(0).info.width, 0);

    const auto rate = [&] {
        return probe(QStringLiteral("document.querySelector('video').playbackRate"));
    };
    backend.play(0.2);
    backend.play(25);
    backend.play(std::numeric_limits<double>::quiet_NaN());
    backend.seek(-1, QUuid::createUuid());
    backend.seek(std::numeric_limits<double>::quiet_NaN(), QUuid::createUuid());
    backend.selectTrack(PlaybackTrackKind::Subtitle, 1);
    QTest::qWait(500);
    EXPECT_EQ(rate(), 1);
    EXPECT_EQ(backend.snapshot().rate, 0);
    EXPECT_EQ(m_events.size(), 1);
    backend.play(0.25);
    EXPECT_TRUE(waitUntil([&] { return backend.snapshot().rate == 0.25; }, 10000));
    backend.stop();
}

TEST_F(WebMediaPlaybackTest, StopWhileLoadingReportsNothingLater)
{
    // The backend alone, its handler left in place: only its own stop() can silence it.
    WebMediaPlayback backend;
    backend.setWebView(m_view);
    backend.setOnEvent([this](const PlaybackEvent& event) { m_events.append(event); });
    const auto stages = {
        std::function<bool()>([] { return true; }),                           // at once
        std::function<bool()>([&] { return backend.pageUrl().has_value(); }), // page requested
        std::function<bool()>([&] { return m_view->property("loading").toBool(); }),
    };
    for (const auto& stage : stages) {
        backend.open(fixture(QStringLiteral("web_vp8_vorbis.webm")));
        const QUuid session = backend.sessionToken();
        waitUntil(stage, 5000);
        const qsizetype before = m_events.size();
        backend.stop();
        EXPECT_NE(backend.sessionToken(), session);
        QTest::qWait(2500);
        EXPECT_EQ(m_events.size(), before);
    }
    EXPECT_TRUE(m_events.isEmpty()) << "the page was ready before it could be stopped";

    // The view is usable again afterwards.
    backend.open(fixture(QStringLiteral("web_vorbis.ogg")));
    EXPECT_TRUE(waitUntil([&] { return !all<PlaybackEvents::Ready>().isEmpty(); }));
    EXPECT_TRUE(backend.showsWebView());
    backend.stop();
    EXPECT_FALSE(backend.showsWebView());
}

TEST_F(WebMediaPlaybackTest, APageThatNeverBecomesReadyFailsOnceAfterTwelveSeconds)
{
    WebMediaPlayback backend;
    backend.setWebView(m_view);
    backend.setOnEvent([this](const PlaybackEvent& event) { m_events.append(event); });
    QElapsedTimer elapsed;
    elapsed.start();
    backend.open(fixture(QStringLiteral("web_live_vp8.webm")));
    ASSERT_TRUE(waitUntil([&] { return !m_events.isEmpty(); }, 30000));
    EXPECT_GE(elapsed.elapsed(), WebMediaPlayback::kLoadTimeoutMs);
    QTest::qWait(1500);
    ASSERT_EQ(m_events.size(), 1);
    EXPECT_EQ(all<PlaybackEvents::Failed>().value(0).code, kFileFormatNotRecognized);
    // Every message without a duration was dropped, so nothing reached the snapshot.
    EXPECT_EQ(backend.snapshot(), PlaybackSnapshot{});
}

TEST_F(WebMediaPlaybackTest, FailuresCarryTheirCodes)
{
    // A file the page's media element cannot decode: the page posts "error".
    const QString garbage =
        QDir(QStringLiteral(QV_SCREENSHOT_DIR)).filePath(QStringLiteral("garbage.webm"));
    QFile file(garbage);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(50000, 'q'));
    file.close();
    makeRouter(refusedNativelySlots());
    m_router->open(QUrl::fromLocalFile(garbage));
    ASSERT_TRUE(waitUntil([&] { return !m_events.isEmpty(); }));
    EXPECT_EQ(all<PlaybackEvents::Failed>().value(0).code, kFileFormatNotRecognized);

    // A navigation away from the page is refused; the renderer dying fails with -11800.
    m_events.clear();
    m_router->open(fixture(QStringLiteral("web_vorbis.ogg")));
    ASSERT_TRUE(waitUntil([&] { return !all<PlaybackEvents::Ready>().isEmpty(); }));
    const QUrl page = m_view->property("url").toUrl();
    probe(QStringLiteral("location.href = 'http://127.0.0.1:9/elsewhere'; 1"));
    QTest::qWait(1000);
    EXPECT_EQ(m_view->property("url").toUrl(), page);

    int killed = 0;
    for (int pid : ourRenderers())
        killed += ::kill(pid, SIGKILL) == 0;
    ASSERT_GT(killed, 0);
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
