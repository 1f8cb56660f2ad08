// The player model over a scripted backend: opening, seeking, the end of an item, speed and boost,
// the history in a temporary INI file and the playlist on real folders.
#include "PlaybackHistory.h"
#include "Playlist.h"
#include "support/PlayerFixture.h"

#include <QSignalSpy>
#include <QTest>

#include <cmath>

using namespace quorvane;
using quorvane::testing::PlayerFixture;
using namespace Qt::StringLiterals;

namespace {

QStringList names(const QList<QUrl>& urls)
{
    QStringList result;
    for (const QUrl& url : urls)
        result.append(url.fileName());
    return result;
}

const QString kUnplayable = u"This computer cannot play this file's format or codec."_s;

} // namespace

class PlayerTest : public QObject {
    Q_OBJECT
private slots:
    void openReadyFailedAndUnreadable()
    {
        PlayerFixture f;
        const QUrl url = f.file("Holiday.2024.MKV");
        f.player->open(url);
        f.backend->emitEvent(PlaybackEvents::Ready{
            {5400, 3840, 2160, 23.976, true, {{7, PlaybackTrackKind::Subtitle, "Deutsch"}}}});
        QVERIFY(f.player->loaded() && !f.player->paused() && f.player->hdrContent());
        QCOMPARE(f.player->tracks(), (QList<MediaTrack>{{7, "subtitle", "Deutsch"}}));

        // Unreadable input shows an error and leaves the playing file, history and backend alone.
        const QList<QUrl> recent = f.player->recentFiles();
        f.backend->calls.clear();
        for (const QUrl& bad :
             {QUrl::fromLocalFile(f.dir.filePath("missing.mp4")), QUrl("https://example.com/a.mp4"),
              QUrl::fromLocalFile(f.dir.path())}) {
            f.player->open(bad);
            QCOMPARE(f.player->error(), u"Unable to read this file"_s);
            QVERIFY(f.player->currentURL() == url && f.player->loaded());
            QCOMPARE(f.player->recentFiles(), recent);
            QVERIFY(f.backend->calls.isEmpty());
        }

        // A failure is logged with its code; the next open clears everything of the old item.
        f.backend->emitEvent(PlaybackEvents::Failed{-11828});
        QCOMPARE(f.player->error(), kUnplayable);
        QCOMPARE(f.records("media.failed").value(0).fields.value("code"), u"-11828"_s);
        f.player->open(f.file("b.mp4"));
        QVERIFY(f.player->error().isEmpty() && !f.player->loaded() && !f.player->hdrContent());
        QVERIFY(!f.player->duration() && f.player->tracks().isEmpty());
    }

    void seeksAndThePendingTarget()
    {
        PlayerFixture f;
        f.player->seek(10); // before load: ignored
        f.player->open(f.file("a.mp4"));
        f.backend->emitEvent(PlaybackEvents::Ready{{0, 0, 0, 0, false, {}}});
        f.player->seek(42); // duration still unknown
        QCOMPARE(f.backend->seeks, QList<double>{0});
        f.load(f.file("b.mp4"), 100);
        f.backend->seeks.clear();
        for (double target : {double(NAN), double(INFINITY), -3.0, 1e9})
            f.player->seek(target); // non-finite targets are ignored, the rest clamped
        QCOMPARE(f.backend->seeks, (QList<double>{0, 100}));

        // Two seeks in a row: the first completion does not release the second target, which
        // holds the position for one second against stale snapshots.
        f.player->seek(30);
        const QUuid first = f.backend->lastSeekId;
        f.clock += 0.3;
        f.player->seek(60);
        const QUuid second = f.backend->lastSeekId;
        f.backend->nextSnapshot.position = 31;
        f.backend->emitEvent(PlaybackEvents::SeekCompleted{first});
        f.advance(0.999);
        QCOMPARE(f.player->position(), 60.0);
        f.advance(0.001);
        QCOMPARE(f.player->position(), 31.0);
        QVERIFY(!f.player->hasPendingSeek());
        f.player->seek(70);
        f.backend->emitEvent(PlaybackEvents::SeekCompleted{second}); // superseded
        QVERIFY(f.player->hasPendingSeek());
        f.backend->emitEvent(PlaybackEvents::SeekCompleted{f.backend->lastSeekId});
        QVERIFY(!f.player->hasPendingSeek());
    }

    void oneEndIsHandledOnce()
    {
        PlayerFixture f;
        const QUrl a = f.file("show/ep1.mp4"), b = f.file("show/ep2.mp4");
        f.load(a, 100);
        QTRY_COMPARE(f.player->playlist(), (QList<QUrl>{a, b}));
        f.backend->calls.clear();
        f.backend->emitEvent(PlaybackEvents::Ended{});
        f.backend->emitEvent(PlaybackEvents::Ended{});
        QCOMPARE(f.backend->count("open"), 1);
        QCOMPARE(f.player->currentURL(), b);
        // The finished item keeps no resume point and counts as fully watched.
        QCOMPARE(f.player->savedPosition(a), 0.0);
        QCOMPARE(f.player->playbackProgress(a), 1.0);

        // The last entry stays paused at the end; play starts over from 0.
        f.backend->emitEvent(PlaybackEvents::Ready{{50, 0, 0, 0, false, {}}});
        f.backend->calls.clear();
        f.backend->emitEvent(PlaybackEvents::Ended{});
        QVERIFY(f.player->paused() && f.player->position() == 50.0);
        QCOMPARE(f.backend->count("open"), 0);
        f.player->toggle();
        const QStringList& calls = f.backend->calls;
        QVERIFY(calls.contains("seek 0") && calls.indexOf("seek 0") < calls.indexOf("play 1"));

        f.player->open(a); // before load no end is handled
        f.backend->calls.clear();
        f.backend->emitEvent(PlaybackEvents::Ended{});
        QVERIFY(f.backend->calls.isEmpty());
    }

    void speedAndBoost()
    {
        PlayerFixture f;
        f.player->beginBoost(); // nothing loaded
        QVERIFY(!f.player->isBoosting());
        f.load(f.file("a.mp4"), 100);
        for (double rejected : {5.0, 0.2, double(NAN), double(INFINITY), -1.0})
            f.player->setBaseSpeed(rejected);
        QCOMPARE(f.player->speed(), 1.0);
        f.player->setBaseSpeed(4);

        // Boost at 4 with multiplier 20 is clamped to 20; release restores exactly 4.
        f.player->setHoldMultiplier(20);
        f.player->beginBoost();
        QCOMPARE(f.player->speed(), 20.0);
        f.player->beginBoost(); // already boosting
        f.player->endBoost();
        QCOMPARE(f.backend->rates.last(), 4.0);

        // A new base speed, a pause or an open ends a boost; a paused item is never boosted nor
        // restarted by a rate.
        f.player->setHoldMultiplier(3);
        f.player->beginBoost();
        f.player->setBaseSpeed(2);
        QVERIFY(!f.player->isBoosting() && f.player->speed() == 2.0);
        QCOMPARE(f.settings->value("holdMultiplier").toDouble(), 3.0);
        f.player->beginBoost();
        f.player->toggle();
        QCOMPARE(f.player->speed(), 2.0);
        const int plays = f.backend->count("play");
        f.player->beginBoost();
        f.player->setBaseSpeed(1);
        QVERIFY(!f.player->isBoosting());
        QCOMPARE(f.backend->count("play"), plays);
        f.player->toggle();
        f.player->beginBoost();
        f.player->open(f.file("b.mp4"));
        QVERIFY(!f.player->isBoosting() && f.player->speed() == 1.0);
    }

    void resumeRule()
    {
        const struct {
            double position, duration, kept;
        } rows[] = {
            {4.9, 100, 0}, {5, 100, 5}, {94.99, 100, 94.99}, {95, 100, 0}, // the margins
            {5, 10, 0},    {30, 0, 0},  {30, INFINITY, 0},   {NAN, 100, 0},
        };
        for (const auto& row : rows)
            QCOMPARE(history::resumePoint(row.position, row.duration), row.kept);
    }

    void historySurvivesARestart()
    {
        PlayerFixture f;
        const QUrl a = f.file("a.mp4");
        f.load(a, 100);
        f.backend->nextSnapshot.position = 10;
        f.advance(0); // the first refresh after load saves at once, then every 5 s
        QCOMPARE(f.player->savedPosition(a), 10.0);
        f.backend->nextSnapshot.position = 15;
        f.advance(5.0);
        QCOMPARE(f.player->savedPosition(a), 10.0);
        f.advance(0.2);
        QCOMPARE(f.player->savedPosition(a), 15.0);

        // A one-entry list survives the INI file, which writes it as a plain string.
        f.reopenSettings();
        QCOMPARE(f.player->recentFiles(), QList<QUrl>{a});
        f.load(a, 100);
        QCOMPARE(f.backend->seeks, QList<double>{15.0});
        f.makePlayer(); // the file got shorter: no room for the resume point
        f.load(a, 10);
        QVERIFY(f.backend->seeks.isEmpty());

        // Twelve newest first, a reopened entry moves to the front, a thirteenth drops the oldest.
        QList<QUrl> files;
        for (int i = 0; i < 13; ++i)
            files.append(f.file(u"dir%1/f.mp4"_s.arg(i)));
        for (int i = 0; i < 12; ++i)
            f.player->open(files[i]);
        f.player->open(files[3]);
        f.player->open(files[12]);
        const QList<QUrl> recent = f.player->recentFiles();
        QCOMPARE(recent.size(), 12);
        QVERIFY(recent[0] == files[12] && recent[1] == files[3] && recent.count(files[3]) == 1);
        QVERIFY(!recent.contains(files[0]));
        f.reopenSettings();
        QCOMPARE(f.player->recentFiles(), recent);

        // Clearing the history forgets its three lists and nothing else.
        f.settings->setValue("holdMultiplier", 3.0);
        f.player->clearHistory();
        QVERIFY(f.player->watchedProgress().isEmpty());
        for (const char* key : {"recentFiles", "resumePositions", "watchedProgress"})
            QVERIFY(!f.settings->contains(key));
        QVERIFY(f.settings->contains("holdMultiplier"));
    }

    void resumePointsEvictByPathOrder()
    {
        PlayerFixture f;
        QVariantMap stored;
        for (int i = 0; i < 200; ++i)
            stored.insert(u"/m/%1.mp4"_s.arg(i, 3, 10, QLatin1Char('0')), 30.0);
        f.settings->setValue("resumePositions", stored);
        const QUrl a = f.file("a.mp4");
        f.load(a, 100);
        f.player->seek(20);
        for (int i = 0; i < 2; ++i) // saving the same file again evicts nothing more
            f.player->savePosition();
        const QVariantMap now = f.settings->value("resumePositions").toMap();
        QCOMPARE(now.size(), 200);
        QVERIFY(!now.contains("/m/000.mp4") && now.contains("/m/001.mp4"));
        QCOMPARE(now.value(history::historyKey(a)).toDouble(), 20.0);
    }

    void damagedValuesReadAsDefaults()
    {
        PlayerFixture f;
        f.settings->setValue("recentFiles", 42);
        f.settings->setValue("resumePositions", "not a dictionary");
        f.settings->setValue("watchedProgress", QVariantMap{{"/ok.mp4", 0.5},
                                                            {"/zero.mp4", 0.0},
                                                            {"/bad.mp4", QStringList{"x"}},
                                                            {"/text.mp4", "abc"},
                                                            {"/nan.mp4", NAN}});
        f.settings->setValue("playlistSortOrder", "shuffle");
        for (const QVariant& multiplier :
             {QVariant("fast"), QVariant(1.2), QVariant(25), QVariant(true)}) {
            f.settings->setValue("holdMultiplier", multiplier);
            f.makePlayer();
            QCOMPARE(f.player->holdMultiplier(), 2.0);
        }
        QVERIFY(f.player->recentFiles().isEmpty());
        QCOMPARE(f.player->watchedProgress(), (QVariantMap{{"/ok.mp4", 0.5}, {"/zero.mp4", 0.0}}));
        QCOMPARE(f.player->playlistSortOrder(), PlaylistSortOrder::Name);
        QCOMPARE(f.player->savedPosition(f.file("a.mp4")), 0.0);

        // A damaged dictionary is replaced on the next save; entries at 0 are dropped.
        f.load(f.file("a.mp4"), 100);
        f.player->seek(30);
        f.player->savePosition();
        QCOMPARE(f.settings->value("resumePositions").toMap().size(), 1);
        QStringList kept{history::historyKey(f.file("a.mp4")), "/ok.mp4"};
        kept.sort();
        QCOMPARE(f.settings->value("watchedProgress").toMap().keys(), kept);
    }

    void sortOrders()
    {
        // Newest first, applied at once, stored; unknown names are ignored. (The name order is
        // checked with a folder below.)
        PlayerFixture f;
        f.player->addFiles(false, {f.file("b.mp4"), f.file("a.mp4"), f.file("c.mp4")});
        QTRY_COMPARE(names(f.player->playlist()), (QStringList{"a.mp4", "b.mp4", "c.mp4"}));
        f.player->setCreationDateSource([](const QUrl& u) {
            return QDateTime::fromSecsSinceEpoch(u.fileName() == "a.mp4" ? 100 : 200, Qt::UTC);
        }); // b and c are equally new: by name
        f.player->setPlaylistSortOrderName("creationDate");
        QCOMPARE(names(f.player->playlist()), (QStringList{"b.mp4", "c.mp4", "a.mp4"}));
        f.player->setPlaylistSortOrderName("random");
        f.reopenSettings();
        QCOMPARE(f.player->playlistSortOrderName(), u"creationDate"_s);
    }

    void openingAFileListsItsFolder()
    {
        PlayerFixture f;
        const QUrl ep2 = f.file("show/Episode 2.mkv");
        for (const char* other : {"show/Episode 10.mp4", "show/episode 1.MP4", "show/notes.txt",
                                  "show/.hidden.mp4", "show/extras/Episode 3.mp4"})
            f.file(other); // one level only, no hidden files
        f.player->open(ep2);
        QCOMPARE(f.player->playlist(), QList<QUrl>{ep2});
        QTRY_COMPARE(names(f.player->playlist()),
                     (QStringList{"episode 1.MP4", "Episode 2.mkv", "Episode 10.mp4"}));

        // A link opens as the file it points to.
        QVERIFY(QFile::link(ep2.toLocalFile(), f.dir.filePath("link.mkv")));
        f.player->open(QUrl::fromLocalFile(f.dir.filePath("link.mkv")));
        QCOMPARE(f.player->currentURL(), ep2);

        // Opening an entry of the list keeps the list; stepping has no wrap-around.
        const int generation = f.player->playlistGeneration();
        for (const auto& [step, lands] : {std::pair{1, "Episode 10.mp4"},
                                          {1, "Episode 10.mp4"},
                                          {-2, "episode 1.MP4"},
                                          {-1, "episode 1.MP4"},
                                          {100, "episode 1.MP4"}}) {
            f.player->next(step);
            QCOMPARE(f.player->currentURL().fileName(), QString::fromUtf8(lands));
        }
        QCOMPARE(f.player->playlistGeneration(), generation);
        // Once the current file is removed from the list, stepping does nothing.
        f.player->removeFile(f.player->currentURL());
        f.player->next(1);
        QCOMPARE(f.player->currentURL().fileName(), u"episode 1.MP4"_s);
    }

    void onlyTheLatestBatchLands()
    {
        PlayerFixture f;
        f.file("one/a.mp4");
        f.file("one/b.mp4");
        f.file("two/c.mp4");
        const QUrl single = f.file("d.avi");
        // Nothing playable: an error, and no batch starts.
        f.player->addFiles(true, {f.file("readme.txt"), QUrl("https://example.com/a.mp4")});
        QCOMPARE(f.player->error(), u"Choose a readable video or audio file"_s);
        QCOMPARE(f.player->playlistGeneration(), 0);
        QSignalSpy changed(f.player.get(), &Player::playlistChanged);
        f.player->addFiles(false, {QUrl::fromLocalFile(f.dir.filePath("one"))});
        f.player->addFiles(false, {QUrl::fromLocalFile(f.dir.filePath("two")), single});
        QTRY_COMPARE(names(f.player->playlist()), (QStringList{"c.mp4", "d.avi"}));
        QTest::qWait(100); // give a stray first batch every chance to arrive late
        QCOMPARE(names(f.player->playlist()), (QStringList{"c.mp4", "d.avi"}));
        QCOMPARE(changed.size(), 1);

        // Later batches merge without duplicates, and may open their first file.
        f.player->addFiles(true, {QUrl::fromLocalFile(f.dir.filePath("one")), single});
        QTRY_COMPARE(names(f.player->playlist()),
                     (QStringList{"a.mp4", "b.mp4", "c.mp4", "d.avi"}));
        QTRY_COMPARE(f.player->currentURL().fileName(), u"a.mp4"_s);
        QCOMPARE(f.backend->count("open"), 1);
    }
};

QTEST_MAIN(PlayerTest)
#include "test_player.moc"
