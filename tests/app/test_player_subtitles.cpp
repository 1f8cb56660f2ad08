// Subtitle tracks the player draws itself: files beside the video offered as tracks, a loaded
// file shown at once, switching between them and the backend's own tracks, and the clock the
// overlay reads.
#include "ContainerMedia.h"
#include "ContainerSubtitles.h"
#include "support/PlayerFixture.h"

#include <QSet>
#include <QTest>

using namespace quorvane;
using quorvane::testing::PlayerFixture;
using namespace Qt::StringLiterals;

namespace {

void write(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

const QByteArray kCue = "1\n00:00:01,000 --> 00:00:02,000\nHello\n";

QStringList labels(const Player& player, const QString& type)
{
    QStringList found;
    for (const MediaTrack& track : player.tracks()) {
        if (track.type == type) found.append(track.label);
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
        const QUrl movie = f.file(u"show/movie.mkv"_s);
        for (const QString& name :
             {u"movie.srt"_s, u"movie.en.srt"_s, u"movie.zh-Hans.ass"_s, u"Movie.VTT"_s,
              u"movie2.srt"_s, u"other.srt"_s, u"movie.txt"_s})
            write(f.dir.filePath(u"show/"_s + name), kCue);
        f.load(movie, 60, {{1, PlaybackTrackKind::Subtitle, u"Embedded"_s}});

        QCOMPARE(labels(*f.player, u"subtitle"_s),
                 (QStringList{u"Embedded"_s, u"movie.en.srt"_s, u"movie.srt"_s, u"Movie.VTT"_s,
                              u"movie.zh-Hans.ass"_s}));
        QCOMPARE(f.player->subtitles()->activeID(), 0);
        QCOMPARE(f.player->subtitleID(), 0);

        // Switching between an own track and the backend's: only one of them draws at a time.
        const qint64 own = f.player->tracks().value(1).id; // movie.en.srt
        QVERIFY(own >= SubtitleSession::kFirstID);

        f.player->selectTrack(u"subtitle"_s, own);
        QCOMPARE(f.player->subtitles()->activeID(), own);
        QCOMPARE(f.backend->calls.last(), u"select subtitle 0"_s);
        f.player->refresh();
        QCOMPARE(f.player->subtitleID(), own);
        QCOMPARE(f.player->subtitles()->activeDocument()->events.size(), 1);

        f.player->selectTrack(u"subtitle"_s, 1);
        QCOMPARE(f.player->subtitles()->activeID(), 0);
        QCOMPARE(f.backend->calls.last(), u"select subtitle 1"_s);

        f.player->selectTrack(u"subtitle"_s, own);
        f.player->selectTrack(u"subtitle"_s, 0); // "Disable Subtitles"
        QCOMPARE(f.player->subtitles()->activeID(), 0);
        QCOMPARE(f.backend->calls.last(), u"select subtitle 0"_s);

        // Another video drops them.
        f.load(f.file(u"other.mkv"_s), 60);
        QVERIFY(labels(*f.player, u"subtitle"_s).isEmpty());
    }

    void loadingAFile()
    {
        PlayerFixture f;
        f.load(f.file(u"movie.mkv"_s), 60);
        const QString good = f.dir.filePath(u"elsewhere/film.chs.srt"_s);
        QDir().mkpath(QFileInfo(good).absolutePath());
        write(good, kCue);
        QVERIFY(f.player->loadSubtitleFile(QUrl::fromLocalFile(good)));
        QCOMPARE(labels(*f.player, u"subtitle"_s), QStringList{u"film.chs.srt"_s});
        QVERIFY(f.player->subtitles()->activeID() != 0);

        // Refused files leave the shown track alone and say why in the log.
        const QString empty = f.dir.filePath(u"empty.srt"_s);
        write(empty, "no cues here\n");
        const qint64 shown = f.player->subtitles()->activeID();
        QVERIFY(!f.player->loadSubtitleFile(QUrl::fromLocalFile(empty)));
        QVERIFY(!f.player->loadSubtitleFile(QUrl::fromLocalFile(f.dir.filePath(u"x.mkv"_s))));
        QCOMPARE(f.records(u"subtitle.dropped"_s).size(), 2);
        QCOMPARE(f.player->subtitles()->activeID(), shown);
        QCOMPARE(f.player->tracks().size(), 1);
    }

    void embeddedTracksAndTheForcedOne()
    {
        PlayerFixture f;
        auto embedded = std::make_shared<ContainerSubtitles>();
        const QByteArray header = "[Script Info]\nScriptType: v4.00+\n\n[Events]\nFormat: Layer, "
                                  "Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, "
                                  "Text\n";
        embedded->tracks = {
            {"S_TEXT/UTF8", {}, u"chi"_s, u"Chinese"_s, true, false, {{1000, 500, "<i>你好</i>"}}},
            {"S_TEXT/ASS",
             header,
             u"und"_s,
             {},
             false,
             true,
             {{0, 900, "0,0,Default,,0,0,0,,Sign"}}},
            {"S_TEXT/ASS", "garbage", u"eng"_s, {}, false, false, {}},
        };
        f.player->open(f.file(u"movie.mkv"_s));
        PlaybackMediaInfo info{60, 1920, 1080, 24, false, {}};
        info.embeddedSubtitles = embedded;
        f.backend->emitEvent(PlaybackEvents::Ready{info});

        // The broken one is dropped; the forced one is on from the start.
        QCOMPARE(labels(*f.player, u"subtitle"_s), (QStringList{u"Chinese"_s, u"Subtitles 2"_s}));
        const qint64 forced = f.player->tracks().last().id;
        QCOMPARE(f.player->subtitles()->activeID(), forced);
        const auto document = f.player->subtitles()->activeDocument();
        QCOMPARE(document->events.value(0).line, "0,0,Default,,0,0,0,,Sign");
        QCOMPARE(f.records(u"subtitle.dropped"_s).size(), 1);

        f.player->selectTrack(u"subtitle"_s, f.player->tracks().first().id);
        QCOMPARE(f.player->subtitles()->activeDocument()->events.value(0).line,
                 "0,0,Default,,0,0,0,,{\\i1}你好{\\i0}");
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
        f.clock += 0.1;
        QCOMPARE(session->currentTime(), 10.1);
        f.player->setBaseSpeed(2);
        f.clock += 0.1;
        QCOMPARE(session->currentTime(), 10.3);
        f.player->toggle(); // pause
        f.clock += 1;
        QCOMPARE(session->currentTime(), 10.3);
        f.player->seek(30);
        QCOMPARE(session->currentTime(), 30.0);
    }
};

QTEST_MAIN(PlayerSubtitlesTest)
#include "test_player_subtitles.moc"
