// The single running instance with real processes: later launches hand their files to the first,
// which survives malformed hand-overs, and a socket left behind by a killed player blocks nothing;
// the server name per display and the arguments taken as files.
#include "SingleInstance.h"

#include <QDir>
#include <QLocalSocket>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <memory>

using quorvane::SingleInstance;

class TestSingleInstance : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    QString server() const { return m_dir.filePath(QStringLiteral("player.socket")); }

    // Starts a probe and waits for its first line.
    std::unique_ptr<QProcess> launch(const QStringList& files, QByteArray* firstLine)
    {
        auto process = std::make_unique<QProcess>();
        process->start(QCoreApplication::applicationDirPath() + "/single_instance_probe",
                       QStringList{server()} + files);
        if (!process->waitForStarted(10000)) return process;
        QDeadlineTimer deadline(20000);
        while (!process->canReadLine() && !deadline.hasExpired() &&
               process->state() == QProcess::Running)
            process->waitForReadyRead(200);
        *firstLine = process->readLine().trimmed();
        return process;
    }

    // A later launch with `files` exits at once; the running probe reports `expected`.
    void handOver(QProcess& primary, const QStringList& files, const QByteArray& expected)
    {
        QByteArray line;
        auto second = launch(files, &line);
        QCOMPARE(line, "handed over");
        QVERIFY(second->waitForFinished(10000));
        QCOMPARE(second->exitCode(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(primary.canReadLine(), 10000);
        QCOMPARE(primary.readLine().trimmed(), expected);
    }

private slots:
    void laterLaunchesHandTheirFilesToTheFirst()
    {
        QByteArray line;
        auto primary = launch({}, &line);
        QCOMPARE(line, "primary");

        const QString a = m_dir.filePath("a b.mkv");
        const struct {
            QStringList arguments;
            QByteArray expected;
        } cases[] = {
            {{a, "file:///tmp/x.mp4", "https://example.com/y.mp4", "--verbose"},
             "files: " + QUrl::fromLocalFile(a).toString().toUtf8() + " file:///tmp/x.mp4"},
            {{}, "files:"},
        };
        for (const auto& c : cases)
            handOver(*primary, c.arguments, c.expected);

        // Garbage and an oversized message are dropped; the next real launch still gets through.
        for (const QByteArray& junk : {QByteArray("{not json"), QByteArray(5 << 20, '[')}) {
            QLocalSocket socket;
            socket.connectToServer(server());
            QVERIFY(socket.waitForConnected(5000));
            socket.write(junk);
            socket.disconnectFromServer();
            if (socket.state() != QLocalSocket::UnconnectedState) socket.waitForDisconnected(5000);
        }
        handOver(*primary, {a}, "files: " + QUrl::fromLocalFile(a).toString().toUtf8());

        // A socket file left behind by a killed player does not block the next start.
        ::kill(pid_t(primary->processId()), SIGKILL);
        QVERIFY(primary->waitForFinished(10000));
        QVERIFY(QFileInfo::exists(server()));
        auto next = launch({}, &line);
        QCOMPARE(line, "primary");
        handOver(*next, {a}, "files: " + QUrl::fromLocalFile(a).toString().toUtf8());
        next->kill();
        next->waitForFinished(10000);
    }

    void eachDisplayHasItsOwnPlayer()
    {
        const QByteArray wayland = qgetenv("WAYLAND_DISPLAY"), x11 = qgetenv("DISPLAY");
        const auto restore = qScopeGuard([&] {
            qputenv("WAYLAND_DISPLAY", wayland);
            qputenv("DISPLAY", x11);
        });
        const auto serverFor = [](const char* waylandDisplay, const char* display) {
            waylandDisplay ? qputenv("WAYLAND_DISPLAY", waylandDisplay)
                           : qunsetenv("WAYLAND_DISPLAY");
            qputenv("DISPLAY", display);
            return SingleInstance::defaultServerName();
        };
        const QString seven = serverFor(nullptr, ":7"), eight = serverFor(nullptr, ":8.0"),
                      wayland0 = serverFor("wayland-0", ":8.0");
        QVERIFY(seven != eight && eight != wayland0 && wayland0.contains("wayland-0"));
    }

    void argumentsBecomeFileUrls()
    {
        // Relative names resolve against the working folder, where "clip:1.mkv" exists.
        const QString previous = QDir::currentPath();
        QDir::setCurrent(m_dir.path());
        const auto restore = qScopeGuard([&] { QDir::setCurrent(previous); });
        QFile(QStringLiteral("clip:1.mkv")).open(QIODevice::WriteOnly);
        const QList<QUrl> files = SingleInstance::filesFromArguments(
            {"movie.mkv", "/abs/clip.webm", "file:///abs/song.flac", "http://host/x", "-v", "",
             "clip:1.mkv", "other:2.mkv"});
        QCOMPARE(files,
                 (QList<QUrl>{QUrl::fromLocalFile(m_dir.filePath("movie.mkv")),
                              QUrl::fromLocalFile("/abs/clip.webm"), QUrl("file:///abs/song.flac"),
                              QUrl::fromLocalFile(m_dir.filePath("clip:1.mkv"))}));
    }
};

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "tst_single_instance.moc"
