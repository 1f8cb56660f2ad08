// Subtitle tracks the player draws itself: files beside the video offered as tracks, a loaded
// file read in the background and shown, switching between them and the backend's own tracks,
// and the clock the overlay reads.
#include "ContainerMedia.h"
#include "ContainerSubtitles.h"
#include "support/PlayerFixture.h"

#include <QSet>
#include <QTest>

using namespace quorvane;
using quorvane::testing::PlayerFixture;
using namespace Qt::StringLiterals;

namespace {

QUrl write(PlayerFixture& f, const QString& name, const QByteArray& bytes)
{
    const QUrl url = f.file(name);
    QFile file(url.toLocalFile());
    if (file.open(QIODevice::WriteOnly)) file.write(bytes);
    return url;
}

const QByteArray kCue = "1\n00:00:01,000 --> 00:00:02,000\nHello\n";

QStringList subtitleLabels(const Player& player)
{
    QStringList found;
    for (const MediaTrack& track : player.tracks()) {
        if (track.type == u"subtitle") found.append(track.label);
    }
    return found;
}

} // namespace

class PlayerSubtitlesTest : public QObject {
    Q_OBJECT

private slots:
    void sidecarFilesBecomeTracksAndSwitchWithTheBackendOnes()
    {
        PlayerFixture f;
        for (const QString& name :
             {u"movie.srt"_s, u"movie.en.srt"_s, u"movie.zh-Hans.ass"_s, u"Movie.VTT"_s,
              u"movie2.srt"_s, u"other.srt"_s, u"movie.txt"_s})
            write(f, u"show/"_s + name, kCue);
        f.load(f.file(u"show/movie.mkv"_s), 60, {{1, PlaybackTrackKind::Subtitle, u"Embedded"_s}});
        QCOMPARE(subtitleLabels(*f.player),
                 (QStringList{u"Embedded"_s, u"movie.en.srt"_s, u"movie.srt"_s, u"Movie.VTT"_s,
                              u"movie.zh-Hans.ass"_s}));
        QCOMPARE(f.player->subtitles()->activeID(), 0);

        // Only one of an own track and the backend's draws at a time.
        const qint64 own = f.player->tracks().value(1).id; // movie.en.srt, read when chosen
        f.player->selectTrack(u"subtitle"_s, own);
        QCOMPARE(f.backend->calls.last(), u"select subtitle 0"_s);
        QTRY_COMPARE(f.player->subtitles()->activeID(), own);
        f.player->selectTrack(u"subtitle"_s, 1);
        QCOMPARE(f.player->subtitles()->activeID(), 0);
        QCOMPARE(f.backend->calls.last(), u"select subtitle 1"_s);
        f.player->selectTrack(u"subtitle"_s, 0); // "Disable Subtitles"
        QCOMPARE(f.backend->calls.last(), u"select subtitle 0"_s);

        // Another video drops them.
        f.load(f.file(u"other.mkv"_s), 60);
        QVERIFY(subtitleLabels(*f.player).isEmpty());
    }

    void loadingAFile()
    {
        PlayerFixture f;
        f.load(f.file(u"movie.mkv"_s), 60);
        QVERIFY(f.player->loadSubtitleFile(write(f, u"elsewhere/film.chs.srt"_s, kCue)));
        QTRY_COMPARE(subtitleLabels(*f.player), QStringList{u"film.chs.srt"_s});
        const qint64 shown = f.player->subtitles()->activeID();

        // Refused files leave the shown track alone and say why in the log.
        QVERIFY(f.player->loadSubtitleFile(write(f, u"empty.srt"_s, "no cues here\n")));
        QVERIFY(!f.player->loadSubtitleFile(f.file(u"x.mkv"_s)));
        QTRY_COMPARE(f.records(u"subtitle.dropped"_s).size(), 2);
        QCOMPARE(f.player->subtitles()->activeID(), shown);
        QCOMPARE(f.player->tracks().size(), 1);

        // A file still being read when another video opens does not join it.
        QVERIFY(f.player->loadSubtitleFile(write(f, u"late.srt"_s, kCue)));
        f.load(f.file(u"next.mkv"_s), 60);
        QTest::qWait(200);
        QVERIFY(subtitleLabels(*f.player).isEmpty());
    }

    // The forced track and the labels are the end-to-end test's; here, what the file does not show.
    void brokenEmbeddedTrackIsDropped()
    {
        PlayerFixture f;
        auto embedded = std::make_shared<ContainerSubtitles>();
        embedded->tracks = {
            {"S_TEXT/UTF8", {}, u"chi"_s, {}, true, false, {{1000, 500, "<i>你好</i>"}}},
            {"S_TEXT/ASS", "garbage", u"eng"_s, {}, false, false, {}},
        };
        f.player->open(f.file(u"movie.mkv"_s));
        PlaybackMediaInfo info{60, 1920, 1080, 24, false, {}};
        info.embeddedSubtitles = embedded;
        f.backend->emitEvent(PlaybackEvents::Ready{info});
        QCOMPARE(subtitleLabels(*f.player), QStringList{u"Chinese"_s});
        QCOMPARE(f.records(u"subtitle.dropped"_s).size(), 1);
        f.player->selectTrack(u"subtitle"_s, f.player->tracks().first().id);
        const auto document = f.player->subtitles()->activeDocument();
        QCOMPARE(document->events.value(0).line, "0,0,Default,,0,0,0,,{\\i1}你好{\\i0}");
    }

    // A large file knows few events at open; the shown track gets the rest while it plays, each
    // SubRip line with a number of its own (libass drops a repeated one).
    void embeddedEventsArriveWhileTheFilePlays()
    {
        const QString path = QStringLiteral(QV_FIXTURE_DIR "/subtitles_uncued.mkv");
        if (!QFile::exists(path)) QSKIP("generated fixtures are missing");
        qputenv("QV_MEDIA_LAYOUT", "fragmented");
        const auto media = ContainerMedia::open(path);
        qunsetenv("QV_MEDIA_LAYOUT");
        QVERIFY(!media->subtitles()->tracks.first().complete);
        PlayerFixture f;
        f.player->open(f.file(u"movie.mkv"_s));
        PlaybackMediaInfo info{30, 160, 120, 10, false, {}};
        info.embeddedSubtitles = media->subtitles();
        f.backend->emitEvent(PlaybackEvents::Ready{info});
        f.player->selectTrack(u"subtitle"_s, f.player->tracks().first().id);
        QTRY_COMPARE_WITH_TIMEOUT(f.player->subtitles()->activeDocument()->events.size(), 60,
                                  20000);
        QSet<QByteArray> numbers;
        for (const SubtitleEvent& event : f.player->subtitles()->activeDocument()->events)
            numbers.insert(event.line.left(event.line.indexOf(',')));
        QCOMPARE(numbers.size(), 60);
    }

    void clockFollowsPositionPauseAndSpeed()
    {
        PlayerFixture f;
        f.load(f.file(u"movie.mkv"_s), 60);
        SubtitleSession* session = f.player->subtitles();
        f.backend->nextSnapshot.position = 10;
        f.player->refresh();
        const QList<std::function<void()>> steps{[] {}, [&] { f.player->setBaseSpeed(2); },
                                                 [&] { f.player->toggle(); }};
        const QList<double> expected{10.1, 10.3, 10.3}; // each after 0.1 s more
        for (qsizetype i = 0; i < steps.size(); ++i) {
            steps[i]();
            f.clock += 0.1;
            QCOMPARE(session->currentTime(), expected[i]);
        }
        f.player->seek(30);
        QCOMPARE(session->currentTime(), 30.0);
    }
};

QTEST_MAIN(PlayerSubtitlesTest)
#include "test_player_subtitles.moc"
