// Subtitle files into documents, and libass drawing them, without a window.
#include "AssRenderer.h"
#include "SubtitleText.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

using namespace quorvane;
using namespace Qt::StringLiterals;

namespace {

const QByteArray kSubRip = "1\r\n00:00:01,000 --> 00:00:02,500\r\nHello\r\n<i>world</i>\r\n\r\n"
                           "2\r\n00:00:03,000 --> 00:00:04,000 X1:0\r\nSecond\r\n\r\n"
                           "3\r\n00:00:09,000 --> 00:00:05,000\r\nbackwards\r\n";

const QByteArray kAss = "[Script Info]\nScriptType: v4.00+\nPlayResX: 640\nPlayResY: 360\n\n"
                        "[V4+ Styles]\nFormat: Name, Fontname, Fontsize, PrimaryColour, Alignment\n"
                        "Style: Red,DejaVu Sans,40,&H000000FF,7\n\n"
                        "[Events]\n"
                        "Format: Start, End, Layer, Style, Name, MarginL, MarginR, MarginV, "
                        "Effect, Text\n"
                        "Dialogue: 0:00:01.00,0:00:03.00,2,Red,,0,0,0,,{\\pos(20,20)}One, two\n"
                        "Dialogue: 0:00:01.00,0:00:03.00\n"
                        "Comment: 0:00:01.00,0:00:03.00,0,Red,,0,0,0,,hidden\n";

} // namespace

class SubtitleTextTest : public QObject {
    Q_OBJECT

private slots:
    void markup_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("ass");
        QTest::newRow("italic") << u"<i>a</i>"_s << u"{\\i1}a{\\i0}"_s;
        QTest::newRow("hex colour")
            << u"<font color=\"#FF8000\">a</font>"_s << u"{\\c&H0080FF&}a{\\c}"_s;
        QTest::newRow("named colour") << u"<font color=red>a</font>"_s << u"{\\c&H0000FF&}a{\\c}"_s;
        QTest::newRow("bad colour") << u"<font color=\"nope\">a</font>"_s << u"a{\\c}"_s;
        QTest::newRow("webvtt voice and class") << u"<v Bob><c.x>a</c></v>"_s << u"a"_s;
        QTest::newRow("entities") << u"&lt;&amp;&gt;&bogus;"_s << u"<&>&bogus;"_s;
        QTest::newRow("lone bracket") << u"1 < 2 <i>x"_s << u"1 < 2 {\\i1}x"_s;
        QTest::newRow("unclosed tag") << u"a <i"_s << u"a <i"_s;
        // As MP4 timed text's style records come from the engine: nested, the text escaped.
        QTest::newRow("timed-text styles")
            << u"<b>ab<i>c</i>d</b> &amp; &lt;i>"_s << u"{\\b1}ab{\\i1}c{\\i0}d{\\b0} & <i>"_s;
        QTest::newRow("ass override kept") << u"{\\an8}top"_s << u"{\\an8}top"_s;
    }
    void markup()
    {
        QFETCH(QString, input);
        QFETCH(QString, ass);
        QCOMPARE(subtitles::markupToAss(input), ass);
    }

    // Each format into events of the one layout: cut cues noted, times kept, unsigned or
    // formatless files refused.
    void files()
    {
        const auto lines = [](const QByteArray& bytes, const QString& suffix) {
            const SubtitleParse parse = subtitles::parseFile(bytes, suffix);
            QByteArrayList got{parse.notes.join(u' ').toUtf8()};
            for (const auto& event : parse.document.events)
                got.append(QByteArray::number(event.start) + '+' +
                           QByteArray::number(event.duration) + ' ' + event.line);
            return parse.ok() ? got : QByteArrayList{"refused"};
        };
        QCOMPARE(lines(kSubRip, u"SRT"_s),
                 (QByteArrayList{"skipped-cues:1",
                                 "1000+1500 0,0,Default,,0,0,0,,Hello\\N{\\i1}world{\\i0}",
                                 "3000+1000 1,0,Default,,0,0,0,,Second"}));
        QCOMPARE(lines("WEBVTT - title\n\nNOTE 00:00:01.000 --> 00:00:02.000 a note\n\n"
                       "cue-1\n00:01.000 --> 00:02.000 align:start\n<v Bob>Hi</v>\n",
                       u"vtt"_s),
                 (QByteArrayList{"", "1000+1000 0,0,Default,,0,0,0,,Hi"}));
        QCOMPARE(lines("00:01.000 --> 00:02.000\nx\n", u"vtt"_s), QByteArrayList{"refused"});
        // Reordered to the one layout, the text's comma kept.
        QCOMPARE(lines(kAss, u"ass"_s),
                 (QByteArrayList{"skipped-events:1",
                                 "1000+2000 0,2,Red,,0,0,0,,{\\pos(20,20)}One, two"}));
        QCOMPARE(lines("[Events]\nDialogue: x\n", u"ass"_s), QByteArrayList{"refused"});
        QCOMPARE(lines("[Script Info]\nScriptType: v4.00\n[Events]\nFormat: Marked, Start, End, "
                       "Style, Name, MarginL, MarginR, MarginV, Effect, Text\nDialogue: Marked=0,"
                       "0:00:00.50,0:00:01.00,Default,,0,0,0,,old\n",
                       u"ssa"_s),
                 (QByteArrayList{"", "500+500 0,0,Default,,0,0,0,,old"}));
        QVERIFY(subtitles::parseFile(kAss, u"ass"_s)
                    .document.header.endsWith("MarginL, MarginR, MarginV, Effect, Text\n"));
    }

    void encodings_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("decoded"); // empty: refused
        QTest::newRow("utf-8") << "caf\xC3\xA9"_ba << u"café"_s;
        QTest::newRow("utf-8 bom") << "\xEF\xBB\xBF\xE4\xBD\xA0"_ba << u"你"_s;
        QTest::newRow("utf-16le bom") << QByteArray("\xFF\xFE\x60\x4F\x7D\x59", 6) << u"你好"_s;
        QTest::newRow("gb18030") << "\xC4\xE3\xBA\xC3\xA3\xAC\xCA\xC0\xBD\xE7"_ba
                                 << u"你好，世界"_s;
        QTest::newRow("windows-1252")
            << "caf\xE9 cr\xE8me \x93ok\x94"_ba << u"café crème \u201Cok\u201D"_s;
        QTest::newRow("binary") << QByteArray(64, '\0') + QByteArray(64, '\x01') << QString();
    }
    void encodings()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, decoded);
        QCOMPARE(subtitles::decodeText(bytes).value_or(QString()), decoded);
    }

    void limits()
    {
        // Too many cues: the track is cut at the limit.
        QByteArray many;
        for (qsizetype i = 0; i < kMaxSubtitleEvents + 3; ++i)
            many += "00:00:00,000 --> 00:00:01,000\nx\n\n";
        const SubtitleParse cut = subtitles::parseFile(many, u"srt"_s);
        QVERIFY(cut.ok());
        QCOMPARE(cut.document.events.size(), kMaxSubtitleEvents);
        QCOMPARE(cut.notes, QStringList{u"skipped-cues:3"_s});

        // One absurdly long cue is dropped, the others stay.
        const QByteArray longCue = "00:00:00,000 --> 00:00:01,000\n" +
                                   QByteArray(kMaxSubtitleEventBytes + 1, 'a') +
                                   "\n\n00:00:02,000 --> 00:00:03,000\nshort\n";
        QCOMPARE(subtitles::parseFile(longCue, u"srt"_s).document.events.size(), 1);

        // A file above the byte limit is not read at all.
        QTemporaryDir dir;
        QFile huge(dir.filePath(u"huge.srt"_s));
        QVERIFY(huge.open(QIODevice::WriteOnly) && huge.resize(kMaxSubtitleFileBytes + 1));
        huge.close();
        QVERIFY(!subtitles::readFile(huge.fileName()).ok());
    }

    // Every part of a subtitle file, damaged at random: parsing and libass never crash.
    void mutations()
    {
        AssRenderer renderer;
        QRandomGenerator random(13);
        const QList<QPair<QByteArray, QString>> seeds{{kSubRip, u"srt"_s}, {kAss, u"ass"_s}};
        for (int round = 0; round < 400; ++round) {
            const auto& [seed, suffix] = seeds[round % seeds.size()];
            QByteArray bytes = seed;
            for (int e = 1 + random.bounded(8); e > 0; --e) {
                const int at = random.bounded(int(bytes.size()));
                switch (random.bounded(3)) {
                case 0:
                    bytes[at] = char(random.bounded(256));
                    break;
                case 1:
                    bytes.remove(at, random.bounded(16));
                    break;
                default:
                    bytes.insert(at, bytes.mid(random.bounded(int(bytes.size())), 12));
                }
                if (bytes.isEmpty()) bytes = "x";
            }
            const SubtitleParse parse = subtitles::parseFile(bytes, suffix);
            if (parse.ok() && renderer.load(parse.document)) renderer.render(1500, {320, 180});
        }
    }

    // Where the text lands is the overlay's test; here, that libass redraws only on a change.
    void rendering()
    {
        AssRenderer renderer;
        QVERIFY(!renderer.render(1500, {640, 360})); // no track: nothing, unchanged
        QVERIFY(!renderer.load(SubtitleDocument{"garbage", {}, {}}));
        QVERIFY(renderer.load(subtitles::parseFile(kSubRip, u"srt"_s).document));
        const QList<std::tuple<qint64, QSize, bool>> steps{
            {1500, {640, 360}, true}, {1600, {640, 360}, false}, {3500, {640, 360}, true},
            {2700, {640, 360}, true}, {2800, {640, 360}, false}, {3500, {320, 180}, true}};
        for (const auto& [ms, size, changed] : steps)
            QVERIFY2(renderer.render(ms, size) == changed, qPrintable(QString::number(ms)));
        QVERIFY(QRect(QPoint(0, 0), QSize(320, 180))
                    .contains(QRect(renderer.origin(), renderer.image().size())));
    }

    // A style naming a font only the file carries is drawn in that font, not the fallback. Decker
    // comes with DirectFB (a GStreamer dependency), outside the system's font directories.
    void attachedFont()
    {
        QFile font(u"/usr/share/directfb-1.7.7/decker.ttf"_s);
        if (!font.open(QIODevice::ReadOnly)) QSKIP("no font outside the font directories");
        SubtitleDocument document =
            subtitles::parseFile(QByteArray(kAss).replace("DejaVu Sans", "Decker"), u"ass"_s)
                .document;
        const auto draw = [&document] {
            AssRenderer renderer;
            return renderer.load(document) && renderer.render(1500, {640, 360}) ? renderer.image()
                                                                                : QImage();
        };
        const QImage fallback = draw();
        document.fonts.append({"decker.ttf", font.readAll()});
        const QImage attached = draw();
        QVERIFY(!fallback.isNull() && !attached.isNull());
        QVERIFY(attached != fallback);
    }
};

QTEST_MAIN(SubtitleTextTest)
#include "tst_subtitletext.moc"
