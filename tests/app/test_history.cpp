// Recent files, resume points and watched progress as they land in (and come back from) the
// settings store, including damaged stored values.
#include "PlaybackHistory.h"
#include "support/PlayerFixture.h"

#include <QSignalSpy>
#include <QTest>

#include <cmath>

using namespace quorvane;
using quorvane::testing::PlayerFixture;
using namespace Qt::StringLiterals;

class HistoryTest : public QObject {
    Q_OBJECT
private slots:
    void resumeRule_data()
    {
        QTest::addColumn<double>("position");
        QTest::addColumn<double>("duration");
        QTest::addColumn<double>("kept");
        QTest::newRow("just before 5 s") << 4.9 << 100.0 << 0.0;
        QTest::newRow("at 5 s") << 5.0 << 100.0 << 5.0;
        QTest::newRow("just inside the end margin") << 94.99 << 100.0 << 94.99;
        QTest::newRow("at the end margin") << 95.0 << 100.0 << 0.0;
        QTest::newRow("10 s item: no room") << 5.0 << 10.0 << 0.0;
        QTest::newRow("unknown duration") << 30.0 << 0.0 << 0.0;
        QTest::newRow("infinite duration") << 30.0 << double(INFINITY) << 0.0;
        QTest::newRow("nan position") << double(NAN) << 100.0 << 0.0;
    }
    void resumeRule()
    {
        QFETCH(double, position);
        QFETCH(double, duration);
        QFETCH(double, kept);
        QCOMPARE(history::resumePoint(position, duration), kept);
    }

    void resumePointAppliedAtLoadOnlyWhenItQualifies()
    {
        PlayerFixture f;
        const QUrl a = f.file("a.mp4");
        f.load(a, 100);
        f.player->seek(5.0);
        f.player->toggle(); // pausing saves
        QCOMPARE(f.player->savedPosition(a), 5.0);
        QCOMPARE(f.player->playbackProgress(a), 0.05);

        f.reopenSettings();
        f.load(a, 100);
        QCOMPARE(f.backend->seeks, QList<double>{5.0});
        QCOMPARE(f.player->position(), 5.0);

        // A shorter item (the file changed) no longer leaves room for the resume point.
        f.makePlayer();
        f.load(a, 10);
        QVERIFY(f.backend->seeks.isEmpty());
    }

    void recentFilesKeepTwelveNewestFirst()
    {
        PlayerFixture f;
        QList<QUrl> files;
        for (int i = 0; i < 13; ++i)
            files.append(f.file(u"dir%1/f.mp4"_s.arg(i)));
        // A one-entry list survives the INI file, which writes it as a plain string.
        f.player->open(files[0]);
        f.reopenSettings();
        QCOMPARE(f.player->recentFiles(), QList<QUrl>{files[0]});

        for (int i = 0; i < 12; ++i)
            f.player->open(files[i]);

        // Reopening the first entry leaves the list as it is.
        QSignalSpy changed(f.player.get(), &Player::recentFilesChanged);
        f.player->open(files[11]);
        QCOMPARE(changed.size(), 0);

        // A reopened older entry moves to the front without duplicates.
        f.player->open(files[3]);
        QCOMPARE(f.player->recentFiles().first(), files[3]);
        QCOMPARE(f.player->recentFiles().count(files[3]), 1);

        // A thirteenth distinct file drops the oldest.
        f.player->open(files[12]);
        QCOMPARE(f.player->recentFiles().size(), 12);
        QVERIFY(!f.player->recentFiles().contains(files[0]));
        const QList<QUrl> expected = f.player->recentFiles();

        f.reopenSettings();
        QCOMPARE(f.player->recentFiles(), expected);
    }

    void resumePointsEvictByPathOrder()
    {
        PlayerFixture f;
        QVariantMap stored;
        for (int i = 0; i < 200; ++i)
            stored.insert(u"/m/%1.mp4"_s.arg(i, 3, 10, QLatin1Char('0')), 30.0);
        f.settings->setValue("resumePositions", stored);

        // The new path sorts after "/m/...": the alphabetically first old entry goes.
        const QUrl a = f.file("a.mp4");
        f.load(a, 100);
        f.player->seek(20);
        f.player->savePosition();
        QVariantMap now = f.settings->value("resumePositions").toMap();
        QCOMPARE(now.size(), 200);
        QVERIFY(!now.contains("/m/000.mp4"));
        QCOMPARE(now.value(history::historyKey(a)).toDouble(), 20.0);
        // Saving the same file again replaces its entry and evicts nothing.
        f.player->savePosition();
        QCOMPARE(f.settings->value("resumePositions").toMap().size(), 200);

        // A path sorting before every other one is itself the one evicted.
        QVariantMap full;
        for (int i = 0; i < 200; ++i)
            full.insert(u"~/%1.mp4"_s.arg(i), 30.0);
        f.settings->setValue("resumePositions", full);
        f.player->savePosition();
        now = f.settings->value("resumePositions").toMap();
        QCOMPARE(now.size(), 200);
        QVERIFY(!now.contains(history::historyKey(a)));
    }

    void periodicSaveEveryFiveSeconds()
    {
        PlayerFixture f;
        const QUrl a = f.file("a.mp4");
        f.load(a, 100);
        f.backend->nextSnapshot.position = 10;
        f.player->refresh(); // the first refresh after load saves at once
        QCOMPARE(f.player->savedPosition(a), 10.0);
        f.backend->nextSnapshot.position = 15;
        f.clock += 5.0;
        f.player->refresh();
        QCOMPARE(f.player->savedPosition(a), 10.0);
        f.clock += 0.2;
        f.player->refresh();
        QCOMPARE(f.player->savedPosition(a), 15.0);
    }

    void progressIsLiveForTheOpenItemAndCleared()
    {
        PlayerFixture f;
        const QUrl a = f.file("a.mp4"), b = f.file("b.mp4");
        f.settings->setValue("watchedProgress",
                             QVariantMap{{history::historyKey(b), 0.5}, {"/gone.mp4", 0.0}});
        f.makePlayer();
        QCOMPARE(f.player->playbackProgress(b), 0.5);
        QCOMPARE(f.player->playbackProgress(a), 0.0);
        f.load(a, 200);
        f.player->seek(50);
        QCOMPARE(f.player->playbackProgress(a), 0.25);
        f.player->savePosition();
        // Entries at 0 are dropped when progress is written.
        const QVariantMap stored = f.settings->value("watchedProgress").toMap();
        QCOMPARE(stored.keys(), (QStringList{history::historyKey(a), history::historyKey(b)}));

        // Clearing the history forgets all three lists and nothing else.
        f.settings->setValue("holdMultiplier", 3.0);
        f.player->clearHistory();
        QVERIFY(f.player->watchedProgress().isEmpty());
        for (const char* key : {"recentFiles", "resumePositions", "watchedProgress"})
            QVERIFY(!f.settings->contains(key));
        QVERIFY(f.settings->contains("holdMultiplier"));
    }

    void damagedValuesReadAsDefaults()
    {
        PlayerFixture f;
        f.settings->setValue("recentFiles", 42);
        f.settings->setValue("resumePositions", "not a dictionary");
        f.settings->setValue("watchedProgress", QVariantMap{{"/ok.mp4", 0.5},
                                                            {"/bad.mp4", QStringList{"x"}},
                                                            {"/text.mp4", "abc"},
                                                            {"/nan.mp4", NAN}});
        f.settings->setValue("playlistSortOrder", "shuffle");
        f.settings->setValue("holdMultiplier", "fast");
        f.makePlayer();
        QVERIFY(f.player->recentFiles().isEmpty());
        QCOMPARE(f.player->watchedProgress(), (QVariantMap{{"/ok.mp4", 0.5}}));
        QCOMPARE(f.player->playlistSortOrder(), PlaylistSortOrder::Name);
        QCOMPARE(f.player->holdMultiplier(), 2.0);
        QCOMPARE(f.player->savedPosition(f.file("a.mp4")), 0.0);

        for (const QVariant& multiplier : {QVariant(1.2), QVariant(25), QVariant(true)}) {
            f.settings->setValue("holdMultiplier", multiplier);
            f.makePlayer();
            QCOMPARE(f.player->holdMultiplier(), 2.0);
        }
        f.settings->setValue("holdMultiplier", 1.25);
        f.settings->setValue("playlistSortOrder", "creationDate");
        f.reopenSettings();
        QCOMPARE(f.player->holdMultiplier(), 1.25);
        QCOMPARE(f.player->playlistSortOrderName(), u"creationDate"_s);

        // A damaged dictionary is replaced on the next save, not merged into.
        f.load(f.file("a.mp4"), 100);
        f.player->seek(30);
        f.player->savePosition();
        QCOMPARE(f.settings->value("resumePositions").toMap().size(), 1);
    }
};

QTEST_MAIN(HistoryTest)
#include "test_history.moc"
