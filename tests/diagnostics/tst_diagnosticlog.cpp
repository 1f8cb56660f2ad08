#include "DiagnosticLog.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <filesystem>
#include <thread>
#include <vector>

using quorvane::DiagnosticLog;
using namespace Qt::StringLiterals;

namespace {

// A clock the test moves by hand.
struct TestClock {
    QDateTime now = QDateTime(QDate(2026, 11, 20), QTime(12, 0), Qt::UTC);
    DiagnosticLog::Clock clock()
    {
        return [this] { return now; };
    }
    void advanceMs(qint64 ms) { now = now.addMSecs(ms); }
};

// Twelve fields of 64 characters each: the widest entry the log keeps.
DiagnosticLog::Fields wideFields()
{
    DiagnosticLog::Fields fields;
    for (int i = 0; i < 12; ++i)
        fields.insert(u"k%1"_s.arg(i, 2, 10, QLatin1Char('0')), QString(64, 'v'));
    return fields;
}

QJsonArray readArray(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).array()
                                          : QJsonArray();
}

void writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(data);
}

int posixMode(const QString& path)
{
    const auto status = std::filesystem::status(path.toStdString());
    return int(status.permissions() & std::filesystem::perms::all);
}

} // namespace

class DiagnosticLogTest : public QObject {
    Q_OBJECT

private slots:
    void safeTextRuleGuardsEveryStoredText()
    {
        for (const auto& text : {u"a:b+c-d.e_f"_s, QString(64, 'x')})
            QVERIFY(DiagnosticLog::isSafe(text));
        for (const auto& text :
             {QString(65, 'x'), QString(), u"media open"_s, u"café"_s, u"a\nb"_s})
            QVERIFY(!DiagnosticLog::isSafe(text));

        TestClock clock;
        DiagnosticLog log({}, clock.clock());
        log.record(u"media open"_s);
        log.record(QString(65, 'e'));
        QVERIFY(log.entries().isEmpty());

        // Unsafe pairs go one by one; the rest of the event stays.
        log.record(u"media.open"_s,
                   {{"ext", "mkv"}, {"path", "/Users/x/Movie.mkv"}, {"bad key", "1"}});
        QCOMPARE(log.entries().size(), 1);
        QCOMPARE(log.entries().first().fields, DiagnosticLog::Fields({{"ext", "mkv"}}));

        // Thirteen safe fields: the first twelve in key order survive.
        DiagnosticLog::Fields many;
        for (char c = 'm'; c >= 'a'; --c)
            many.insert(QString(QLatin1Char(c)), u"1"_s);
        log.record(u"many"_s, many);
        QCOMPARE(log.entries().last().fields.keys().join(QString()), u"abcdefghijkl"_s);
    }

    void duplicatesWithinOneSecondAreSuppressed()
    {
        TestClock clock;
        DiagnosticLog log({}, clock.clock());
        const QString event = u"playback.state"_s;
        log.record(event, {{"paused", "true"}});
        clock.advanceMs(500);
        log.record(event, {{"paused", "true"}});
        log.record(event, {{"paused", "false"}}); // other fields: a new event
        QCOMPARE(log.entries().size(), 2);
        clock.advanceMs(1000);
        log.record(event, {{"paused", "false"}});
        QCOMPARE(log.entries().size(), 3);
        // Fields are compared after unsafe pairs are dropped.
        clock.advanceMs(10);
        log.record(event, {{"paused", "false"}, {"name", "a b"}});
        QCOMPARE(log.entries().size(), 3);
    }

    void countAndAgeLimitsDropOldestEntries()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"diagnostics.json"_s);
        TestClock clock;
        DiagnosticLog log(path, clock.clock());
        for (int i = 0; i < 201; ++i)
            log.record(u"e%1"_s.arg(i));
        QCOMPARE(log.entries().size(), 200);
        QCOMPARE(log.entries().first().event, u"e1"_s);
        QCOMPARE(readArray(path).size(), 200);

        // A week later old entries leave the report at once and the file at the next record.
        clock.advanceMs(604800LL * 1000 + 1);
        QCOMPARE(log.report({}), u"Diagnostics v1  storage=ok\n"_s);
        QCOMPARE(readArray(path).size(), 200);
        log.record(u"fresh"_s);
        QCOMPARE(log.entries().size(), 1);
        QCOMPARE(readArray(path).size(), 1);

        // Loading keeps only entries younger than a week.
        QVERIFY(DiagnosticLog(path, [&] { return clock.now.addSecs(604800); }).entries().isEmpty());
    }

    void fileIsPrivateAndRoundTrips()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"Quorvane Player/Logs/diagnostics.json"_s);
        TestClock clock;
        clock.now = QDateTime(QDate(2001, 1, 2), QTime(0, 0, 0, 250), Qt::UTC);
        DiagnosticLog(path, clock.clock()).record(u"media.open"_s, {{"ext", "mkv"}});

        QCOMPARE(posixMode(path), 0600);
        QCOMPARE(posixMode(dir.filePath(u"Quorvane Player"_s)), 0700);
        QCOMPARE(posixMode(dir.filePath(u"Quorvane Player/Logs"_s)), 0700);

        // Compact JSON; times are fractional seconds from 2001-01-01T00:00:00Z.
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray raw = file.readAll();
        QVERIFY(!raw.contains('\n'));
        QCOMPARE(QJsonDocument::fromJson(raw)[0]["time"].toDouble(), 86400.25);

        const DiagnosticLog reloaded(path, clock.clock());
        QCOMPARE(reloaded.entries(),
                 QList<DiagnosticLog::Entry>({{clock.now, u"media.open"_s, {{"ext", "mkv"}}}}));

        // Storage that fails is remembered and reported; recording goes on in memory.
        writeFile(dir.filePath(u"blocker"_s), "x");
        DiagnosticLog blocked(dir.filePath(u"blocker/Logs/diagnostics.json"_s), clock.clock());
        blocked.record(u"media.open"_s);
        QVERIFY(blocked.storageFailed() && blocked.entries().size() == 1);
        QVERIFY(blocked.report({}).startsWith(u"Diagnostics v1  storage=unavailable\n"_s));
    }

    void fileStaysUnder64KiB()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"diagnostics.json"_s);
        TestClock clock;
        DiagnosticLog log(path, clock.clock());
        for (int i = 0; i < 200; ++i)
            log.record(u"wide%1"_s.arg(i), wideFields());
        QVERIFY(QFileInfo(path).size() <= 65536);
        // Entries dropped for size are gone from memory too; the newest always stays.
        QCOMPARE(readArray(path).size(), log.entries().size());
        QVERIFY(log.entries().size() < 200);
        QCOMPARE(log.entries().last().event, u"wide199"_s);
    }

    void badFilesStartAnEmptyLog()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"diagnostics.json"_s);
        TestClock clock;
        const QByteArray now =
            QByteArray::number((clock.now.toMSecsSinceEpoch() - 978307200000LL) / 1000.0, 'f', 3);
        const auto entry = [&](const char* event, const char* fields) {
            return "{\"time\":" + now + ",\"event\":\"" + event + "\",\"fields\":" + fields + "}";
        };

        for (const QByteArray& data :
             {QByteArray("not json"), QByteArray("{\"time\":1}"),
              "[" + entry("ok", "{\"n\":1}") + "]", "[" + entry("ok", "{}") + ",42]",
              QByteArray("[{\"event\":\"ok\",\"fields\":{}}]")}) {
            writeFile(path, data);
            QVERIFY2(DiagnosticLog(path, clock.clock()).entries().isEmpty(), data.constData());
        }

        // A well-formed file beyond 64 KiB is ignored whole.
        QByteArray big = "[" + entry("ok", "{}");
        while (big.size() <= 65536)
            big += "," + entry("ok", "{}");
        writeFile(path, big + "]");
        QVERIFY(DiagnosticLog(path, clock.clock()).entries().isEmpty());

        // Loading drops unsafe events and cleans unsafe fields.
        writeFile(path, "[" + entry("bad event", "{}") + "," +
                            entry("good", "{\"p\":\"/home/x\",\"ext\":\"flv\"}") + "]");
        const DiagnosticLog log(path, clock.clock());
        QCOMPARE(log.entries().size(), 1);
        QCOMPARE(log.entries().first().fields, DiagnosticLog::Fields({{"ext", "flv"}}));
    }

    void reportLayoutAndLengthCap()
    {
        TestClock clock;
        clock.now = QDateTime(QDate(2026, 3, 4), QTime(5, 6, 7, 890), Qt::UTC);
        DiagnosticLog log({}, clock.clock());
        const DiagnosticLog::Fields metadata{
            {"app", "QuorvanePlayer"}, {"os", "6.1.0"}, {"note", "has space"}};
        QCOMPARE(log.report(metadata),
                 u"Diagnostics v1 app=QuorvanePlayer os=6.1.0 storage=ok\n"_s);

        log.record(u"media.open"_s, {{"z", "1"}, {"a", "2"}});
        QCOMPARE(log.report(metadata).section('\n', 1),
                 u"2026-03-04T05:06:07Z media.open a=2 z=1"_s);

        // Below 3501 UTF-16 units, by dropping the oldest lines and no more than needed.
        for (int i = 0; i < 20; ++i) {
            clock.advanceMs(1000);
            log.record(u"wide%1"_s.arg(i, 2, 10, QLatin1Char('0')), wideFields());
        }
        const QString report = log.report(metadata);
        QVERIFY(report.size() < 3501);
        QVERIFY(report.contains(u" wide19 "_s));
        QVERIFY(!report.contains(u"media.open"_s));
        const QStringList lines = report.split('\n');
        static const QRegularExpression line(
            u"^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ wide\\d\\d( k\\d\\d=v{64}){12}$"_s);
        for (const auto& text : lines.mid(1))
            QVERIFY2(line.match(text).hasMatch(), qPrintable(text));
        QVERIFY(report.size() + 1 + lines.at(1).size() >= 3501);
    }

    void concurrentRecordsAreAllKept()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"diagnostics.json"_s);
        DiagnosticLog log(path);
        {
            std::vector<std::jthread> threads;
            for (int t = 0; t < 4; ++t)
                threads.emplace_back([&log, t] {
                    for (int i = 0; i < 40; ++i)
                        log.record(u"t%1.e%2"_s.arg(t).arg(i));
                });
        }
        QCOMPARE(log.entries().size(), 160);
        QCOMPARE(readArray(path).size(), 160);
    }

    void sharedLogLivesUnderTheDataDirectory()
    {
        QStandardPaths::setTestModeEnabled(true);
        const QString path = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                             u"/Quorvane Player/Logs/diagnostics.json"_s;
        QFile::remove(path);

        auto& shared = quorvane::SupportDiagnostics::log();
        QCOMPARE(shared.filePath(), path);
        shared.record(u"media.open"_s, {{"ext", "webm"}});
        QCOMPARE(posixMode(path), 0600);

        const QString report = quorvane::SupportDiagnostics::report();
        static const QRegularExpression header(
            u"^Diagnostics v1 app=QuorvanePlayer arch=\\S+ build=\\S+ os=\\d+\\.\\d+\\.\\d+ "
            "version=\\S+ storage=ok\n\\S+ media.open ext=webm$"_s);
        QVERIFY2(header.match(report).hasMatch(), qPrintable(report));
        for (const auto& value : quorvane::SupportDiagnostics::metadata())
            QVERIFY2(DiagnosticLog::isSafe(value), qPrintable(value));
        QFile::remove(path);
    }
};

QTEST_GUILESS_MAIN(DiagnosticLogTest)
#include "tst_diagnosticlog.moc"
