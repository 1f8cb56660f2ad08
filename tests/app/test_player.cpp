// The player model driven through a scripted backend: opening, events, seeking, the end of an
// item, speed and boost, volume feedback and the published-state discipline.
#include "PlaybackHistory.h"
#include "StandardSlots.h"
#include "support/PlayerFixture.h"

#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QSignalSpy>
#include <QTest>

#include <cmath>

using namespace quorvane;
using quorvane::testing::PlayerFixture;
using namespace Qt::StringLiterals;

class PlayerTest : public QObject {
    Q_OBJECT
private slots:
    void unreadableFileChangesNothingButTheError()
    {
        PlayerFixture f;
        const QUrl good = f.file("a.mp4");
        f.load(good, 100);
        const QList<QUrl> recent = f.player->recentFiles();
        f.backend->calls.clear();

        for (const QUrl& bad :
             {QUrl::fromLocalFile(f.dir.filePath("missing.mp4")), QUrl("https://example.com/a.mp4"),
              QUrl::fromLocalFile(f.dir.path())}) {
            f.player->open(bad);
            QCOMPARE(f.player->error(), u"Unable to read this file"_s);
            QCOMPARE(f.player->currentURL(), good);
            QCOMPARE(f.player->recentFiles(), recent);
            QVERIFY(f.player->loaded());
            QVERIFY(f.backend->calls.isEmpty());
        }
    }

    void openReadyAndFailed()
    {
        PlayerFixture f;
        const QUrl url = f.file("Holiday.2024.MKV");
        f.player->open(url);
        QCOMPARE(f.player->currentURL(), url);
        QCOMPARE(f.player->title(), u"Holiday.2024"_s);
        QCOMPARE(f.player->recentFiles(), QList<QUrl>{url});
        QCOMPARE(f.backend->openedUrl, url);
        QCOMPARE(f.backend->volume, 0.8);
        QVERIFY(!f.player->loaded());
        const auto opened = f.records("media.open");
        QCOMPARE(opened.size(), 1);
        QCOMPARE(opened[0].fields.value("ext"), u"mkv"_s);

        const QList<PlaybackTrack> tracks = {{1, PlaybackTrackKind::Audio, "English"},
                                             {7, PlaybackTrackKind::Subtitle, "Deutsch"}};
        f.backend->emitEvent(PlaybackEvents::Ready{{5400, 3840, 2160, 23.976, true, tracks}});
        QVERIFY(f.player->loaded() && !f.player->paused());
        QCOMPARE(f.player->duration(), 5400.0);
        QCOMPARE(f.player->videoSize(), QSizeF(3840, 2160));
        QVERIFY(f.player->hdrContent());
        QCOMPARE(f.player->tracks(),
                 (QList<MediaTrack>{{1, "audio", "English"}, {7, "subtitle", "Deutsch"}}));
        QCOMPARE(f.backend->rates, QList<double>{1.0});

        f.player->selectTrack("audio", 2);
        f.player->selectTrack("anything else", 9);
        QVERIFY(f.backend->calls.contains("select audio 2") &&
                f.backend->calls.contains("select subtitle 9"));

        // A failure shows the error and is logged with its code; the next open clears it.
        f.backend->emitEvent(PlaybackEvents::Failed{-11828});
        QCOMPARE(f.player->error(), u"This computer cannot play this file's format or codec."_s);
        QCOMPARE(f.records("media.failed").value(0).fields.value("code"), u"-11828"_s);
        f.player->open(f.file("b.mp4"));
        QVERIFY(f.player->error().isEmpty() && !f.player->loaded() && !f.player->hdrContent());
        QVERIFY(!f.player->duration() && f.player->tracks().isEmpty());
        QCOMPARE(f.player->videoSize(), QSizeF(0, 0));
    }

    void defaultRouterReportsAnUnplayableFile()
    {
        // The real router over the standard slots: an empty ".mp4" cannot be played by any.
        PlayerFixture f;
        QSettings settings(f.dir.filePath("other.ini"), QSettings::IniFormat);
        DiagnosticLog log;
        Player player(&settings);
        player.setDiagnosticLog(&log);
        player.open(f.file("empty.mp4"));
        const auto standard = standardSlots();
        QCOMPARE(log.entries().value(0).fields.value("backend"),
                 standard.empty() ? u"none"_s : standard.front().id);
        QTRY_COMPARE_WITH_TIMEOUT(
            player.error(), u"This computer cannot play this file's format or codec."_s, 20000);
        QVERIFY(!player.loaded());
        QCOMPARE(log.entries().last().event, u"media.failed"_s);
    }

    void qmlSeesThePublishedState()
    {
        PlayerFixture f;
        const QUrl a = f.file("clips/a.mp4"), b = f.file("clips/b.mp4");
        f.load(a, 90, {{3, PlaybackTrackKind::Subtitle, "English"}});
        QTRY_COMPARE(f.player->playlist(), (QList<QUrl>{a, b}));
        QQmlEngine engine;
        engine.rootContext()->setContextProperty("player", f.player.get());
        QQmlComponent component(&engine);
        component.setData(R"(
            import QtQml
            QtObject {
                property string trackType: player.tracks[0].type
                property int trackId: player.tracks[0].id
                property string time: player.formatTime(3600)
                function act() {
                    player.playlistSortOrder = "creationDate"
                    player.selectTrack("subtitle", 3)
                    player.addFiles(false, [player.recentFiles[0]])
                    return player.speedChoices.length
                }
            })",
                          QUrl());
        std::unique_ptr<QObject> object(component.create());
        QVERIFY2(object, qPrintable(component.errorString()));
        QCOMPARE(object->property("trackType").toString(), u"subtitle"_s);
        QCOMPARE(object->property("trackId").toInt(), 3);
        QCOMPARE(object->property("time").toString(), u"1:00:00"_s);
        QVariant choices;
        QVERIFY(QMetaObject::invokeMethod(object.get(), "act", Q_RETURN_ARG(QVariant, choices)));
        QCOMPARE(choices.toInt(), 8);
        QCOMPARE(f.player->playlistSortOrder(), PlaylistSortOrder::CreationDate);
        QVERIFY(f.backend->calls.contains("select subtitle 3"));
        // The JavaScript array arrived as a list of URLs: a batch ran and merged.
        QCOMPARE(f.player->playlistGeneration(), 2);
        QTest::qWait(100);
        QCOMPARE(f.player->playlist().size(), 2);
    }

    void seeksAndThePendingTarget()
    {
        PlayerFixture f;
        f.player->seek(10); // before load: ignored
        QVERIFY(f.backend->seeks.isEmpty());

        f.player->open(f.file("a.mp4"));
        f.backend->emitEvent(PlaybackEvents::Ready{{0, 0, 0, 0, false, {}}});
        f.player->seek(42); // duration still unknown
        QCOMPARE(f.backend->seeks, QList<double>{0});

        f.load(f.file("b.mp4"), 100);
        f.backend->seeks.clear();
        for (double target : {double(NAN), double(INFINITY), -3.0, 1e9})
            f.player->seek(target); // non-finite targets are ignored, the rest clamped
        QCOMPARE(f.backend->seeks, (QList<double>{0, 100}));

        // Two seeks in a row: the first completion does not release the second target.
        f.player->seek(30);
        const QUuid first = f.backend->lastSeekId;
        f.clock += 0.3;
        f.player->seek(60);
        const QUuid second = f.backend->lastSeekId;
        QCOMPARE(f.player->position(), 60.0);
        f.backend->nextSnapshot.position = 31;
        f.backend->emitEvent(PlaybackEvents::SeekCompleted{first});
        QVERIFY(f.player->hasPendingSeek());
        f.clock += 0.999;
        f.player->refresh();
        QCOMPARE(f.player->position(), 60.0);
        f.clock += 0.001; // one second old: the snapshot wins
        f.player->refresh();
        QCOMPARE(f.player->position(), 31.0);
        QVERIFY(!f.player->hasPendingSeek());

        f.player->seek(70);
        f.backend->emitEvent(PlaybackEvents::SeekCompleted{second}); // superseded
        QVERIFY(f.player->hasPendingSeek());
        f.backend->emitEvent(PlaybackEvents::SeekCompleted{f.backend->lastSeekId});
        QVERIFY(!f.player->hasPendingSeek());
        f.backend->nextSnapshot = {71, 1, 2, 3, 4};
        f.player->refresh();
        QCOMPARE(f.player->position(), 71.0);
        QCOMPARE(f.player->audioID(), 2);
        QCOMPARE(f.player->subtitleID(), 3);
        QCOMPARE(f.player->droppedFrames(), 4.0);
    }

    void refreshWritesOnlyChanges()
    {
        PlayerFixture f;
        f.load(f.file("a.mp4"), 100);
        f.backend->nextSnapshot = {12, 1, 1, 0, 0};
        QSignalSpy position(f.player.get(), &Player::positionChanged);
        QSignalSpy audio(f.player.get(), &Player::audioIDChanged);
        QSignalSpy dropped(f.player.get(), &Player::droppedFramesChanged);
        for (int i = 0; i < 5; ++i) {
            f.clock += 0.2;
            f.player->refresh();
        }
        QCOMPARE(position.size(), 1);
        QCOMPARE(audio.size(), 1);
        QCOMPARE(dropped.size(), 0);
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

        // The last entry: the player stays at the end, and play starts over from 0.
        f.backend->emitEvent(PlaybackEvents::Ready{{50, 0, 0, 0, false, {}}});
        f.backend->calls.clear();
        f.backend->emitEvent(PlaybackEvents::Ended{});
        QCOMPARE(f.player->currentURL(), b);
        QVERIFY(f.player->paused());
        QCOMPARE(f.player->position(), 50.0);
        QCOMPARE(f.backend->count("open"), 0);
        f.player->toggle();
        QVERIFY(!f.player->paused());
        QCOMPARE(f.backend->seeks.last(), 0.0);
        QVERIFY(f.backend->calls.indexOf("seek 0") < f.backend->calls.indexOf("play 1"));

        // Before load no end is handled.
        f.player->open(a);
        f.backend->calls.clear();
        f.backend->emitEvent(PlaybackEvents::Ended{});
        QVERIFY(f.backend->calls.isEmpty());
    }

    void baseSpeedAndBoost()
    {
        PlayerFixture f;
        f.player->beginBoost(); // nothing loaded
        QVERIFY(!f.player->isBoosting());
        f.load(f.file("a.mp4"), 100);

        for (double rejected : {5.0, 0.2, double(NAN), double(INFINITY), -1.0}) {
            f.player->setBaseSpeed(rejected);
            QCOMPARE(f.player->speed(), 1.0);
        }
        for (double accepted : {0.25, 4.0}) {
            f.player->setBaseSpeed(accepted);
            QCOMPARE(f.backend->rates.last(), accepted);
        }

        // Boost at 4 with multiplier 20 is clamped to 20; release restores exactly 4.
        f.player->setHoldMultiplier(20);
        f.player->beginBoost();
        QVERIFY(f.player->isBoosting() && f.player->showingBoost());
        QCOMPARE(f.player->speed(), 20.0);
        f.player->beginBoost(); // already boosting
        QCOMPARE(f.player->originalSpeed(), 4.0);
        f.clock += 0.99;
        f.player->refresh();
        QVERIFY(f.player->showingBoost());
        f.clock += 0.01;
        f.player->refresh();
        QVERIFY(!f.player->showingBoost() && f.player->isBoosting());
        f.player->endBoost();
        QCOMPARE(f.backend->rates.last(), 4.0);
        QVERIFY(!f.player->isBoosting() && !f.player->originalSpeed());

        // The multiplier re-applies during a boost; invalid multipliers are ignored.
        f.player->setBaseSpeed(1.5);
        f.player->setHoldMultiplier(2);
        f.player->beginBoost();
        QCOMPARE(f.player->speed(), 3.0);
        for (double rejected : {1.2, 20.5, double(NAN)})
            f.player->setHoldMultiplier(rejected);
        QCOMPARE(f.player->holdMultiplier(), 2.0);
        f.player->setHoldMultiplier(3);
        QCOMPARE(f.player->speed(), 4.5);
        QCOMPARE(f.settings->value("holdMultiplier").toDouble(), 3.0);

        // Setting the base speed ends the boost first.
        f.player->setBaseSpeed(2);
        QVERIFY(!f.player->isBoosting());
        QCOMPARE(f.player->speed(), 2.0);

        // Pausing ends a boost and a paused item is never boosted or restarted by a rate.
        f.player->beginBoost();
        f.player->toggle();
        QVERIFY(f.player->paused());
        QCOMPARE(f.player->speed(), 2.0);
        const int plays = f.backend->count("play");
        f.player->beginBoost();
        f.player->setBaseSpeed(1);
        QVERIFY(!f.player->isBoosting());
        QCOMPARE(f.backend->count("play"), plays);
        f.player->toggle();
        QCOMPARE(f.backend->rates.last(), 1.0);

        // Opening another file ends the boost too.
        f.player->beginBoost();
        f.player->open(f.file("b.mp4"));
        QVERIFY(!f.player->isBoosting());
        QCOMPARE(f.player->speed(), 1.0);
    }

    void deactivationAndQuitEndTheBoostAndSave()
    {
        PlayerFixture f;
        const QUrl a = f.file("a.mp4");
        f.load(a, 100);
        double at = 30;
        for (const bool quit : {false, true}) {
            f.player->beginBoost();
            f.player->seek(at);
            QVERIFY(quit ? QMetaObject::invokeMethod(qApp, "aboutToQuit")
                         : QMetaObject::invokeMethod(
                               qApp, "applicationStateChanged",
                               Q_ARG(Qt::ApplicationState, Qt::ApplicationInactive)));
            QVERIFY(!f.player->isBoosting());
            QCOMPARE(f.player->savedPosition(a), at);
            at += 10;
        }
    }

    void volumeClampsAndOverlayTiming()
    {
        PlayerFixture f;
        f.makePlayer(true); // a muted start reaches the backend as its mute flag
        QVERIFY(f.backend->muted);
        for (double step : {15.0, 10.0})
            f.player->adjustVolume(step);
        QCOMPARE(f.player->volume(), 100.0); // 95, then clamped
        QCOMPARE(f.backend->volume, 1.0);
        QVERIFY(f.player->showingVolume());

        f.clock += 1.0;
        for (double step : {-100.0, double(NAN), -10.0})
            f.player->adjustVolume(step);
        QCOMPARE(f.player->volume(), 0.0);
        QCOMPARE(f.backend->volume, 0.0);

        // The overlay stays 1.5 s after the last change.
        f.clock += 1.49;
        f.player->refresh();
        QVERIFY(f.player->showingVolume());
        f.clock += 0.01;
        f.player->refresh();
        QVERIFY(!f.player->showingVolume());
    }
};

QTEST_MAIN(PlayerTest)
#include "test_player.moc"
