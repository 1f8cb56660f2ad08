// The overlay in a real window: screenshots at chosen times show the right line in the right
// place of a letterboxed picture, on time while playing, and nothing once subtitles are off.
#include "Ink.h"
#include "SubtitleOverlay.h"
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

    Ink inkAt(double seconds)
    {
        m_session.setTiming(seconds, 0);
        m_overlay->refresh();
        return inkOf(m_window.grabWindow().convertToFormat(QImage::Format_RGB32));
    }

    void show(const QByteArray& bytes, const QString& suffix)
    {
        const SubtitleParse parse = subtitles::parseFile(bytes, suffix);
        QVERIFY(parse.ok());
        QVERIFY(m_session.select(m_session.addDocument(parse.document, suffix)));
    }

private slots:
    void initTestCase()
    {
        m_session.setClock([this] { return m_clock; });
        m_window.setColor(Qt::black);
        m_window.resize(640, 480);
        m_overlay = new SubtitleOverlay(m_window.contentItem());
        m_overlay->setSize({640, 480});
        m_overlay->setVideoSize({1920, 804}); // 2.39:1 sits in a thin band
        QCOMPARE(m_overlay->pictureRect(), QRectF(0, 106, 640, 268));
        m_overlay->setVideoSize({1280, 720}); // 16:9: the picture spans rows 60..420
        m_overlay->setSession(&m_session);
        m_window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&m_window));
    }

    // The SubRip and Chinese lines of the real backend are the end-to-end test's; here, a
    // positioned sign in a letterboxed picture.
    void positionedAssInTheLetterboxedPicture()
    {
        show("[Script Info]\nScriptType: v4.00+\nPlayResX: 640\nPlayResY: 360\n\n[V4+ Styles]\n"
             "Format: Name, Fontname, Fontsize, PrimaryColour, Bold, Alignment\n"
             "Style: Sign,DejaVu Serif,36,&H000000FF,-1,7\n\n[Events]\n"
             "Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
             "Dialogue: 0,0:00:01.00,0:00:03.00,Sign,,0,0,0,,{\\pos(20,20)}STOP\n",
             u"ass"_s);
        const Ink shown = inkAt(1.5);
        QVERIFY(QRect(15, 70, 200, 70).contains(shown.box) && shown.box.width() > 40);
        QVERIFY(shown.red > 100);
        // Before the line and once it is over: nothing.
        QVERIFY(inkAt(0.5).box.isEmpty() && inkAt(5.0).box.isEmpty());
    }

    void loadedFileThenDisabled()
    {
        QTemporaryDir dir;
        QFile file(dir.filePath(u"movie.en.srt"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("\xEF\xBB\xBF"
                   "1\r\n00:00:10,000 --> 00:00:12,000\r\nFrom a file\r\n");
        file.close();
        const qint64 id = m_session.addFile(file.fileName(), u"movie.en.srt"_s);
        QVERIFY(m_session.select(id));
        QTRY_COMPARE(m_session.activeID(), id); // read in the background
        // In the picture's lower part, above the letterbox.
        const QRect box = inkAt(11).box;
        QVERIFY(!box.isEmpty() && QRect(0, 330, 640, 90).contains(box));
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
        constexpr int kLines = 8;
        QByteArray srt;
        for (int i = 1; i <= kLines; ++i)
            srt += u"%1\n00:00:%2,%3 --> 00:00:%2,%4\nLine %1\n\n"_s.arg(i)
                       .arg(i / 2, 2, 10, QChar(u'0'))
                       .arg(i % 2 * 500, 3, 10, QChar(u'0'))
                       .arg(i % 2 * 500 + 400, 3, 10, QChar(u'0'))
                       .toUtf8();
        show(srt, u"srt"_s);

        // The machine may be busy: a run late only because the event loop was starved is tried
        // again, up to three times; one faithful run shows the overlay keeps time.
        QString fault;
        for (int attempt = 0; attempt < 3; ++attempt) {
            QElapsedTimer real;
            real.start();
            m_session.setClock([&real] { return real.nsecsElapsed() / 1e9; });
            QList<double> lateness;
            const auto connection =
                connect(m_overlay, &SubtitleOverlay::showingTextChanged, this, [&] {
                    const double now = m_session.currentTime();
                    if (m_overlay->showingText()) lateness.append(now - std::round(now * 2) / 2);
                });
            m_session.setTiming(0.25, rate);
            QTRY_VERIFY_WITH_TIMEOUT(m_session.currentTime() > (kLines + 1) * 0.5, 20000);
            disconnect(connection);
            m_session.setClock([this] { return m_clock; });
            m_session.setTiming(0, 0);

            QCOMPARE(lateness.size(), kLines);
            const auto [early, late] = std::minmax_element(lateness.cbegin(), lateness.cend());
            // The overlay rounds to whole milliseconds, so a line may show a fraction early.
            QVERIFY(*early > -0.001);
            fault = *late < 1.0 / 24 ? QString() : u"%1 s late"_s.arg(*late);
            if (fault.isEmpty()) break;
        }
        QVERIFY2(fault.isEmpty(), qPrintable(fault));
    }

    // An event that arrives while its track is shown (a large file still being read) is drawn at
    // once if the clock is inside it.
    void appendedEventShowsWhereTheClockStands()
    {
        show("1\n00:00:01,000 --> 00:00:02,000\nFirst\n", u"srt"_s);
        const qint64 id = m_session.activeID();
        QVERIFY(inkAt(30).box.isEmpty());
        m_session.appendEvents(id, {{29'000, 2'000, "1,0,Default,,0,0,0,,Later"}});
        QVERIFY(m_overlay->showingText());
        QVERIFY(!inkAt(30).box.isEmpty());
        m_session.select(0);
    }
};

QTEST_MAIN(SubtitleOverlayTest)
#include "tst_subtitleoverlay.moc"
