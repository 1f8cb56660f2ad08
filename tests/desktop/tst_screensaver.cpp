// The screen-saver inhibition against a stand-in org.freedesktop.ScreenSaver on the private bus
// (a build machine has no screen saver), with a real player playing generated media.
#include "BusTestSupport.h"
#include "ScreenSaverInhibitor.h"

using namespace quorvane;
using namespace quorvane::testing;

// Hands out cookies and remembers which are still held.
class StandInScreenSaver : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")

public:
    int inhibits = 0, uninhibits = 0;
    QSet<uint> held;

public slots:
    Q_SCRIPTABLE uint Inhibit(const QString&, const QString&)
    {
        held.insert(41 + ++inhibits);
        return 41 + inhibits;
    }
    Q_SCRIPTABLE void UnInhibit(uint cookie) { ++uninhibits, held.remove(cookie); }
};

class TestScreenSaver : public QObject {
    Q_OBJECT

    QDBusConnection service =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("screensaver"));
    std::unique_ptr<StandInScreenSaver> saver;
    std::unique_ptr<PlayerUnderTest> t;
    std::unique_ptr<ScreenSaverInhibitor> inhibitor;

    QUrl play(const char* fixture, const char* path)
    {
        const QUrl url = t->media(fixture, path);
        t->player.open(url);
        return t->waitPlaying(url) ? url : QUrl();
    }

private slots:
    void init()
    {
        saver = std::make_unique<StandInScreenSaver>();
        QVERIFY(service.registerObject("/org/freedesktop/ScreenSaver", saver.get(),
                                       QDBusConnection::ExportScriptableSlots));
        QVERIFY(service.registerService("org.freedesktop.ScreenSaver"));
        t = std::make_unique<PlayerUnderTest>();
        inhibitor =
            std::make_unique<ScreenSaverInhibitor>(t->player, QDBusConnection::sessionBus());
    }
    void cleanup()
    {
        inhibitor.reset();
        t.reset();
        service.unregisterService("org.freedesktop.ScreenSaver");
        service.unregisterObject("/org/freedesktop/ScreenSaver");
    }

    // One inhibition while a video plays: paused, replaced by the next file or closed, the cookie
    // goes back (a cookie never returned keeps the screen on for good).
    void aPlayingVideoHoldsOneInhibition()
    {
        QVERIFY(!play("native-h264-aac.mp4", "v/1.mp4").isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(saver->held.size(), 1, 5000);
        t->player.toggle(); // pause
        QTRY_VERIFY_WITH_TIMEOUT(saver->held.isEmpty(), 5000);
        t->player.toggle(); // play
        QTRY_COMPARE_WITH_TIMEOUT(saver->held.size(), 1, 5000);
        QVERIFY(!play("native-h264-aac.mp4", "v/2.mp4").isEmpty());
        QTest::qWait(300); // no call still on its way changes the counts
        QCOMPARE(saver->held.size(), 1);
        QCOMPARE(saver->inhibits, 3);
        inhibitor.reset();
        QTRY_VERIFY_WITH_TIMEOUT(saver->held.isEmpty(), 5000);
    }
};

#include "tst_screensaver.moc"

int runScreenSaverTests(int argc, char** argv)
{
    TestScreenSaver test;
    return QTest::qExec(&test, argc, argv);
}
