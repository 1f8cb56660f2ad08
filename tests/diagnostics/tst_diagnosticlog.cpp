#include "DiagnosticLog.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

#include <filesystem>
#include <thread>
#include <vector>

using quorvane::DiagnosticLog;
using namespace Qt::StringLiterals;

namespace {

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
    // Only safe text gets in, and the count, age, size and report limits drop the oldest first.
    void whatIsKeptAndWhatIsRefused()
    {
        for (const auto& text : {u"a:b+c-d.e_f"_s, QString(64, 'x')})
            QVERIFY(DiagnosticLog::isSafe(text));
        for (const auto& text :
             {QString(65, 'x'), QString(), u"media open"_s, u"café"_s, u"a\nb"_s})
            QVERIFY(!DiagnosticLog::isSafe(text));
        // The application's report metadata passes the same rule.
        for (const auto& value : quorvane::SupportDiagnostics::metadata())
            QVERIFY2(DiagnosticLog::isSafe(value), qPrintable(value));

        QTemporaryDir dir;
        const QString path = dir.filePath(u"diagnostics.json"_s);
        QDateTime now(QDate(2026, 11, 20), QTime(12, 0), Qt::UTC); // moved by hand
        DiagnosticLog log(path, [&] { return now; });
        log.record(u"media open"_s);
        QVERIFY(log.entries().isEmpty());
        // Unsafe pairs go one by one; the rest of the event stays.
        log.record(u"media.open"_s,
                   {{"ext", "mkv"}, {"path", "/Users/x/Movie.mkv"}, {"bad key", "1"}});
        QCOMPARE(log.entries().first().fields, DiagnosticLog::Fields({{"ext", "mkv"}}));
        // Thirteen fields of 64 characters: the first twelve in key order survive, the widest
        // entry the log keeps.
        DiagnosticLog::Fields wide;
        for (int i = 12; i >= 0; --i)
            wide.insert(u"k%1"_s.arg(i, 2, 10, QLatin1Char('0')), QString(64, 'v'));
        log.record(u"wide"_s, wide);
        QCOMPARE(log.entries().last().fields.lastKey(), u"k11"_s);
        QCOMPARE(log.entries().last().fields.size(), 12);
        // The same event and fields (once unsafe pairs are dropped) within a second is kept once.
        const QString event = u"playback.state"_s;
        log.record(event, {{"paused", "true"}});
        now = now.addMSecs(500);
        log.record(event, {{"paused", "true"}});
        log.record(event, {{"paused", "false"}});
        now = now.addMSecs(1000);
        log.record(event, {{"paused", "false"}});
        log.record(event, {{"paused", "false"}, {"name", "a b"}});
        QCOMPARE(log.entries().size(), 5);

        for (int i = 0; i < 201; ++i)
            log.record(u"e%1"_s.arg(i));
        QCOMPARE(log.entries().size(), 200);
        QCOMPARE(log.entries().first().event, u"e1"_s);
        QCOMPARE(readArray(path).size(), 200);
        // A week later old entries leave the report at once and the file at the next record;
        // loading keeps only entries younger than a week.
        now = now.addMSecs(604800LL * 1000 + 1);
        QCOMPARE(log.report({}), u"Diagnostics v1  storage=ok\n"_s);
        log.record(u"fresh"_s);
        QCOMPARE(readArray(path).size(), 1);
        QVERIFY(DiagnosticLog(path, [&] { return now.addSecs(604800); }).entries().isEmpty());

        // The file stays under 64 KiB: entries dropped for size leave memory too, the newest stays.
        for (int i = 0; i < 200; ++i) {
            now = now.addMSecs(1000);
            log.record(u"wide%1"_s.arg(i), wide);
        }
        QVERIFY(QFileInfo(path).size() <= 65536 && log.entries().size() < 200);
        QCOMPARE(readArray(path).size(), log.entries().size());
        QCOMPARE(log.entries().last().event, u"wide199"_s);
        // The report stays below 3501 UTF-16 units by dropping the oldest lines, no more.
        const QString report = log.report({});
        const QStringList lines = report.split('\n');
        QVERIFY(report.size() < 3501 && report.size() + 1 + lines.at(1).size() >= 3501);
        QVERIFY(lines.last().contains(u" wide199 "_s));
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

        // Bad files, and well-formed ones beyond 64 KiB, start an empty log.
        const auto entry = [](const char* event, const char* fields) {
            return QByteArray("{\"time\":86400.25,\"event\":\"") + event +
                   "\",\"fields\":" + fields + "}";
        };
        QByteArray big = "[" + entry("ok", "{}");
        while (big.size() <= 65536)
            big += "," + entry("ok", "{}");
        for (const QByteArray& data :
             {QByteArray("not json"), QByteArray("{\"time\":1}"),
              "[" + entry("ok", "{\"n\":1}") + "]", "[" + entry("ok", "{}") + ",42]",
              QByteArray("[{\"event\":\"ok\",\"fields\":{}}]"), big + "]"}) {
            writeFile(path, data);
            QVERIFY2(DiagnosticLog(path, [&] { return now; }).entries().isEmpty(),
                     data.left(40).constData());
        }
        // Loading drops unsafe events and cleans unsafe fields.
        writeFile(path, "[" + entry("bad event", "{}") + "," +
                            entry("good", "{\"p\":\"/home/x\",\"ext\":\"flv\"}") + "]");
        QCOMPARE(DiagnosticLog(path, [&] { return now; }).entries(),
                 QList<DiagnosticLog::Entry>({{now, u"good"_s, {{"ext", "flv"}}}}));

        // Records from several threads at once are all kept, in memory and in the file.
        QFile::remove(path);
        DiagnosticLog shared(path, [&] { return now; });
        {
            std::vector<std::jthread> threads;
            for (int t = 0; t < 4; ++t)
                threads.emplace_back([&shared, t] {
                    for (int i = 0; i < 40; ++i)
                        shared.record(u"t%1.e%2"_s.arg(t).arg(i));
                });
        }
        QCOMPARE(shared.entries().size(), 160);
        QCOMPARE(readArray(path).size(), 160);
    }
};

QTEST_GUILESS_MAIN(DiagnosticLogTest)
#include "tst_diagnosticlog.moc"
