// The play queue on real temporary folders: what counts as media, both orders, the folder scan
// and its generation check, and stepping without wrap-around.
#include "Playlist.h"
#include "support/PlayerFixture.h"

#include <QSignalSpy>
#include <QTest>
#include <QThread>

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

} // namespace

class PlaylistTest : public QObject {
    Q_OBJECT
private slots:
    void mediaFileTest()
    {
        PlayerFixture f;
        for (const char* name : {"a.MKV", "a.Mkv", "a.mkv", "b.m2ts", "c.ogv", "d.webm"})
            QVERIFY2(isMediaFile(f.file(name), true), name);
        QVERIFY(!isMediaFile(f.file("notes.txt"), false));
        QVERIFY(!isMediaFile(f.file("no-extension"), false));
        QVERIFY(!isMediaFile(QUrl("https://example.com/a.mp4"), false));
        // Not in the list, known to the MIME database as audio or video.
        QVERIFY(isMediaFile(f.file("song.mp3"), false));
        QVERIFY(!isMediaFile(f.file("song.mp3"), true));
        QVERIFY(isMediaFile(f.file("song.FLAC"), false));
        QVERIFY(isMediaFile(f.file("clip.3gp"), true));
        // The extension decides; the file need not exist.
        QVERIFY(isMediaFile(QUrl::fromLocalFile("/nowhere/x.mp4"), true));
    }

    void nameOrderIsNaturalAndCaseInsensitive()
    {
        const auto url = [](const char* path) { return QUrl::fromLocalFile(path); };
        const QList<QUrl> sorted = sortedPlaylist(
            {url("/v/Episode 10.mp4"), url("/v/episode 2.mp4"), url("/v/Episode 1.mp4"),
             url("/w/Alpha.mp4"), url("/v/alpha.mp4"), url("/u/Alpha.mp4")},
            PlaylistSortOrder::Name, {});
        // Equal names (ignoring case) fall back to the full path.
        QCOMPARE(sorted, (QList<QUrl>{url("/u/Alpha.mp4"), url("/v/alpha.mp4"), url("/w/Alpha.mp4"),
                                      url("/v/Episode 1.mp4"), url("/v/episode 2.mp4"),
                                      url("/v/Episode 10.mp4")}));
    }

    void creationOrderIsNewestFirst()
    {
        // Injected dates: later first, equal and missing dates fall through to the name.
        const QDateTime base = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
        const QHash<QString, QDateTime> dates = {{"old.mp4", base},
                                                 {"new.mp4", base.addSecs(60)},
                                                 {"b.mp4", base.addSecs(30)},
                                                 {"a.mp4", base.addSecs(30)}};
        const auto source = [&](const QUrl& url) { return dates.value(url.fileName()); };
        QList<QUrl> urls;
        for (const char* name : {"undated.mp4", "old.mp4", "b.mp4", "new.mp4", "a.mp4"})
            urls.append(QUrl::fromLocalFile(u"/v/"_s + name));
        QCOMPARE(names(sortedPlaylist(urls, PlaylistSortOrder::CreationDate, source)),
                 (QStringList{"new.mp4", "a.mp4", "b.mp4", "old.mp4", "undated.mp4"}));

        // Real files: created one after the other, listed newest first.
        PlayerFixture f;
        QList<QUrl> files;
        for (const char* name : {"c.mp4", "a.mp4", "b.mp4"}) {
            files.append(f.file(name));
            QThread::msleep(15);
        }
        if (!fileCreationDate(files.first()).isValid())
            QSKIP("this file system keeps no creation time");
        QCOMPARE(names(sortedPlaylist(files, PlaylistSortOrder::CreationDate)),
                 (QStringList{"b.mp4", "a.mp4", "c.mp4"}));
    }

    void openingAFileListsItsFolder()
    {
        PlayerFixture f;
        const QUrl ep2 = f.file("show/Episode 2.mkv");
        f.file("show/Episode 10.mp4");
        f.file("show/episode 1.MP4");
        f.file("show/notes.txt");
        f.file("show/.hidden.mp4");
        f.file("show/extras/Episode 3.mp4"); // one level only
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
        QCOMPARE(f.player->playlist().size(), 2);
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
        // Give a stray first batch every chance to arrive late.
        QTest::qWait(100);
        QCOMPARE(names(f.player->playlist()), (QStringList{"c.mp4", "d.avi"}));
        QCOMPARE(changed.size(), 1);
        QCOMPARE(f.player->playlistGeneration(), 2);

        // Later batches merge without duplicates, and may open their first file.
        f.player->addFiles(true, {QUrl::fromLocalFile(f.dir.filePath("one")), single});
        QTRY_COMPARE(names(f.player->playlist()),
                     (QStringList{"a.mp4", "b.mp4", "c.mp4", "d.avi"}));
        QTRY_COMPARE(f.player->currentURL().fileName(), u"a.mp4"_s);
        QCOMPARE(f.backend->count("open"), 1);
    }

    void sortOrderIsStoredAndApplied()
    {
        PlayerFixture f;
        f.player->addFiles(false, {f.file("b.mp4"), f.file("a.mp4")});
        QTRY_COMPARE(names(f.player->playlist()), (QStringList{"a.mp4", "b.mp4"}));
        f.player->setCreationDateSource([](const QUrl& url) {
            return QDateTime::fromSecsSinceEpoch(url.fileName() == "a.mp4" ? 100 : 200, Qt::UTC);
        });
        f.player->setPlaylistSortOrderName("creationDate");
        QCOMPARE(names(f.player->playlist()), (QStringList{"b.mp4", "a.mp4"}));
        QCOMPARE(f.settings->value("playlistSortOrder").toString(), "creationDate");
        f.player->setPlaylistSortOrderName("random");
        QCOMPARE(f.player->playlistSortOrder(), PlaylistSortOrder::CreationDate);
        f.player->setPlaylistSortOrder(PlaylistSortOrder::Name);
        QCOMPARE(names(f.player->playlist()), (QStringList{"a.mp4", "b.mp4"}));
        QCOMPARE(f.settings->value("playlistSortOrder").toString(), "name");
    }
};

QTEST_MAIN(PlaylistTest)
#include "test_playlist.moc"
