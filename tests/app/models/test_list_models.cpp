// The views' list models over a player on the scripted backend: rows, roles and resets follow
// the player's lists, the current file and the watched progress.
#include "PlaybackHistory.h"
#include "PlayerListModels.h"
#include "support/PlayerFixture.h"

#include <QSignalSpy>
#include <QTest>

using namespace quorvane;
using namespace quorvane::testing;
using namespace Qt::StringLiterals;

namespace {

QVariant cell(const QAbstractListModel& model, int row, const char* role)
{
    return model.data(model.index(row), model.roleNames().key(role));
}

} // namespace

class ListModelsTest : public QObject {
    Q_OBJECT
private slots:
    void fileRowsFollowThePlayer()
    {
        PlayerFixture f;
        const QUrl a = f.file(u"shows/Episode 10.mkv"_s);
        const QUrl b = f.file(u"shows/Episode 2.mkv"_s);
        history::storeWatchedProgress(*f.settings, {}, history::historyKey(a), 0.5);
        history::writeRecentFiles(*f.settings, {a});
        f.makePlayer();

        RecentFilesModel recent;
        PlaylistModel playlist;
        recent.setPlayer(f.player.get());
        playlist.setPlayer(f.player.get());
        QSignalSpy recentCount(&recent, &FileListModel::countChanged);

        // The stored history: a recent file with its watched share.
        QCOMPARE(recent.count(), 1);
        QCOMPARE(cell(recent, 0, "name").toString(), u"Episode 10.mkv"_s);
        QCOMPARE(cell(recent, 0, "progress").toDouble(), 0.5);

        // Opening puts the file in front and fills the playlist from its folder, in name order.
        f.load(b, 100);
        QCOMPARE(recent.count(), 2);
        QCOMPARE(recentCount.count(), 1);
        QCOMPARE(cell(recent, 0, "url").toUrl(), b);
        QTRY_COMPARE(playlist.count(), 2);
        QCOMPARE(cell(playlist, 0, "name").toString(), u"Episode 2.mkv"_s);
        QVERIFY(cell(playlist, 0, "current").toBool() && !cell(playlist, 1, "current").toBool());

        // The current mark moves with the open file; removal and clearing the history reset.
        f.load(a, 100);
        QVERIFY(!cell(playlist, 0, "current").toBool() && cell(playlist, 1, "current").toBool());
        f.player->removeFile(b);
        QCOMPARE(playlist.count(), 1);
        f.player->clearHistory();
        QCOMPARE(recent.count(), 0);
    }

    void trackRowsOfOneKind()
    {
        PlayerFixture f;
        TrackListModel tracks;
        tracks.setPlayer(f.player.get());
        f.load(f.file(u"film.mkv"_s), 60,
               {{1, PlaybackTrackKind::Audio, u"English"_s},
                {2, PlaybackTrackKind::Audio, u"Commentary"_s},
                {3, PlaybackTrackKind::Subtitle, u"English (SDH)"_s}});
        QCOMPARE(tracks.count(), 2); // audio by default
        QCOMPARE(cell(tracks, 1, "trackId").toLongLong(), 2);

        f.backend->nextSnapshot.audioID = 2;
        f.player->refresh();
        QVERIFY(!cell(tracks, 0, "selected").toBool() && cell(tracks, 1, "selected").toBool());

        tracks.setKind(u"subtitle"_s);
        QCOMPARE(tracks.count(), 1);
        QCOMPARE(cell(tracks, 0, "label").toString(), u"English (SDH)"_s);
        QVERIFY(!cell(tracks, 0, "selected").toBool());
    }
};

QTEST_GUILESS_MAIN(ListModelsTest)
#include "test_list_models.moc"
