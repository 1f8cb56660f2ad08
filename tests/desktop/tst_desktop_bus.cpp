// MPRIS and the screen-saver inhibition over the private session bus of dbus-run-session, against
// a real player playing generated media. The MPRIS cases run in order on one player, on a file
// opened through the bus; the screen saver is a stand-in (a build machine has none).
#include "BusTestSupport.h"
#include "MprisService.h"
#include "ScreenSaverInhibitor.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>

#include <QGuiApplication>

#include <cmath>

using namespace quorvane;
using namespace quorvane::testing;

namespace {

QVariantMap toMap(const QVariant& value)
{
    return value.canConvert<QDBusArgument>() ? qdbus_cast<QVariantMap>(value.value<QDBusArgument>())
                                             : value.toMap();
}

const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");
const QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");

} // namespace

// A client on its own bus connection. Calls block with the GUI running because the service
// answering them lives on this thread.
class BusClient : public QObject {
    Q_OBJECT

public:
    QDBusConnection bus =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("test-client"));
    QString service = QStringLiteral("org.mpris.MediaPlayer2.quorvane");
    QString path = QStringLiteral("/org/mpris/MediaPlayer2");
    QList<QVariantMap> playerChanges; // PropertiesChanged of the Player interface, values unpacked
    QList<qlonglong> seeks;

    void listen()
    {
        bus.connect(service, path, properties, "PropertiesChanged", this,
                    SLOT(propertiesChanged(QString, QVariantMap, QStringList)));
        bus.connect(service, path, playerInterface, "Seeked", this, SLOT(seeked(qlonglong)));
    }
    QDBusMessage call(const QString& interface, const QString& method, const QVariantList& args)
    {
        QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
        message.setArguments(args);
        return bus.call(message, QDBus::BlockWithGui, 10000);
    }
    QDBusMessage play(const QString& method, const QVariantList& args = {})
    {
        return call(playerInterface, method, args);
    }
    QVariant get(const QString& name)
    {
        const QDBusMessage reply = call(properties, "Get", {playerInterface, name});
        return reply.arguments().isEmpty()
                   ? QVariant()
                   : reply.arguments().first().value<QDBusVariant>().variant();
    }
    QDBusMessage set(const QString& name, const QVariant& value)
    {
        return call(properties, "Set",
                    {playerInterface, name, QVariant::fromValue(QDBusVariant(value))});
    }
    QString status() { return get("PlaybackStatus").toString(); }
    QVariantMap metadata() { return toMap(get("Metadata")); }
    // The most recent value a PropertiesChanged carried for `name`.
    QVariant lastChange(const QString& name) const
    {
        for (auto it = playerChanges.crbegin(); it != playerChanges.crend(); ++it)
            if (it->contains(name))
                return name == "Metadata" ? toMap(it->value(name)) : it->value(name);
        return {};
    }

public slots:
    void propertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList&)
    {
        if (interface == playerInterface) playerChanges.append(changed);
    }
    void seeked(qlonglong position) { seeks.append(position); }
};

// Hands out cookies and remembers which are still held.
class StandInScreenSaver : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")

public:
    int inhibits = 0;
    QSet<uint> held;

public slots:
    Q_SCRIPTABLE uint Inhibit(const QString&, const QString&)
    {
        held.insert(41 + ++inhibits);
        return 41 + inhibits;
    }
    Q_SCRIPTABLE void UnInhibit(uint cookie) { held.remove(cookie); }
};

class TestDesktopBus : public QObject {
    Q_OBJECT

    PlayerUnderTest t;
    std::unique_ptr<MprisService> mpris;
    BusClient client;
    QUrl b;

    double position() { return client.get("Position").toLongLong() / 1e6; }
    QVariant trackId() { return client.metadata().value("mpris:trackid"); }
    bool waitPlaying(const QUrl& url)
    {
        return t.waitPlaying(url) && client.status() == QLatin1String("Playing");
    }
    void settleSeek() { QTRY_VERIFY_WITH_TIMEOUT(!t.player.hasPendingSeek(), 5000); }

private slots:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::sessionBus().isConnected(), "run under dbus-run-session");
        b = t.media("native-h264-aac.mp4", "list/b.mp4");
        mpris = std::make_unique<MprisService>(t.player, QDBusConnection::sessionBus());
        QCOMPARE(mpris->serviceName(), client.service);
        client.listen();
    }

    // A desktop shell's session: a file opened through the bus, its metadata, play/pause and
    // seeks, each with the signal the shell listens to.
    void roundTrip()
    {
        QCOMPARE(client.status(), "Stopped");
        client.play("OpenUri", {b.toString()});
        QVERIFY(waitPlaying(b));
        QCOMPARE(client.metadata().value("xesam:title").toString(), "b");
        QVERIFY(std::abs(client.metadata().value("mpris:length").toLongLong() - 3e6) < 3e5);
        QTRY_COMPARE_WITH_TIMEOUT(client.lastChange("Metadata").toMap().value("xesam:url"),
                                  b.toString(), 5000);

        const std::pair<const char*, const char*> steps[] = {
            {"PlayPause", "Paused"}, {"PlayPause", "Playing"}, {"Pause", "Paused"},
            {"Pause", "Paused"},     {"Play", "Playing"},      {"Pause", "Paused"}};
        for (const auto& [method, status] : steps) {
            client.play(method);
            QCOMPARE(client.status(), status);
            QTRY_COMPARE_WITH_TIMEOUT(client.lastChange("PlaybackStatus").toString(), status, 5000);
        }

        settleSeek();
        const double start = position();
        client.play("Seek", {qlonglong(1'000'000)});
        QVERIFY(std::abs(position() - (start + 1)) < 0.05);
        QTRY_COMPARE_WITH_TIMEOUT(client.seeks.size(), 1, 5000);
        QVERIFY(std::abs(client.seeks.first() / 1e6 - (start + 1)) < 0.05);
        client.play("SetPosition", {trackId(), qlonglong(2'000'000)});
        QCOMPARE(position(), 2.0);
        client.play("Seek", {qlonglong(-10'000'000)}); // past the start lands on the start
        QCOMPARE(position(), 0.0);
        QCOMPARE(client.set("Rate", 2.0).type(), QDBusMessage::ReplyMessage);
        QCOMPARE(t.player.speed(), 2.0);
    }

    void badCallsChangeNothing()
    {
        settleSeek();
        client.play("SetPosition", {trackId(), qlonglong(1'500'000)});
        settleSeek();
        const QVariant id = trackId();
        const QVariant stale =
            QVariant::fromValue(QDBusObjectPath("/io/github/quorvane/Player/Track/0"));
        const QVariant nan = std::nan("");
        const double speed = t.player.speed(), volume = t.player.volume();
        // A capitalised name is a method of the Player interface, otherwise a property to set.
        const std::tuple<const char*, const char*, QVariantList> cases[] = {
            {"stale track id", "SetPosition", {stale, qlonglong(0)}},
            {"negative position", "SetPosition", {id, qlonglong(-1)}},
            {"past the end", "SetPosition", {id, qlonglong(9e6)}},
            {"NaN position", "SetPosition", {id, nan}},
            {"NaN offset", "Seek", {nan}},
            {"rate 0.1", "rate", {0.1}},
            {"rate 5", "rate", {5.0}},
            {"rate NaN", "rate", {nan}},
            {"volume -1", "volume", {-1.0}},
            {"volume 7", "volume", {7.0}},
            {"volume as text", "volume", {"loud"}},
            {"web URI", "OpenUri", {"https://example.com/a.mp4"}},
            {"missing file", "OpenUri", {"file:///no/such/file.mp4"}},
            {"a folder", "OpenUri", {QUrl::fromLocalFile(t.dir.path()).toString()}},
            {"not a URI", "OpenUri", {"%%%"}},
        };
        for (const auto& [name, method, args] : cases) {
            const double before = t.player.position();
            const QString m = QString::fromLatin1(method);
            if (m.front().isUpper())
                client.play(m, args);
            else
                client.set(m.front().toUpper() + m.mid(1), args.first());
            QTest::qWait(50);
            QVERIFY2(std::abs(t.player.position() - before) < 0.05, name);
            QVERIFY2(t.player.speed() == speed && t.player.volume() == volume, name);
            QVERIFY2(t.player.currentURL() == b && t.player.error().isEmpty(), name);
            QVERIFY2(t.player.paused(), name);
        }
    }

    // One inhibition while a video plays: paused, replaced by the next file or closed, the cookie
    // goes back (a cookie never returned keeps the screen on for good).
    void aPlayingVideoHoldsOneInhibition()
    {
        QDBusConnection service = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                                QStringLiteral("screensaver"));
        StandInScreenSaver saver;
        QVERIFY(service.registerObject("/org/freedesktop/ScreenSaver", &saver,
                                       QDBusConnection::ExportScriptableSlots));
        QVERIFY(service.registerService("org.freedesktop.ScreenSaver"));
        auto inhibitor =
            std::make_unique<ScreenSaverInhibitor>(t.player, QDBusConnection::sessionBus());
        const auto play = [this](const char* path) {
            const QUrl url = t.media("native-h264-aac.mp4", path);
            t.player.open(url);
            return t.waitPlaying(url);
        };

        QVERIFY(play("v/1.mp4"));
        QTRY_COMPARE_WITH_TIMEOUT(saver.held.size(), 1, 5000);
        t.player.toggle(); // pause
        QTRY_VERIFY_WITH_TIMEOUT(saver.held.isEmpty(), 5000);
        t.player.toggle(); // play
        QTRY_COMPARE_WITH_TIMEOUT(saver.held.size(), 1, 5000);
        QVERIFY(play("v/2.mp4"));
        QTest::qWait(300); // no call still on its way changes the counts
        QCOMPARE(saver.held.size(), 1);
        QCOMPARE(saver.inhibits, 3);
        inhibitor.reset();
        QTRY_VERIFY_WITH_TIMEOUT(saver.held.isEmpty(), 5000);
        service.unregisterService("org.freedesktop.ScreenSaver");
    }
};

#include "tst_desktop_bus.moc"

int main(int argc, char** argv)
{
    qputenv("QT_MEDIA_BACKEND", "gstreamer");
    QGuiApplication app(argc, argv);
    TestDesktopBus test;
    return QTest::qExec(&test, argc, argv);
}
