// The overlay in a real window: screenshots at chosen times show the right line in the right
// place of a letterboxed picture, and nothing once subtitles are off.
#include "Ink.h"
#include "SubtitleOverlay.h"
#include "SubtitleSession.h"
#include "SubtitleText.h"

#include <QElapsedTimer>
#include <QFile>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cmath>

using namespace quorvane;
using namespace Qt::StringLiterals;

class SubtitleOverlayTest : public QObject {
    Q_OBJECT

    QQuickWindow m_window;
    SubtitleOverlay* m_overlay = nullptr;
    SubtitleSession m_session;
    double m_clock = 0;
    QTemporaryDir m_dir;

    Ink inkAt(double seconds)
    {
        m_clock = 0;
        m_session.setTiming(seconds, 0);
        m_overlay->refresh();
        return inkOf(m_window.grabWindow().convertToFormat(QImage::Format_RGB32));
    }

    qint64 addSubtitles(const QByteArray& bytes, const QString& suffix)
    {
        const SubtitleParse parse = subtitles::parseFile(bytes, suffix);
        return parse.ok() ? m_session.addDocument(parse.document, suffix) : 0;
    }

private slots:
    void initTestCase()
    {
        m_session.setClock([this] { return m_clock; });
        m_window.setColor(Qt::black);
        m_window.resize(640, 480);
        m_overlay = new SubtitleOverlay(m_window.contentItem());
        m_overlay->setSize({640, 480});
        // A 4:3 video fills the window, a 2.39:1 one sits in a thin band.
        m_overlay->setVideoSize({640, 480});
        QCOMPARE(m_overlay->pictureRect(), QRectF(0, 0, 640, 480));
        m_overlay->setVideoSize({1920, 804});
        QCOMPARE(m_overlay->pictureRect(), QRectF(0, 106, 640, 268));
        // 16:9, letterboxed: the picture spans rows 60..420.
        m_overlay->setVideoSize({1280, 720});
        m_overlay->setSession(&m_session);
        m_window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&m_window));
        QCOMPARE(m_overlay->pictureRect(), QRectF(0, 60, 640, 360));
    }

    void linesInTheirPlace_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("suffix");
        QTest::addColumn<double>("time");
        QTest::addColumn<QRect>("area"); // where all the text must be
        QTest::addColumn<bool>("red");
        const QRect bottom(0, 330, 640, 90); // the picture's lower part, above the letterbox
        QTest::newRow("srt") << "1\n00:00:01,000 --> 00:00:02,000\nHello <b>there</b>\n"_ba
                             << u"srt"_s << 1.5 << bottom << false;
        QTest::newRow("positioned red ass")
            << "[Script Info]\nScriptType: v4.00+\nPlayResX: 640\nPlayResY: 360\n\n[V4+ Styles]\n"
               "Format: Name, Fontname, Fontsize, PrimaryColour, Bold, Alignment\n"
               "Style: Sign,DejaVu Serif,36,&H000000FF,-1,7\n\n[Events]\n"
               "Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
               "Dialogue: 0,0:00:01.00,0:00:03.00,Sign,,0,0,0,,{\\pos(20,20)}STOP\n"_ba
            << u"ass"_s << 2.0 << QRect(15, 70, 200, 70) << true;
        QTest::newRow("chinese") << "1\n00:00:01,000 --> 00:00:02,000\n你好，世界。字幕测试\n"_ba
                                 << u"srt"_s << 1.0 << bottom << false;
    }
    void linesInTheirPlace()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, suffix);
        QFETCH(double, time);
        QFETCH(QRect, area);
        QFETCH(bool, red);
        QVERIFY(m_session.select(addSubtitles(bytes, suffix)));

        const Ink shown = inkAt(time);
        QVERIFY(m_overlay->showingText());
        QVERIFY(area.contains(shown.box) && shown.box.width() > 40);
        if (red) QVERIFY(shown.red > 100);

        // Before the line and once it is over: nothing.
        QVERIFY(inkAt(0.5).box.isEmpty());
        QVERIFY(!m_overlay->showingText());
        QVERIFY(inkAt(5.0).box.isEmpty());
    }

    void loadedFileThenDisabled()
    {
        const QString path = m_dir.filePath(u"movie.en.srt"_s);
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("\xEF\xBB\xBF"
                   "1\r\n00:00:10,000 --> 00:00:12,000\r\nFrom a file\r\n");
        file.close();
        QVERIFY(m_session.select(m_session.addFile(path, u"movie.en.srt"_s)));
        QVERIFY(!inkAt(11).box.isEmpty());

        // "Disable Subtitles" clears what is on screen.
        m_session.select(0);
        QVERIFY(!m_overlay->showingText());
        QVERIFY(inkAt(11).box.isEmpty());
    }

    // A line every 0.5 s, each on for 0.4 s: while the clock runs at 1x and 2x, every line must
    // appear within one video frame (1/24 s of media time) of its start.
    void linesAppearOnTime_data()
    {
        QTest::addColumn<double>("rate");
        QTest::newRow("1x") << 1.0;
        QTest::newRow("2x") << 2.0;
    }
    void linesAppearOnTime()
    {
        QFETCH(double, rate);
        QByteArray srt;
        constexpr int kLines = 8;
        const auto time = [](int ms) {
            return u"00:00:%1,%2"_s.arg(ms / 1000, 2, 10, QChar(u'0'))
                .arg(ms % 1000, 3, 10, QChar(u'0'));
        };
        for (int i = 1; i <= kLines; ++i)
            srt += u"%1\n%2 --> %3\nLine %1\n\n"_s.arg(i)
                       .arg(time(i * 500), time(i * 500 + 400))
                       .toUtf8();
        QVERIFY(m_session.select(addSubtitles(srt, u"srt"_s)));

        QElapsedTimer real;
        real.start();
        m_session.setClock([&real] { return real.nsecsElapsed() / 1e9; });
        QList<double> lateness;
        const auto connection = connect(m_overlay, &SubtitleOverlay::showingTextChanged, this, [&] {
            if (!m_overlay->showingText()) return;
            const double now = m_session.currentTime();
            // The overlay rounds to whole milliseconds, so a line may show a fraction early.
            lateness.append(now - std::round(now * 2) / 2);
        });
        m_session.setTiming(0.25, rate);
        QTRY_VERIFY_WITH_TIMEOUT(m_session.currentTime() > (kLines + 1) * 0.5, 20000);
        disconnect(connection);
        m_session.setTiming(0, 0);
        m_session.setClock([this] { return m_clock; });

        QCOMPARE(lateness.size(), kLines);
        const auto [early, late] = std::minmax_element(lateness.cbegin(), lateness.cend());
        QVERIFY2(*late < 1.0 / 24, qPrintable(u"%1 s late"_s.arg(*late)));
        QVERIFY(*early > -0.001);
    }

    // An event that arrives while its track is shown (a large file still being read) is drawn at
    // once if the clock is inside it.
    void appendedEventShowsWhereTheClockStands()
    {
        const qint64 id = addSubtitles("1\n00:00:01,000 --> 00:00:02,000\nFirst\n", u"srt"_s);
        QVERIFY(m_session.select(id));
        QVERIFY(inkAt(30).box.isEmpty());
        m_session.appendEvents(id, {{29'000, 2'000, "1,0,Default,,0,0,0,,Later"}});
        QVERIFY(m_overlay->showingText());
        QVERIFY(!inkAt(30).box.isEmpty());
        m_session.select(0);
    }
};

QTEST_MAIN(SubtitleOverlayTest)
#include "tst_subtitleoverlay.moc"
