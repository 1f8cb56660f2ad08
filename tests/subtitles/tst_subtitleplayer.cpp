// End to end: the player opens a Matroska file with embedded SubRip and forced ASS tracks, and
// files the platform plays with text tracks (an MP4 with timed text, a Matroska file the engine
// refuses), through the real backends, and the overlay over it shows the right line at
// chosen times, then none.
#include "Ink.h"
#include "Player.h"
#include "SubtitleOverlay.h"

#include <QQuickWindow>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

using namespace quorvane;
using namespace Qt::StringLiterals;

// A player drawing its subtitles over a black 640×480 window.
struct Stage {
    explicit Stage(const QString& settingsPath)
        : settings(settingsPath, QSettings::IniFormat), player(&settings, {}, true)
    {
        window.setColor(Qt::black);
        window.resize(640, 480);
        overlay = new SubtitleOverlay(window.contentItem());
        overlay->setSize(window.size());
        overlay->setSession(player.subtitles());
        window.show();
    }
    // Shows the window, opens the file and fits the overlay to its picture.
    bool load(const QString& path)
    {
        if (!QTest::qWaitForWindowExposed(&window)) return false;
        player.open(QUrl::fromLocalFile(path));
        if (!QTest::qWaitFor([&] { return player.loaded(); }, 30000)) return false;
        overlay->setVideoSize(player.videoSize());
        return true;
    }
    QSettings settings;
    Player player;
    QQuickWindow window;
    SubtitleOverlay* overlay = nullptr;
};

class SubtitlePlayerTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

private slots:
    void embeddedTracksOverThePicture()
    {
        const QString path = u"" QV_FIXTURE_DIR "/subtitles.mkv"_s;
        if (!QFile::exists(path)) QSKIP("generated fixtures are missing");
        Stage stage(m_dir.filePath(u"settings.ini"_s));
        Player& player = stage.player;
        QQuickWindow& window = stage.window;
        SubtitleOverlay* overlay = stage.overlay;
        QVERIFY(stage.load(path));
        QCOMPARE(overlay->pictureRect(), QRectF(0, 0, 640, 480)); // 4:3 in a 4:3 window

        QStringList labels;
        QList<qint64> ids;
        for (const MediaTrack& track : player.tracks()) {
            if (track.type != u"subtitle") continue;
            labels.append(track.label);
            ids.append(track.id);
        }
        QCOMPARE(labels, (QStringList{u"Chinese"_s, u"Subtitles 2"_s}));
        // The forced ASS sign is on by itself: red, at the top left.
        QCOMPARE(player.subtitles()->activeID(), ids[1]);
        player.toggle(); // pause
        player.seek(1.0);
        QTRY_VERIFY_WITH_TIMEOUT(overlay->showingText(), 10000);
        const auto [box, red] = inkOf(window.grabWindow());
        QVERIFY2(QRect(0, 0, 320, 120).contains(box),
                 qPrintable(u"%1,%2"_s.arg(box.x()).arg(box.y())));
        QVERIFY(red > 100);

        // The Chinese SubRip line at 1.75 s, at the bottom.
        player.selectTrack(u"subtitle"_s, ids[0]);
        player.seek(1.75);
        QTRY_VERIFY_WITH_TIMEOUT(
            overlay->showingText() && inkOf(window.grabWindow()).box.top() > 380, 10000);
        player.refresh();
        QCOMPARE(player.subtitleID(), ids[0]);

        // "Disable Subtitles".
        player.selectTrack(u"subtitle"_s, 0);
        QTRY_VERIFY_WITH_TIMEOUT(!overlay->showingText(), 5000);
        QVERIFY(inkOf(window.grabWindow()).box.isEmpty());
    }

    // Files the platform plays (MP4 timed text; Matroska with MPEG-4 Part 2 and Vorbis, which the
    // engine refuses) have their text read by us and drawn by our overlay, not the platform's: each
    // line is shown while its cue runs and gone after its end, the last one too.
    void platformTextDrawnByTheOverlay_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("mp4 timed text") << u"tx3g.mp4"_s;
        QTest::newRow("matroska the engine refuses") << u"mpeg4_vorbis_srt.mkv"_s;
    }
    void platformTextDrawnByTheOverlay()
    {
        QFETCH(QString, name);
        const QString path = u"" QV_FIXTURE_DIR "/"_s + name;
        if (!QFile::exists(path)) QSKIP("generated fixtures are missing");
        Stage stage(m_dir.filePath(u"settings.ini"_s));
        QVERIFY(stage.load(path));
        Player& player = stage.player;
        QList<qint64> ids;
        for (const MediaTrack& track : player.tracks()) {
            if (track.type == u"subtitle") ids.append(track.id);
        }
        QCOMPARE(ids.size(), 1);
        QVERIFY(player.subtitles()->owns(ids[0]));   // ours, not the backend's
        QCOMPARE(player.subtitles()->activeID(), 0); // off until chosen
        player.toggle();                             // pause
        player.selectTrack(u"subtitle"_s, ids[0]);
        player.refresh();
        QCOMPARE(player.subtitleID(), ids[0]);

        // Cues at 0.5-1.0 s and 1.5-2.0 s; the file runs 3 s.
        for (const auto& [seconds, shown] : {std::pair{0.75, true}, std::pair{1.25, false},
                                             std::pair{1.75, true}, std::pair{2.5, false}}) {
            player.seek(seconds);
            QTRY_VERIFY2_WITH_TIMEOUT(stage.overlay->showingText() == shown &&
                                          inkOf(stage.window.grabWindow()).box.isEmpty() != shown,
                                      qPrintable(u"at %1 s"_s.arg(seconds)), 10000);
        }
    }
};

QTEST_MAIN(SubtitlePlayerTest)
#include "tst_subtitleplayer.moc"
