// The value helpers every view relies on: time text and the window fit.
#include "PlaybackBackend.h"

#include <QTest>

#include <cmath>
#include <limits>

using namespace quorvane;

class PlaybackContractTest : public QObject {
    Q_OBJECT
private slots:
    void timestampText_data()
    {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<QString>("text");
        const double inf = std::numeric_limits<double>::infinity();
        QTest::newRow("negative") << -5.0 << "00:00";
        QTest::newRow("nan") << std::nan("") << "00:00";
        QTest::newRow("+inf") << inf << "00:00";
        QTest::newRow("under a second") << 0.9 << "00:00";
        QTest::newRow("truncates") << 59.99 << "00:59";
        QTest::newRow("last short form") << 3599.5 << "59:59";
        QTest::newRow("first long form") << 3600.0 << "1:00:00";
        QTest::newRow("hours not zero-filled") << 36000.0 + 61 << "10:01:01";
        QTest::newRow("clamped") << 1e12 << "596523:14:07";
    }
    void timestampText()
    {
        QFETCH(double, seconds);
        QFETCH(QString, text);
        QCOMPARE(timestamp(seconds), text);
    }

    void fittedSize_data()
    {
        QTest::addColumn<QSizeF>("size");
        QTest::addColumn<QSizeF>("within");
        QTest::addColumn<QSizeF>("expected");
        const double nan = std::nan("");
        QTest::newRow("fits unscaled")
            << QSizeF(1920, 1080) << QSizeF(3000, 2000) << QSizeF(1920, 1080);
        QTest::newRow("scaled to width")
            << QSizeF(1920, 1080) << QSizeF(960, 1080) << QSizeF(960, 540);
        QTest::newRow("small video floors each side")
            << QSizeF(320, 240) << QSizeF(1000, 1000) << QSizeF(640, 360);
        QTest::newRow("floors after scaling exceed the area")
            << QSizeF(1920, 1080) << QSizeF(100, 100) << QSizeF(640, 360);
        QTest::newRow("zero") << QSizeF(0, 0) << QSizeF(1000, 1000) << QSizeF(640, 480);
        QTest::newRow("nan width") << QSizeF(nan, 100) << QSizeF(1000, 1000) << QSizeF(640, 480);
        QTest::newRow("nan area") << QSizeF(1920, 1080) << QSizeF(nan, nan) << QSizeF(640, 360);
    }
    void fittedSize()
    {
        QFETCH(QSizeF, size);
        QFETCH(QSizeF, within);
        QFETCH(QSizeF, expected);
        QCOMPARE(fittedVideoSize(size, within), expected);
    }
};

QTEST_GUILESS_MAIN(PlaybackContractTest)
#include "test_playback_contract.moc"
