// The screen-saver inhibition against a stand-in org.freedesktop.ScreenSaver on the private bus
// (a build machine has no screen saver), with a real player playing generated media.
#include "BusTestSupport.h"
#include "ScreenSaverInhibitor.h"

#include <QDBusConnectionInterface>
#include <QScopeGuard>

using namespace quorvane;
using namespace quorvane::testing;

// Hands out cookies and remembers which are still held.
class StandInScreenSaver : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")

public:
    int inhibits = 0;
    int uninhibits = 0;
    QSet<uint> held;
    uint nextCookie = 41;

public slots:
    Q_SCRIPTABLE uint Inhibit(const QString&, const QString&)
    {
        ++inhibits;
        held.insert(++nextCookie);
        return nextCookie;
    }
    Q_SCRIPTABLE void UnInhibit(uint cookie)
    {
        ++uninhibits;
        held.remove(cookie);
    }
};

// The desktop portal's Inhibit: each grant is a request object whose Close() ends it.
class StandInPortalRequest : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Request")

public:
    QSet<QString>* open = nullptr;
    QString path;

public slots:
    Q_SCRIPTABLE void Close() { open->remove(path); }
};

class StandInPortal : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Inhibit")

public:
    explicit StandInPortal(QDBusConnection bus) : m_bus(std::move(bus)) {}
    QList<uint> flags;
    QSet<QString> open;

public slots:
    Q_SCRIPTABLE QDBusObjectPath Inhibit(const QString&, uint flags, const QVariantMap&)
    {
        this->flags.append(flags);
        auto* request = new StandInPortalRequest;
        request->setParent(this);
        request->open = &open;
        request->path =
            QStringLiteral("/org/freedesktop/portal/desktop/request/t%1").arg(this->flags.size());
        m_bus.registerObject(request->path, request, QDBusConnection::ExportScriptableSlots);
        open.insert(request->path);
        return QDBusObjectPath(request->path);
    }

private:
    QDBusConnection m_bus;
};

class TestScreenSaver : public QObject {
    Q_OBJECT

    QDBusConnection service =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("screensaver"));
    std::unique_ptr<StandInScreenSaver> saver;
    std::unique_ptr<PlayerUnderTest> t;
    std::unique_ptr<ScreenSaverInhibitor> inhibitor;

    bool waitPlaying(const QUrl& url)
    {
        return QTest::qWaitFor([&] { return t->player.currentURL() == url && t->playing(); },
                               30000);
    }
    // Settles: no call still on its way changes the counts.
    void settle() { QTest::qWait(300); }

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

    void aPlayingVideoHoldsOneInhibitionAcrossPausesAndFiles()
    {
        const QUrl first = t->media("native-h264-aac.mp4", "v/1.mp4");
        const QUrl second = t->media("native-h264-aac.mp4", "v/2.mp4");
        t->player.open(first);
        QVERIFY(waitPlaying(first));
        QTRY_COMPARE_WITH_TIMEOUT(saver->held.size(), 1, 5000);
        QCOMPARE(saver->inhibits, 1);

        t->player.toggle(); // pause
        QTRY_VERIFY_WITH_TIMEOUT(saver->held.isEmpty(), 5000);
        t->player.toggle(); // play
        QTRY_COMPARE_WITH_TIMEOUT(saver->held.size(), 1, 5000);

        t->player.open(second); // while playing: the first file's cookie goes back
        QVERIFY(waitPlaying(second));
        settle();
        QCOMPARE(saver->held.size(), 1);
        QCOMPARE(saver->inhibits, 3);
        QCOMPARE(saver->uninhibits, 2);

        // The last file of the folder plays to its end and stays there.
        QTRY_VERIFY_WITH_TIMEOUT(t->player.paused(), 20000);
        QTRY_VERIFY_WITH_TIMEOUT(saver->held.isEmpty(), 5000);
        QCOMPARE(inhibitor->held(), ScreenSaverInhibitor::Hold::None);
    }

    void closingReleases()
    {
        const QUrl video = t->media("native-h264-aac.mp4", "v/1.mp4");
        t->player.open(video);
        QVERIFY(waitPlaying(video));
        QTRY_COMPARE_WITH_TIMEOUT(saver->held.size(), 1, 5000);
        inhibitor.reset(); // the window closes
        QTRY_VERIFY_WITH_TIMEOUT(saver->held.isEmpty(), 5000);
        QCOMPARE(saver->inhibits, 1);
    }

    void audioLeavesTheScreenSaverAlone()
    {
        const QUrl audio = t->media("native-aac.m4a", "a/1.m4a");
        t->player.open(audio);
        QVERIFY(waitPlaying(audio));
        settle();
        QCOMPARE(inhibitor->held(), ScreenSaverInhibitor::Hold::Sleep);
        QCOMPARE(saver->inhibits, 0);
    }

    void thePortalStandsInForAMissingScreenSaver()
    {
        service.unregisterService("org.freedesktop.ScreenSaver");
        StandInPortal portal(service);
        QVERIFY(service.registerObject("/org/freedesktop/portal/desktop", &portal,
                                       QDBusConnection::ExportScriptableSlots));
        QVERIFY(service.registerService("org.freedesktop.portal.Desktop"));
        const auto unregister = qScopeGuard([&] {
            service.unregisterService("org.freedesktop.portal.Desktop");
            service.unregisterObject("/org/freedesktop/portal/desktop",
                                     QDBusConnection::UnregisterTree);
        });

        const QUrl video = t->media("native-h264-aac.mp4", "v/1.mp4");
        const QUrl audio = t->media("native-aac.m4a", "a/1.m4a");
        t->player.open(video);
        QVERIFY(waitPlaying(video));
        QTRY_COMPARE_WITH_TIMEOUT(portal.open.size(), 1, 5000);
        t->player.toggle();
        QTRY_VERIFY_WITH_TIMEOUT(portal.open.isEmpty(), 5000);
        // Audio asks only that the computer does not suspend (4); video also keeps it from idling
        // (8).
        t->player.open(audio);
        QVERIFY(waitPlaying(audio));
        QTRY_COMPARE_WITH_TIMEOUT(portal.flags, (QList<uint>{12, 4}), 5000);
        QCOMPARE(portal.open.size(), 1);
        QCOMPARE(saver->inhibits, 0);
        inhibitor.reset();
        QTRY_VERIFY_WITH_TIMEOUT(portal.open.isEmpty(), 5000);
    }

    void aMissingServiceIsNotAnError()
    {
        service.unregisterService("org.freedesktop.ScreenSaver");
        QTest::failOnWarning(QRegularExpression("inhibit|screen saver|portal"));
        const QUrl video = t->media("native-h264-aac.mp4", "v/1.mp4");
        t->player.open(video);
        QVERIFY(waitPlaying(video));
        settle();
        QCOMPARE(inhibitor->held(), ScreenSaverInhibitor::Hold::Screen);
        QCOMPARE(saver->inhibits, 0);
    }
};

#include "tst_screensaver.moc"

int runScreenSaverTests(int argc, char** argv)
{
    TestScreenSaver test;
    return QTest::qExec(&test, argc, argv);
}
