// Arrow keys against a loaded player: tap versus hold at the threshold, the boost while held and
// the exact speed afterwards, and keys that are not the held one.
#include "ArrowKeyPlayback.h"
#include "support/PlayerFixture.h"

#include <QTest>

using namespace quorvane;
using quorvane::testing::PlayerFixture;

class ArrowKeysTest : public QObject {
    Q_OBJECT
private slots:
    void tapSeeksHoldDoesNot()
    {
        PlayerFixture f;
        f.load(f.file("a.mp4"), 100);
        f.player->seek(50);
        ArrowKeyPlayback keys(f.player.get());

        // Held under 0.35 s is a tap, also on a large time base where differences carry rounding.
        const struct {
            double down, up;
            std::optional<double> seek;
            double position;
        } presses[] = {{10.0, 10.349, 5.0, 55},
                       {20.0, 20.35, std::nullopt, 55},
                       {86400.0, 86400.349, 5.0, 60},
                       {86401.0, 86401.35, std::nullopt, 60}};
        for (const auto& press : presses) {
            QVERIFY(keys.keyDown(ArrowKeyPlayback::kRightArrow, press.down));
            QCOMPARE(keys.release(ArrowKeyPlayback::kRightArrow, press.up), press.seek);
            QCOMPARE(f.player->position(), press.position);
            QVERIFY(!keys.key());
        }

        // A tap near the start stops at 0.
        f.player->seek(3);
        keys.keyDown(ArrowKeyPlayback::kLeftArrow, 30.0);
        QCOMPARE(keys.release(ArrowKeyPlayback::kLeftArrow, 30.1), -5.0);
        QCOMPARE(f.player->position(), 0.0);
    }

    void otherKeysDoNotReleaseTheHeldOneNorGetLost()
    {
        PlayerFixture f;
        f.load(f.file("a.mp4"), 100);
        ArrowKeyPlayback keys(f.player.get());
        QCOMPARE(keys.release(ArrowKeyPlayback::kLeftArrow, 1.0), std::nullopt);

        keys.keyDown(ArrowKeyPlayback::kLeftArrow, 1.0);
        keys.keyDown(ArrowKeyPlayback::kLeftArrow, 1.2);  // auto-repeat
        keys.keyDown(ArrowKeyPlayback::kRightArrow, 1.3); // second arrow
        QCOMPARE(keys.started(), 1.0);
        QCOMPARE(keys.release(ArrowKeyPlayback::kRightArrow, 1.4), std::nullopt);
        QCOMPARE(keys.key(), ArrowKeyPlayback::kLeftArrow);
        QVERIFY(keys.isTimerActive());
        QVERIFY(f.backend->seeks.isEmpty());
        keys.cancel();
        QVERIFY(!keys.key() && !keys.isTimerActive());

        // The QML entry point: out-of-range and foreign codes are not ours.
        keys.keyDown(ArrowKeyPlayback::kLeftArrow, 2.0);
        QVERIFY(!keys.keyUp(ArrowKeyPlayback::kLeftArrow + 0x10000, 2.1));
        QVERIFY(keys.keyUp(ArrowKeyPlayback::kLeftArrow, 2.1));
        QCOMPARE(f.backend->seeks, QList<double>{0});

        // Up/down step the volume, both Return keys toggle, space is left to the view.
        keys.keyDown(ArrowKeyPlayback::kUpArrow, 3);
        QCOMPARE(f.player->volume(), 85.0);
        keys.keyDown(ArrowKeyPlayback::kReturn, 4);
        QVERIFY(f.player->paused());
        keys.keyDown(ArrowKeyPlayback::kKeypadEnter, 5);
        QVERIFY(!f.player->paused());
        QVERIFY(!keys.keyDown(49, 6));
    }

    void holdBoostsUntilReleaseAndRestoresTheSpeed()
    {
        PlayerFixture f;
        f.load(f.file("a.mp4"), 100);
        f.player->setBaseSpeed(1.25);
        f.player->setHoldMultiplier(3);
        ArrowKeyPlayback keys(f.player.get());

        keys.keyDown(ArrowKeyPlayback::kRightArrow, 5.0);
        keys.tick(5.3);
        QVERIFY(!f.player->isBoosting());
        keys.tick(5.35);
        QVERIFY(f.player->isBoosting());
        QCOMPARE(f.player->speed(), 3.75);
        keys.tick(5.4); // already boosting
        QCOMPARE(f.player->speed(), 3.75);
        QCOMPARE(keys.release(ArrowKeyPlayback::kRightArrow, 7.0), std::nullopt);
        QVERIFY(!f.player->isBoosting() && !f.player->showingBoost());
        QCOMPARE(f.player->speed(), 1.25);
        QVERIFY(f.backend->seeks.isEmpty());
    }
};

QTEST_MAIN(ArrowKeysTest)
#include "test_arrow_keys.moc"
