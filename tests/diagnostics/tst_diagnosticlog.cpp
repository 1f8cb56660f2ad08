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

const QDateTime kNoon(QDate(2026, 11, 20), QTime(12, 0), Qt::UTC);

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
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(data) == data.size());
}

int posixMode(const QString& path)
{
    return int(std::filesystem::status(path.toStdString()).permissions() &
               std::filesystem::perms::all);
}

} // namespace

class DiagnosticLogTest : public QObject {
    Q_OBJECT

private slots:
    void onlySafeDistinctTextIsKept()
    {
        for (const auto& text : {u"a:b+c-d.e_f"_s, QString(64, 'x')})
            QVERIFY(DiagnosticLog::isSafe(text));
        for (const auto& text :
             {QString(65, 'x'), QString(), u"media open"_s, u"café"_s, u"a\nb"_s})
            QVERIFY(!DiagnosticLog::isSafe(text));

        QDateTime now = kNoon; // a clock the test moves by hand
        DiagnosticLog log({}, [&] { return now; });
        log.record(u"media open"_s);
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

        // The same event with the same fields (once unsafe pairs are dropped) within a second is
        // kept once; other fields make a new event.
        const QString event = u"playback.state"_s;
        log.record(event, {{"paused", "true"}});
        now = now.addMSecs(500);
        log.record(event, {{"paused", "true"}});
        log.record(event, {{"paused", "false"}});
        QCOMPARE(log.entries().size(), 4);
        now = now.addMSecs(1000);
        log.record(event, {{"paused", "false"}});
        QCOMPARE(log.entries().size(), 5);
        now = now.addMSecs(10);
        log.record(event, {{"paused", "false"}, {"name", "a b"}});
        QCOMPARE(log.entries().size(), 5);
    }

    void countAgeAndSizeLimitsDropOldestEntries()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"diagnostics.json"_s);
        QDateTime now = kNoon; // a clock the test moves by hand
        DiagnosticLog log(path, [&] { return now; });
        for (int i = 0; i < 201; ++i)
            log.record(u"e%1"_s.arg(i));
        QCOMPARE(log.entries().size(), 200);
        QCOMPARE(log.entries().first().event, u"e1"_s);
        QCOMPARE(readArray(path).size(), 200);

        // A week later old entries leave the report at once and the file at the next record.
        now = now.addMSecs(604800LL * 1000 + 1);
        QCOMPARE(log.report({}), u"Diagnostics v1  storage=ok\n"_s);
        QCOMPARE(readArray(path).size(), 200);
        log.record(u"fresh"_s);
        QCOMPARE(log.entries().size(), 1);
        QCOMPARE(readArray(path).size(), 1);

        // Loading keeps only entries younger than a week.
        QVERIFY(DiagnosticLog(path, [&] { return now.addSecs(604800); }).entries().isEmpty());

        // The file stays under 64 KiB: entries dropped for size leave memory too, the newest stays.
        for (int i = 0; i < 200; ++i)
            log.record(u"wide%1"_s.arg(i), wideFields());
        QVERIFY(QFileInfo(path).size() <= 65536);
        QCOMPARE(readArray(path).size(), log.entries().size());
        QVERIFY(log.entries().size() < 200);
        QCOMPARE(log.entries().last().event, u"wide199"_s);
    }

    void fileIsPrivateRoundTripsAndBadFilesStartEmpty()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"Quorvane Player/Logs/diagnostics.json"_s);
        const QDateTime now(QDate(2001, 1, 2), QTime(0, 0, 0, 250), Qt::UTC);
        DiagnosticLog(path, [&] { return now; }).record(u"media.open"_s, {{"ext", "mkv"}});

        QCOMPARE((QList<int>{posixMode(path), posixMode(dir.filePath(u"Quorvane Player"_s)),
                             posixMode(dir.filePath(u"Quorvane Player/Logs"_s))}),
                 (QList<int>{0600, 0700, 0700}));

        // Times are fractional seconds from 2001-01-01T00:00:00Z.
        QCOMPARE(readArray(path).at(0)["time"].toDouble(), 86400.25);
        QCOMPARE(DiagnosticLog(path, [&] { return now; }).entries(),
                 QList<DiagnosticLog::Entry>({{now, u"media.open"_s, {{"ext", "mkv"}}}}));

        // Storage that fails is remembered and reported; recording goes on in memory.
        writeFile(dir.filePath(u"blocker"_s), "x");
        DiagnosticLog blocked(dir.filePath(u"blocker/Logs/diagnostics.json"_s),
                              [&] { return now; });
        blocked.record(u"media.open"_s);
        QVERIFY(blocked.storageFailed() && blocked.entries().size() == 1);
        QVERIFY(blocked.report({}).startsWith(u"Diagnostics v1  storage=unavailable\n"_s));

        // Bad files start an empty log.
        const auto entry = [](const char* event, const char* fields) {
            return QByteArray("{\"time\":86400.25,\"event\":\"") + event +
                   "\",\"fields\":" + fields + "}";
        };
        for (const QByteArray& data :
             {QByteArray("not json"), QByteArray("{\"time\":1}"),
              "[" + entry("ok", "{\"n\":1}") + "]", "[" + entry("ok", "{}") + ",42]",
              QByteArray("[{\"event\":\"ok\",\"fields\":{}}]")}) {
            writeFile(path, data);
            QVERIFY2(DiagnosticLog(path, [&] { return now; }).entries().isEmpty(),
                     data.constData());
        }

        // A well-formed file beyond 64 KiB is ignored whole.
        QByteArray big = "[" + entry("ok", "{}");
        while (big.size() <= 65536)
            big += "," + entry("ok", "{}");
        writeFile(path, big + "]");
        QVERIFY(DiagnosticLog(path, [&] { return now; }).entries().isEmpty());

        // Loading drops unsafe events and cleans unsafe fields.
        writeFile(path, "[" + entry("bad event", "{}") + "," +
                            entry("good", "{\"p\":\"/home/x\",\"ext\":\"flv\"}") + "]");
        const DiagnosticLog log(path, [&] { return now; });
        QCOMPARE(log.entries().size(), 1);
        QCOMPARE(log.entries().first().fields, DiagnosticLog::Fields({{"ext", "flv"}}));
    }

    void reportLayoutAndLengthCap()
    {
        QDateTime now(QDate(2026, 3, 4), QTime(5, 6, 7, 890), Qt::UTC);
        DiagnosticLog log({}, [&] { return now; });
        const DiagnosticLog::Fields metadata{
            {"app", "QuorvanePlayer"}, {"os", "6.1.0"}, {"note", "has space"}};
        QCOMPARE(log.report(metadata),
                 u"Diagnostics v1 app=QuorvanePlayer os=6.1.0 storage=ok\n"_s);

        log.record(u"media.open"_s, {{"z", "1"}, {"a", "2"}});
        QCOMPARE(log.report(metadata).section('\n', 1),
                 u"2026-03-04T05:06:07Z media.open a=2 z=1"_s);

        // Below 3501 UTF-16 units, by dropping the oldest lines and no more than needed.
        for (int i = 0; i < 20; ++i) {
            now = now.addMSecs(1000);
            log.record(u"wide%1"_s.arg(i, 2, 10, QLatin1Char('0')), wideFields());
        }
        const QString report = log.report(metadata);
        QVERIFY(report.size() < 3501 && !report.contains(u"media.open"_s));
        const QStringList lines = report.split('\n');
        static const QRegularExpression line(
            u"^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ wide\\d\\d( k\\d\\d=v{64}){12}$"_s);
        for (const auto& text : lines.mid(1))
            QVERIFY2(line.match(text).hasMatch(), qPrintable(text));
        QVERIFY(report.size() + 1 + lines.at(1).size() >= 3501);
        QVERIFY(lines.last().contains(u" wide19 "_s));
    }

    void sharedLogLivesUnderTheDataDirectoryAndKeepsConcurrentRecords()
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

        // Records from several threads at once are all kept, in memory and in the file.
        {
            std::vector<std::jthread> threads;
            for (int t = 0; t < 4; ++t)
                threads.emplace_back([&shared, t] {
                    for (int i = 0; i < 40; ++i)
                        shared.record(u"t%1.e%2"_s.arg(t).arg(i));
                });
        }
        QCOMPARE(shared.entries().size(), 161);
        QCOMPARE(readArray(path).size(), 161);
        QFile::remove(path);
    }
};

QTEST_GUILESS_MAIN(DiagnosticLogTest)
#include "tst_diagnosticlog.moc"
