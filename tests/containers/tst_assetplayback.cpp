// Qt Multimedia plays the virtual MP4 straight from the device: it loads, plays and seeks, mostly
// from the read-ahead, and stops cleanly once the device is invalidated.
#include "ContainerAsset.h"
#include "TestMedia.h"

#include <QMediaPlayer>
#include <QTest>
#include <QVideoSink>

using namespace quorvane;
using namespace quorvane::testing;

class AssetPlaybackTest : public QObject {
    Q_OBJECT

private slots:
    void playsSeeksAndStopsOnInvalidate()
    {
        // The largest file with video: the longer the stream, the more the read-ahead matters.
        QStringList candidates = containerFixtures();
        std::sort(candidates.begin(), candidates.end(), [](const QString& a, const QString& b) {
            return QFileInfo(a).size() > QFileInfo(b).size();
        });
        std::shared_ptr<ContainerMedia> media;
        for (const auto& path : candidates) {
            if (outcome([&] { media = ContainerMedia::open(path); }) == 0 &&
                media->videoTracks() > 0)
                break;
            media.reset();
        }
        if (!media) QSKIP("no container fixture with video");

        ContainerAsset asset(media);
        QMediaPlayer player;
        QVideoSink sink;
        player.setVideoSink(&sink);
        int frames = 0;
        connect(&sink, &QVideoSink::videoFrameChanged, this, [&] { ++frames; });
        player.setSourceDevice(&asset, asset.url());
        QTRY_VERIFY_WITH_TIMEOUT(player.mediaStatus() == QMediaPlayer::LoadedMedia ||
                                     player.error() != QMediaPlayer::NoError,
                                 20000);
        QCOMPARE(player.error(), QMediaPlayer::NoError);
        QVERIFY(player.duration() > 0 && player.hasVideo());

        player.play();
        QTRY_VERIFY_WITH_TIMEOUT(frames > 5, 20000);
        const qint64 target = player.duration() / 2;
        player.setPosition(target);
        QTRY_VERIFY_WITH_TIMEOUT(player.position() >= target, 20000);
        QVERIFY(asset.statistics().windowBytes > asset.statistics().directBytes);

        asset.invalidate();
        player.setPosition(0);
        QTest::qWait(300);
        player.stop();
        QCOMPARE(asset.read(16), QByteArray());
    }
};

QTEST_MAIN(AssetPlaybackTest)
#include "tst_assetplayback.moc"
