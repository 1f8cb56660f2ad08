// The wrapper's error mapping and cancellation, on small files made by the test itself.
#include "ContainerMedia.h"
#include "TestMedia.h"
#include "TransportStreams.h"

#include <QTest>

#include <algorithm>

using namespace quorvane;
using namespace quorvane::testing;
using namespace Qt::StringLiterals;

class ContainerMediaTest : public QObject {
    Q_OBJECT

    QString writeFile(const QString& name, const QByteArray& data)
    {
        QFile file(m_dir.filePath(name));
        if (file.open(QIODevice::WriteOnly)) file.write(data);
        return file.fileName();
    }
    QTemporaryDir m_dir;

private slots:
    // Text subtitles muxed by mkvmerge, copied out of the engine at open, and the font on demand.
    void subtitlesAndFonts()
    {
        const QString path = fixtureDir() + u"/subtitles.mkv"_s;
        if (!QFile::exists(path)) QSKIP("generated fixtures are missing");
        const auto subtitles = ContainerMedia::open(path)->subtitles();
        QVERIFY(subtitles);
        QCOMPARE(subtitles->tracks.size(), 2);
        const ContainerSubtitleTrack& srt = subtitles->tracks[0];
        const ContainerSubtitleTrack& ass = subtitles->tracks[1];
        QCOMPARE(srt.language, u"zho"_s);
        QCOMPARE(srt.events.size(), 2);
        QCOMPARE(srt.events[0].start, 500);
        QCOMPARE(srt.events[0].duration, 500);
        QCOMPARE(QString::fromUtf8(srt.events[1].text), u"你好，世界"_s);
        QVERIFY(ass.forced &&
                ass.codecPrivate.contains("Style: Sign,DejaVu Sans,24,&H000000FF,-1,7"));
        QCOMPARE(ass.events.size(), 1);
        QCOMPARE(ass.events[0].text, "0,0,Sign,,0,0,0,,{\\pos(10,10)}SIGN");
        const QList<ContainerFont> fonts = subtitles->readFonts();
        QCOMPARE(fonts.size(), 1);
        QCOMPARE(fonts[0].name, "DejaVuSans-Bold.ttf");
        QCOMPARE(subtitles->fontBytes(), fonts[0].data.size());
        QCOMPARE(fonts[0].data.left(4), QByteArray("\0\1\0\0", 4)); // a TrueType font
    }

    // In the fragmented layout the events known at open grow once a track is asked for.
    void subtitleEventsGrowOnDemand()
    {
        const QString path = fixtureDir() + u"/subtitles_cued.mkv"_s;
        if (!QFile::exists(path)) QSKIP("generated fixtures are missing");
        qputenv("QV_MEDIA_LAYOUT", "fragmented");
        const auto media = ContainerMedia::open(path);
        qunsetenv("QV_MEDIA_LAYOUT");
        const auto subtitles = media->subtitles();
        QVERIFY(subtitles);
        const ContainerSubtitleTrack& ass = subtitles->tracks[1];
        QVERIFY(!ass.complete);
        subtitles->want(1, 0);
        QList<ContainerSubtitleEvent> events = ass.events;
        bool complete = false;
        QTRY_VERIFY_WITH_TIMEOUT(
            (events += subtitles->eventsFrom(1, events.size(), &complete), complete), 20000);
        events += subtitles->eventsFrom(1, events.size());
        QCOMPARE(events.size(), 10);
        std::sort(events.begin(), events.end(),
                  [](const auto& a, const auto& b) { return a.start < b.start; });
        QCOMPARE(events[4].start, 12000);
        QCOMPARE(events[4].duration, 1500);
        QVERIFY(events[4].text.endsWith("sign 4"));
    }

    void failuresCarryEngineCodesAndCancellationIsNotOne()
    {
        const QString text = writeFile(u"notes.mkv"_s, "just some text, not a container\n");
        const QString missing = m_dir.filePath(u"missing.mkv"_s);
        const auto cancelled = std::make_shared<std::atomic_bool>(true);
        const std::pair<std::function<void()>, qint32> cases[] = {
            {[&] { ContainerMedia::open(text); }, 2},
            {[&] { ContainerMedia::open(writeFile(u"empty.mkv"_s, {})); }, 1},
            {[&] { ContainerMedia::open(missing); }, 5},
            {[&] { ContainerMedia::open(m_dir.path()); }, 5},
            {[&] { ContainerMedia::open(QUrl(u"https://example.com/a.mkv"_s)); }, 2},
            {[&] { TransportStreams::inspect(missing); }, 5},
            {[&] { TransportStreams::inspect(QUrl(u"http://x/a.ts"_s)); }, 2},
            // Errors cross futures with their type and code.
            {[&] { ContainerMedia::openAsync(QUrl::fromLocalFile(text), {}).result(); }, 2},
            {[&] { TransportStreams::inspectAsync(QUrl::fromLocalFile(missing), {}).result(); }, 5},
            // The engine polls the flag before its first read of the source, so the same file
            // that fails with an engine error reports the cancellation instead.
            {[&] { ContainerMedia::open(text, cancelled); }, kCancelled},
            {[&] { TransportStreams::inspect(text, cancelled); }, kCancelled},
            {[&] { ContainerMedia::openAsync(QUrl::fromLocalFile(text), cancelled).result(); },
             kCancelled},
        };
        for (const auto& [work, code] : cases)
            QCOMPARE(outcome(work), code);
        // A file without transport packets holds neither audio nor video; that is an answer.
        QCOMPARE(TransportStreams::inspect(writeFile(u"plain.ts"_s, QByteArray(4096, 'x'))),
                 TransportStreams{});
    }
};

QTEST_GUILESS_MAIN(ContainerMediaTest)
#include "tst_containermedia.moc"
