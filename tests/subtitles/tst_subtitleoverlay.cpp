// The overlay in a real window: screenshots at chosen times show the right line in the right
// place of a letterboxed picture, and nothing once subtitles are off. The screenshots are kept in
// the build folder (subtitle-*.png) to look at.
#include "SubtitleOverlay.h"
#include "SubtitleSession.h"
#include "SubtitleText.h"

#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

#include <algorithm>
#include <cmath>

using namespace quorvane;
using namespace Qt::StringLiterals;

Q_IMPORT_QML_PLUGIN(Quorvane_SubtitlesPlugin)

namespace {

// A 16:9 picture letterboxed in a 4:3 window: the picture spans rows 60..420.
constexpr QSize kWindow(640, 480);
constexpr QSizeF kVideo(1280, 720);

const QByteArray kPositionedAss =
    "[Script Info]\nScriptType: v4.00+\nPlayResX: 640\nPlayResY: 360\n\n[V4+ Styles]\n"
    "Format: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, BackColour, "
    "Bold, Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, "
    "Shadow, Alignment, MarginL, MarginR, MarginV, Encoding\n"
    "Style: Sign,DejaVu Serif,36,&H000000FF,&H000000FF,&H00000000,&H00000000,-1,0,0,0,100,100,0,"
    "0,1,0,0,7,0,0,0,1\n\n[Events]\n"
    "Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
    "Dialogue: 0,0:00:01.00,0:00:03.00,Sign,,0,0,0,,{\\pos(20,20)}STOP\n";

// The bounding box of the pixels that are not background (black), and how many are red.
struct Ink {
    QRect box;
    int red = 0;
};

Ink inkOf(const QImage& image)
{
    Ink ink;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            if (qGray(pixel) < 60 && qRed(pixel) < 120) continue;
            ink.box |= QRect(x, y, 1, 1);
            if (qRed(pixel) > 180 && qGreen(pixel) < 80 && qBlue(pixel) < 80) ++ink.red;
        }
    }
    return ink;
}

} // namespace

class SubtitleOverlayTest : public QObject {
    Q_OBJECT

    QQuickWindow m_window;
    SubtitleOverlay* m_overlay = nullptr;
    SubtitleSession m_session;
    double m_clock = 0;
    QTemporaryDir m_dir;

    QImage shotAt(double seconds, const QString& name)
    {
        m_clock = 0;
        m_session.setTiming(seconds, 0);
        m_overlay->refresh();
        QImage shot = m_window.grabWindow().convertToFormat(QImage::Format_RGB32);
        shot.save(u"subtitle-%1.png"_s.arg(name));
        return shot;
    }

    qint64 addSubtitles(const QByteArray& bytes, const QString& suffix)
    {
        const SubtitleParse parse = subtitles::parseFile(bytes, suffix);
        if (!parse.ok()) return 0;
        return m_session.addDocument(parse.document, suffix);
    }

private slots:
    void initTestCase()
    {
        m_session.setClock([this] { return m_clock; });
        m_window.setColor(Qt::black);
        m_window.resize(kWindow);
        m_overlay = new SubtitleOverlay(m_window.contentItem());
        m_overlay->setSize(kWindow);
        m_overlay->setVideoSize(kVideo);
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
        QTest::newRow("vtt") << "WEBVTT\n\n00:01.000 --> 00:02.000\n<i>Hello</i>\n"_ba << u"vtt"_s
                             << 1.9 << bottom << false;
        QTest::newRow("positioned red ass")
            << kPositionedAss << u"ass"_s << 2.0 << QRect(15, 70, 200, 70) << true;
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
        const qint64 id = addSubtitles(bytes, suffix);
        QVERIFY(id != 0);
        QVERIFY(m_session.select(id));

        const Ink shown =
            inkOf(shotAt(time, QString::fromLatin1(QTest::currentDataTag()).replace(u' ', u'-')));
        QVERIFY(m_overlay->showingText());
        QVERIFY2(area.contains(shown.box), qPrintable(u"text at %1,%2 %3x%4"_s.arg(shown.box.x())
                                                          .arg(shown.box.y())
                                                          .arg(shown.box.width())
                                                          .arg(shown.box.height())));
        QVERIFY(shown.box.width() > 40);
        if (red) QVERIFY(shown.red > 100);

        // Before the line and once it is over: nothing.
        QVERIFY(inkOf(shotAt(0.5, u"before"_s)).box.isEmpty());
        QVERIFY(!m_overlay->showingText());
        QVERIFY(inkOf(shotAt(5.0, u"after"_s)).box.isEmpty());
    }

    void loadedFileThenDisabled()
    {
        const QString path = m_dir.filePath(u"movie.en.srt"_s);
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("\xEF\xBB\xBF"
                   "1\r\n00:00:10,000 --> 00:00:12,000\r\nFrom a file\r\n");
        file.close();
        const qint64 id = m_session.addFile(path, u"movie.en.srt"_s);
        QVERIFY(m_session.select(id));
        QVERIFY(!inkOf(shotAt(11, u"file"_s)).box.isEmpty());

        // "Disable Subtitles" clears what is on screen.
        m_session.select(0);
        QVERIFY(!m_overlay->showingText());
        QVERIFY(inkOf(shotAt(11, u"disabled"_s)).box.isEmpty());
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
        for (int i = 1; i <= kLines; ++i) {
            const int start = i * 500;
            srt += u"%1\n00:00:%2,%3 --> 00:00:%4,%5\nLine %1\n\n"_s.arg(i)
                       .arg(start / 1000, 2, 10, QChar(u'0'))
                       .arg(start % 1000, 3, 10, QChar(u'0'))
                       .arg((start + 400) / 1000, 2, 10, QChar(u'0'))
                       .arg((start + 400) % 1000, 3, 10, QChar(u'0'))
                       .toUtf8();
        }
        const qint64 id = addSubtitles(srt, u"srt"_s);
        QVERIFY(m_session.select(id));

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
        const double worst = *std::max_element(lateness.cbegin(), lateness.cend());
        qInfo("worst lateness at %gx: %.1f ms of media time", rate, worst * 1000);
        QVERIFY2(worst < 1.0 / 24, qPrintable(u"%1 s late"_s.arg(worst)));
        QVERIFY(*std::min_element(lateness.cbegin(), lateness.cend()) > -0.001);
    }

    // A font that only the document carries: DejaVu Sans Mono under a family name no system has.
    // Monospaced "i"s run half as wide again as the proportional fallback's (bold in both).
    void embeddedFontIsUsed()
    {
        QFile mono(u"/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf"_s);
        if (!mono.open(QIODevice::ReadOnly)) QSKIP("DejaVu Sans Mono is not installed");
        QByteArray font = mono.readAll();
        const QString from = u"DejaVu Sans Mono"_s, to = u"Quorvane TestMon"_s; // same length
        font.replace(from.toLatin1(), to.toLatin1());
        const auto utf16 = [](const QString& text) {
            QByteArray bytes;
            for (QChar c : text)
                bytes.append(char(c.unicode() >> 8)).append(char(c.unicode()));
            return bytes;
        };
        font.replace(utf16(from), utf16(to));

        QByteArray script = kPositionedAss;
        script.replace("DejaVu Serif", "Quorvane TestMon").replace("STOP", "iiiiiiiiii");
        SubtitleParse parse = subtitles::parseFile(script, u"ass"_s);
        QVERIFY(parse.ok());
        const qint64 without = m_session.addDocument(parse.document, u"without"_s);
        parse.document.fonts.append({"TestMon.ttf", font});
        const qint64 with = m_session.addDocument(parse.document, u"with"_s);

        QVERIFY(m_session.select(without));
        const int fallback = inkOf(shotAt(2.0, u"font-fallback"_s)).box.width();
        QVERIFY(m_session.select(with));
        const int embedded = inkOf(shotAt(2.0, u"font-embedded"_s)).box.width();
        QVERIFY2(fallback > 20 && embedded * 2 > fallback * 3,
                 qPrintable(u"%1 px with the font, %2 px without"_s.arg(embedded).arg(fallback)));
        m_session.select(0);
    }

    // The overlay as the player window declares it: typed properties from QML.
    void declaredInQml()
    {
        QQmlEngine engine;
        QQmlComponent component(&engine);
        component.setData(R"(
            import QtQuick
            import Quorvane.Subtitles
            Item {
                width: 800; height: 600
                property alias overlay: overlay
                SubtitleOverlay { id: overlay; anchors.fill: parent; videoSize: Qt.size(1920, 800) }
            })",
                          {});
        std::unique_ptr<QObject> root(component.create());
        QVERIFY2(root, qPrintable(component.errorString()));
        auto* overlay = root->property("overlay").value<SubtitleOverlay*>();
        QVERIFY(overlay);
        overlay->setSession(&m_session);
        QCOMPARE(overlay->pictureRect(), QRectF(0, 133.3333333333, 800, 333.3333333333));
    }

    void followsThePicture()
    {
        const qint64 id = addSubtitles("1\n00:00:01,000 --> 00:00:02,000\nWide\n"_ba, u"srt"_s);
        QVERIFY(m_session.select(id));
        // A 4:3 video in the same window fills it; a 2.39:1 one sits in a thin band.
        m_overlay->setVideoSize({640, 480});
        QCOMPARE(m_overlay->pictureRect(), QRectF(0, 0, 640, 480));
        QVERIFY(inkOf(shotAt(1.5, u"full"_s)).box.bottom() > 440);
        m_overlay->setVideoSize({1920, 804});
        const QRectF band = m_overlay->pictureRect();
        const Ink ink = inkOf(shotAt(1.5, u"band"_s));
        QVERIFY(band.contains(ink.box));
        m_overlay->setVideoSize(kVideo);
    }
};

QTEST_MAIN(SubtitleOverlayTest)
#include "tst_subtitleoverlay.moc"
