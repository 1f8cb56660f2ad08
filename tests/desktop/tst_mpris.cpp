// MPRIS over a private session bus, against a real player playing generated media. The cases run
// in order on one player: a, b and c are one folder (one playlist), opened through the bus.
#include "BusTestSupport.h"
#include "DesktopIntegration.h"
#include "MprisService.h"

#include <QDBusObjectPath>
#include <QSignalSpy>
#include <QWindow>

#include <cmath>

using namespace quorvane;
using namespace quorvane::testing;

class TestMpris : public QObject {
    Q_OBJECT

    PlayerUnderTest t;
    std::unique_ptr<MprisService> mpris;
    BusClient client;
    QUrl a, b, c;

    double position() { return client.get(QStringLiteral("Position")).toLongLong() / 1e6; }
    QDBusObjectPath trackId()
    {
        return client.metadata().value("mpris:trackid").value<QDBusObjectPath>();
    }
    bool waitPlaying(const QUrl& url)
    {
        (void)QTest::qWaitFor([&] { return t.player.currentURL() == url && t.playing(); }, 30000);
        return t.player.currentURL() == url && client.status() == QLatin1String("Playing");
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::sessionBus().isConnected(), "run under dbus-run-session");
        a = t.media("native-h264-aac.mp4", "list/a.mp4");
        b = t.media("native-h264-aac.mp4", "list/b.mp4");
        c = t.media("native-h264-aac.mp4", "list/c.mp4");
        mpris = std::make_unique<MprisService>(t.player, QDBusConnection::sessionBus());
        QCOMPARE(mpris->serviceName(), QStringLiteral("org.mpris.MediaPlayer2.quorvane"));
        client.service = mpris->serviceName();
        client.listen();
    }

    void rootInterface()
    {
        const QString root = QStringLiteral("org.mpris.MediaPlayer2");
        QCOMPARE(client.get("Identity", root).toString(), "Quorvane Player");
        QCOMPARE(client.get("DesktopEntry", root).toString(), "quorvane-player");
        QCOMPARE(client.get("SupportedUriSchemes", root).toStringList(), QStringList{"file"});
        const QStringList mimeTypes = client.get("SupportedMimeTypes", root).toStringList();
        QVERIFY(mimeTypes.contains("video/x-matroska") && mimeTypes.contains("video/x-flv"));
        QVERIFY(client.get("CanRaise", root).toBool() && client.get("CanQuit", root).toBool());
        QSignalSpy raised(mpris.get(), &MprisService::raiseRequested);
        QCOMPARE(client.call(root, "Raise").type(), QDBusMessage::ReplyMessage);
        QCOMPARE(raised.count(), 1);
        QCOMPARE(client.status(), "Stopped");
    }

    void openUriPlaysAndReports()
    {
        client.play("OpenUri", {b.toString()});
        QVERIFY(waitPlaying(b));
        const QVariantMap metadata = client.metadata();
        QCOMPARE(metadata.value("xesam:url").toString(), b.toString());
        QCOMPARE(metadata.value("xesam:title").toString(), "b");
        QVERIFY(std::abs(metadata.value("mpris:length").toLongLong() - 3'000'000) < 300'000);
        QVERIFY(trackId().path().startsWith("/io/github/quorvane/"));
        QTRY_COMPARE_WITH_TIMEOUT(client.lastChange("PlaybackStatus").toString(), "Playing", 5000);
        QTRY_COMPARE_WITH_TIMEOUT(
            toMap(client.lastChange("Metadata")).value("xesam:url").toString(), b.toString(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(t.player.playlist().size() == 3, 10000);
        QTRY_VERIFY(client.get("CanGoNext").toBool() && client.get("CanGoPrevious").toBool());
    }

    void playPauseToggles()
    {
        const struct {
            const char* method;
            const char* status;
        } steps[] = {{"PlayPause", "Paused"}, {"PlayPause", "Playing"}, {"Pause", "Paused"},
                     {"Pause", "Paused"},     {"Play", "Playing"},      {"Play", "Playing"},
                     {"Pause", "Paused"}};
        for (const auto& step : steps) {
            client.play(step.method);
            QCOMPARE(client.status(), step.status);
            QTRY_COMPARE_WITH_TIMEOUT(client.lastChange("PlaybackStatus").toString(), step.status,
                                      5000);
        }
    }

    void seekAndSetPositionMove()
    {
        QTRY_VERIFY_WITH_TIMEOUT(!t.player.hasPendingSeek(), 5000);
        const double start = position();
        client.seeks.clear();
        client.play("Seek", {qlonglong(1'000'000)});
        QVERIFY(std::abs(position() - (start + 1)) < 0.05);
        QTRY_COMPARE_WITH_TIMEOUT(client.seeks.size(), 1, 5000);
        QVERIFY(std::abs(client.seeks.first() / 1e6 - (start + 1)) < 0.05);

        client.play("SetPosition", {QVariant::fromValue(trackId()), qlonglong(2'000'000)});
        QCOMPARE(position(), 2.0);
        QTRY_COMPARE_WITH_TIMEOUT(client.seeks.size(), 2, 5000);
        QCOMPARE(client.seeks.last(), 2'000'000);
        // Backwards past the start lands on the start.
        client.play("Seek", {qlonglong(-10'000'000)});
        QCOMPARE(position(), 0.0);
    }

    void badCallsChangeNothing()
    {
        QTRY_VERIFY_WITH_TIMEOUT(!t.player.hasPendingSeek(), 5000);
        client.play("SetPosition", {QVariant::fromValue(trackId()), qlonglong(1'500'000)});
        QTRY_VERIFY_WITH_TIMEOUT(!t.player.hasPendingSeek(), 5000);
        const QVariant current = QVariant::fromValue(trackId());
        const QVariant stale =
            QVariant::fromValue(QDBusObjectPath("/io/github/quorvane/Player/Track/0"));
        const QVariant nan = std::nan("");
        const QString folder = QUrl::fromLocalFile(t.dir.path()).toString();
        const struct {
            const char* name;
            std::function<QDBusMessage()> call;
        } cases[] = {
            {"stale track id",
             [&] {
                 return client.play("SetPosition", {stale, qlonglong(0)});
             }},
            {"negative position",
             [&] {
                 return client.play("SetPosition", {current, qlonglong(-1)});
             }},
            {"past the end",
             [&] {
                 return client.play("SetPosition", {current, qlonglong(9e6)});
             }},
            {"NaN position",
             [&] {
                 return client.play("SetPosition", {current, nan});
             }},
            {"NaN offset", [&] { return client.play("Seek", {nan}); }},
            {"rate 0.1", [&] { return client.set("Rate", 0.1); }},
            {"rate 5", [&] { return client.set("Rate", 5.0); }},
            {"rate NaN", [&] { return client.set("Rate", nan); }},
            {"volume -1", [&] { return client.set("Volume", -1.0); }},
            {"volume 7", [&] { return client.set("Volume", 7.0); }},
            {"volume as text", [&] { return client.set("Volume", QStringLiteral("loud")); }},
            {"web URI", [&] { return client.play("OpenUri", {"https://example.com/a.mp4"}); }},
            {"missing file", [&] { return client.play("OpenUri", {"file:///no/such/file.mp4"}); }},
            {"a folder", [&] { return client.play("OpenUri", {folder}); }},
            {"not a URI", [&] { return client.play("OpenUri", {"%%%"}); }},
        };
        for (const auto& c : cases) {
            const double before = t.player.position();
            c.call();
            QTest::qWait(50);
            QVERIFY2(std::abs(t.player.position() - before) < 0.05, c.name);
            QVERIFY2(t.player.speed() == 1.0 && t.player.volume() == 80, c.name);
            QVERIFY2(t.player.currentURL() == b && t.player.error().isEmpty(), c.name);
            QVERIFY2(t.player.paused(), c.name);
        }
    }

    void rateAndVolumeApply()
    {
        QCOMPARE(client.set("Rate", 2.0).type(), QDBusMessage::ReplyMessage);
        QCOMPARE(t.player.speed(), 2.0);
        QTRY_COMPARE_WITH_TIMEOUT(client.lastChange("Rate").toDouble(), 2.0, 5000);
        client.set("Rate", 1.0);
        client.set("Volume", 0.5);
        QCOMPARE(t.player.volume(), 50.0);
        QCOMPARE(client.get("Volume").toDouble(), 0.5);
        QTRY_COMPARE_WITH_TIMEOUT(client.lastChange("Volume").toDouble(), 0.5, 5000);
        QCOMPARE(client.get("MinimumRate").toDouble(), 0.25);
        QCOMPARE(client.get("MaximumRate").toDouble(), 4.0);
    }

    void nextAndPreviousFollowThePlaylist()
    {
        const QDBusObjectPath bTrack = trackId();
        client.play("Next");
        QVERIFY(waitPlaying(c));
        QVERIFY(trackId() != bTrack);
        QVERIFY(!client.get("CanGoNext").toBool());
        client.play("Next"); // the last entry: nothing to go to
        QCOMPARE(t.player.currentURL(), c);
        // An id read while b played does not move c.
        client.play("Pause");
        QTRY_VERIFY_WITH_TIMEOUT(!t.player.hasPendingSeek(), 5000);
        const double before = t.player.position();
        client.play("SetPosition", {QVariant::fromValue(bTrack), qlonglong(0)});
        QCOMPARE(t.player.position(), before);

        client.play("Previous");
        QVERIFY(waitPlaying(b));
        client.play("Previous");
        QVERIFY(waitPlaying(a));
        QVERIFY(!client.get("CanGoPrevious").toBool());
        QCOMPARE(client.metadata().value("xesam:title").toString(), "a");
    }

    void handedFilesOpen()
    {
        const QUrl x = t.media("native-h264-aac.mp4", "more/x.mp4");
        const QUrl y = t.media("native-aac.m4a", "more/y.m4a");
        openHandedFiles(t.player, {x, y});
        QVERIFY(waitPlaying(x));
        QTRY_VERIFY_WITH_TIMEOUT(t.player.playlist().contains(y), 10000);
        openHandedFiles(t.player, {c});
        QVERIFY(waitPlaying(c));
        openHandedFiles(t.player, {}); // a launch without files changes nothing
        QCOMPARE(t.player.currentURL(), c);
    }

    void aLaterLaunchReachesThePlayerAndRaisesTheWindow()
    {
        QTemporaryDir socketDir;
        const QString server = socketDir.filePath("player.socket");
        SingleInstance running(server);
        QVERIFY(running.start({}));
        const QDBusConnection none = QDBusConnection::connectToBus(
            QStringLiteral("unix:path=/nonexistent/bus"), QStringLiteral("no-bus"));
        QTest::ignoreMessage(QtInfoMsg, "no session bus: media keys and MPRIS control are off");
        DesktopIntegration desktop(t.player, &running, none);
        QWindow window;
        window.show();
        window.setWindowStates(Qt::WindowMinimized);

        SingleInstance later(server);
        QVERIFY(!later.start({b}));
        QVERIFY(waitPlaying(b));
        QTRY_VERIFY(!(window.windowStates() & Qt::WindowMinimized));
    }

    void withoutASessionBusThePlayerRuns()
    {
        const QDBusConnection none = QDBusConnection::connectToBus(
            QStringLiteral("unix:path=/nonexistent/bus"), QStringLiteral("no-bus"));
        QTest::ignoreMessage(QtInfoMsg, "no session bus: media keys and MPRIS control are off");
        DesktopIntegration desktop(t.player, nullptr, none);
        QVERIFY(!desktop.mpris().isRegistered());
        t.player.open(a);
        QVERIFY(waitPlaying(a));
    }
};

#include "tst_mpris.moc"

int runMprisTests(int argc, char** argv)
{
    TestMpris test;
    return QTest::qExec(&test, argc, argv);
}
