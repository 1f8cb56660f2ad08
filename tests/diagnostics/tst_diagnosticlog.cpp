#include "DiagnosticLog.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <filesystem>
#include <thread>
#include <vector>

using quorvane::DiagnosticLog;

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

QJsonArray readArray(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return {};
    return QJsonDocument::fromJson(file.readAll()).array();
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
    void safeTextRuleGuardsEveryStoredText();
    void duplicatesWithinOneSecondAreSuppressed();
    void countAndAgeLimitsDropOldestEntries();
    void fileIsPrivateAndRoundTrips();
    void fileStaysUnder64KiB();
    void badFilesStartAnEmptyLog();
    void reportLayoutAndLengthCap();
    void storageFailureIsReportedAndRecordingGoesOn();
    void concurrentRecordsAreAllKept();
    void supportMetadataIsSafe();
    void sharedLogLivesUnderTheDataDirectory();
};

void DiagnosticLogTest::safeTextRuleGuardsEveryStoredText()
{
    QVERIFY(DiagnosticLog::isSafe(QStringLiteral("a:b+c-d.e_f")));
    QVERIFY(DiagnosticLog::isSafe(QString(64, QLatin1Char('x'))));
    QVERIFY(!DiagnosticLog::isSafe(QString(65, QLatin1Char('x'))));
    QVERIFY(!DiagnosticLog::isSafe(QString()));
    QVERIFY(!DiagnosticLog::isSafe(QStringLiteral("media open")));
    QVERIFY(!DiagnosticLog::isSafe(QStringLiteral("caf\u00e9")));
    QVERIFY(!DiagnosticLog::isSafe(QStringLiteral("a\nb")));

    TestClock clock;
    DiagnosticLog log({}, clock.clock());
    log.record(QStringLiteral("media open"));
    log.record(QString(65, QLatin1Char('e')));
    QVERIFY(log.entries().isEmpty());

    log.record(QStringLiteral("media.open"),
               {{QStringLiteral("ext"), QStringLiteral("mkv")},
                {QStringLiteral("path"), QStringLiteral("/Users/x/Movie.mkv")},
                {QStringLiteral("bad key"), QStringLiteral("1")}});
    QCOMPARE(log.entries().size(), 1);
    QCOMPARE(log.entries().first().fields, DiagnosticLog::Fields({{"ext", "mkv"}}));

    // Thirteen safe fields: the first twelve in key order survive.
    DiagnosticLog::Fields many;
    for (char c = 'm'; c >= 'a'; --c)
        many.insert(QString(QLatin1Char(c)), QStringLiteral("1"));
    clock.advanceMs(2000);
    log.record(QStringLiteral("many"), many);
    const auto kept = log.entries().last().fields.keys();
    QCOMPARE(kept.size(), 12);
    QCOMPARE(kept.first(), QStringLiteral("a"));
    QCOMPARE(kept.last(), QStringLiteral("l"));
}

void DiagnosticLogTest::duplicatesWithinOneSecondAreSuppressed()
{
    TestClock clock;
    DiagnosticLog log({}, clock.clock());
    const DiagnosticLog::Fields fields{{"paused", "true"}};
    log.record(QStringLiteral("playback.state"), fields);
    clock.advanceMs(500);
    log.record(QStringLiteral("playback.state"), fields);
    QCOMPARE(log.entries().size(), 1);
    // Different fields inside the window are a new event.
    log.record(QStringLiteral("playback.state"), {{"paused", "false"}});
    QCOMPARE(log.entries().size(), 2);
    clock.advanceMs(1000);
    log.record(QStringLiteral("playback.state"), {{"paused", "false"}});
    QCOMPARE(log.entries().size(), 3);
    // Unsafe pairs are dropped before comparing, so these equal the newest entry.
    clock.advanceMs(10);
    log.record(QStringLiteral("playback.state"), {{"paused", "false"}, {"name", "a b"}});
    QCOMPARE(log.entries().size(), 3);
}

void DiagnosticLogTest::countAndAgeLimitsDropOldestEntries()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("diagnostics.json"));
    TestClock clock;
    DiagnosticLog log(path, clock.clock());
    for (int i = 0; i < 201; ++i)
        log.record(QStringLiteral("e%1").arg(i));
    QCOMPARE(log.entries().size(), 200);
    QCOMPARE(log.entries().first().event, QStringLiteral("e1"));
    QCOMPARE(readArray(path).size(), 200);

    // Seven days later the old entries vanish from the report at once, and from the file at the
    // next record.
    clock.advanceMs(604800LL * 1000 + 1);
    QVERIFY(!log.report({}).contains(QStringLiteral(" e200 ")));
    QCOMPARE(readArray(path).size(), 200);
    log.record(QStringLiteral("fresh"));
    QCOMPARE(log.entries().size(), 1);
    QCOMPARE(readArray(path).size(), 1);

    // Loading keeps only entries younger than seven days.
    DiagnosticLog reloaded(path, [&] { return clock.now.addSecs(604800); });
    QVERIFY(reloaded.entries().isEmpty());
}

void DiagnosticLogTest::fileIsPrivateAndRoundTrips()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("Quorvane Player/Logs/diagnostics.json"));
    TestClock clock;
    clock.now = QDateTime(QDate(2001, 1, 2), QTime(0, 0, 0, 250), Qt::UTC);
    {
        DiagnosticLog log(path, clock.clock());
        log.record(QStringLiteral("media.open"), {{"ext", "mkv"}});
        QVERIFY(!log.storageFailed());
    }
    QCOMPARE(posixMode(path), 0600);
    QCOMPARE(posixMode(dir.filePath(QStringLiteral("Quorvane Player"))), 0700);
    QCOMPARE(posixMode(dir.filePath(QStringLiteral("Quorvane Player/Logs"))), 0700);

    // Times are fractional seconds from 2001-01-01T00:00:00Z; the file is compact JSON.
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray raw = file.readAll();
    QVERIFY(!raw.contains('\n'));
    const auto entry = QJsonDocument::fromJson(raw).array().first().toObject();
    QCOMPARE(entry.value("time").toDouble(), 86400.25);
    QCOMPARE(entry.value("event").toString(), QStringLiteral("media.open"));
    QCOMPARE(entry.value("fields").toObject().value("ext").toString(), QStringLiteral("mkv"));

    DiagnosticLog reloaded(path, clock.clock());
    QCOMPARE(reloaded.entries().size(), 1);
    QCOMPARE(reloaded.entries().first().time, clock.now);
    QCOMPARE(reloaded.entries().first().fields, DiagnosticLog::Fields({{"ext", "mkv"}}));
}

void DiagnosticLogTest::fileStaysUnder64KiB()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("diagnostics.json"));
    TestClock clock;
    DiagnosticLog log(path, clock.clock());
    DiagnosticLog::Fields wide;
    for (int i = 0; i < 12; ++i)
        wide.insert(QStringLiteral("k%1").arg(i, 2, 10, QLatin1Char('0')), QString(64, 'v'));
    for (int i = 0; i < 200; ++i) {
        clock.advanceMs(10);
        log.record(QStringLiteral("wide%1").arg(i), wide);
    }
    QVERIFY(QFileInfo(path).size() <= 65536);
    // The dropped entries are gone from memory too, and the newest is always kept.
    QCOMPARE(readArray(path).size(), log.entries().size());
    QVERIFY(log.entries().size() < 200);
    QCOMPARE(log.entries().last().event, QStringLiteral("wide199"));
}

void DiagnosticLogTest::badFilesStartAnEmptyLog()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("diagnostics.json"));
    TestClock clock;
    const double now = (clock.now.toMSecsSinceEpoch() - 978307200000LL) / 1000.0;
    const auto entryJson = [&](const char* event, const char* fields) {
        return QByteArray("{\"time\":") + QByteArray::number(now, 'f', 3) + ",\"event\":\"" +
               event + "\",\"fields\":" + fields + "}";
    };

    const QList<QByteArray> corrupt{
        "not json", "{\"time\":1}", "[" + entryJson("ok", "{\"n\":1}") + "]",
        "[" + entryJson("ok", "{}") + ",42]", "[{\"event\":\"ok\",\"fields\":{}}]"};
    for (const auto& data : corrupt) {
        writeFile(path, data);
        DiagnosticLog log(path, clock.clock());
        QVERIFY2(log.entries().isEmpty(), data.constData());
    }

    // A valid file beyond 64 KiB is ignored whole.
    QByteArray big = "[" + entryJson("ok", "{}");
    while (big.size() <= 65536)
        big += "," + entryJson("ok", "{}");
    writeFile(path, big + "]");
    QVERIFY(DiagnosticLog(path, clock.clock()).entries().isEmpty());

    // Unsafe events are dropped and unsafe fields cleaned on load; safe neighbours stay.
    writeFile(path, "[" + entryJson("bad event", "{}") + "," +
                        entryJson("good", "{\"p\":\"/home/x\",\"ext\":\"flv\"}") + "]");
    DiagnosticLog log(path, clock.clock());
    QCOMPARE(log.entries().size(), 1);
    QCOMPARE(log.entries().first().fields, DiagnosticLog::Fields({{"ext", "flv"}}));
}

void DiagnosticLogTest::reportLayoutAndLengthCap()
{
    TestClock clock;
    clock.now = QDateTime(QDate(2026, 3, 4), QTime(5, 6, 7, 890), Qt::UTC);
    DiagnosticLog log({}, clock.clock());
    const DiagnosticLog::Fields metadata{
        {"app", "QuorvanePlayer"}, {"os", "6.1.0"}, {"note", "has space"}};
    QCOMPARE(log.report(metadata),
             QStringLiteral("Diagnostics v1 app=QuorvanePlayer os=6.1.0 storage=ok\n"));

    log.record(QStringLiteral("media.open"), {{"z", "1"}, {"a", "2"}});
    QCOMPARE(log.report(metadata).section(QLatin1Char('\n'), 1),
             QStringLiteral("2026-03-04T05:06:07Z media.open a=2 z=1"));

    // Long lines: the report stays below 3501 UTF-16 units by dropping the oldest lines.
    DiagnosticLog::Fields wide;
    for (int i = 0; i < 12; ++i)
        wide.insert(QStringLiteral("k%1").arg(i, 2, 10, QLatin1Char('0')), QString(64, 'v'));
    for (int i = 0; i < 20; ++i) {
        clock.advanceMs(1000);
        log.record(QStringLiteral("wide%1").arg(i, 2, 10, QLatin1Char('0')), wide);
    }
    const QString report = log.report(metadata);
    QVERIFY(report.size() < 3501);
    QVERIFY(report.endsWith(wide.last()));
    QVERIFY(report.contains(QStringLiteral(" wide19 ")));
    QVERIFY(!report.contains(QStringLiteral("media.open")));
    const QStringList lines = report.split(QLatin1Char('\n'));
    static const QRegularExpression line(
        QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ wide\\d\\d( k\\d\\d=v+){12}$"));
    for (const auto& text : lines.mid(1))
        QVERIFY2(line.match(text).hasMatch(), qPrintable(text));
    // One more line would not have fitted.
    QVERIFY(report.size() + 1 + lines.at(1).size() >= 3501);
}

void DiagnosticLogTest::storageFailureIsReportedAndRecordingGoesOn()
{
    QTemporaryDir dir;
    // A regular file where the log's directory should be.
    writeFile(dir.filePath(QStringLiteral("blocker")), "x");
    TestClock clock;
    DiagnosticLog log(dir.filePath(QStringLiteral("blocker/Logs/diagnostics.json")), clock.clock());
    log.record(QStringLiteral("media.open"));
    QVERIFY(log.storageFailed());
    QCOMPARE(log.entries().size(), 1);
    QVERIFY(log.report({}).startsWith(QStringLiteral("Diagnostics v1  storage=unavailable\n")));
}

void DiagnosticLogTest::concurrentRecordsAreAllKept()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("diagnostics.json"));
    DiagnosticLog log(path);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&log, t] {
            for (int i = 0; i < 40; ++i)
                log.record(QStringLiteral("t%1.e%2").arg(t).arg(i));
        });
    }
    for (auto& thread : threads)
        thread.join();
    QCOMPARE(log.entries().size(), 160);
    QCOMPARE(readArray(path).size(), 160);
}

void DiagnosticLogTest::supportMetadataIsSafe()
{
    const auto metadata = quorvane::SupportDiagnostics::metadata();
    QCOMPARE(metadata.keys(), QStringList({"app", "arch", "build", "os", "version"}));
    QCOMPARE(metadata.value("app"), QStringLiteral("QuorvanePlayer"));
    QVERIFY(QRegularExpression(QStringLiteral("^\\d+\\.\\d+\\.\\d+$"))
                .match(metadata.value("os"))
                .hasMatch());
    for (const auto& value : metadata)
        QVERIFY2(DiagnosticLog::isSafe(value), qPrintable(value));
}

void DiagnosticLogTest::sharedLogLivesUnderTheDataDirectory()
{
    QStandardPaths::setTestModeEnabled(true);
    const QString path = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                         QStringLiteral("/Quorvane Player/Logs/diagnostics.json");
    QFile::remove(path);

    auto& shared = quorvane::SupportDiagnostics::log();
    QCOMPARE(shared.filePath(), path);
    shared.record(QStringLiteral("media.open"), {{"ext", "webm"}});
    QVERIFY(QFileInfo::exists(path));
    QCOMPARE(posixMode(path), 0600);

    const QString report = quorvane::SupportDiagnostics::report();
    const QString header = report.section(QLatin1Char('\n'), 0, 0);
    static const QRegularExpression expected(QStringLiteral(
        "^Diagnostics v1 app=QuorvanePlayer arch=\\S+ build=\\S+ os=\\d+\\.\\d+\\.\\d+ "
        "version=\\S+ storage=ok$"));
    QVERIFY2(expected.match(header).hasMatch(), qPrintable(header));
    QVERIFY(report.section(QLatin1Char('\n'), 1).endsWith(QStringLiteral(" media.open ext=webm")));
    QFile::remove(path);
}

QTEST_GUILESS_MAIN(DiagnosticLogTest)
#include "tst_diagnosticlog.moc"
