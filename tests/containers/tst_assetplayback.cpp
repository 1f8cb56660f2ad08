// Qt Multimedia playing the virtual MP4 straight from the device: it loads, reports the duration,
// plays and seeks, and stops cleanly once the device is invalidated.
#include "ContainerAsset.h"
#include "ContainerMedia.h"
#include "MediaOracle.h"

#include <QMediaPlayer>
#include <QMutex>
#include <QSet>
#include <QTest>
#include <QVideoSink>

using namespace quorvane;
using namespace quorvane::testing;

namespace {

// Notes which threads read the device and how much they ask for at once.
class WatchedAsset : public ContainerAsset {
public:
    using ContainerAsset::ContainerAsset;

    QSet<QThread*> threads() const
    {
        QMutexLocker locker(&m_lock);
        return m_threads;
    }
    qint64 largestRead() const
    {
        QMutexLocker locker(&m_lock);
        return m_largest;
    }

protected:
    qint64 readData(char* data, qint64 maxSize) override
    {
        {
            QMutexLocker locker(&m_lock);
            m_threads.insert(QThread::currentThread());
            m_largest = std::max(m_largest, maxSize);
        }
        return ContainerAsset::readData(data, maxSize);
    }

private:
    mutable QMutex m_lock;
    QSet<QThread*> m_threads;
    qint64 m_largest = 0;
};

} // namespace

class AssetPlaybackTest : public QObject {
    Q_OBJECT

private slots:
    void playsSeeksAndStopsOnInvalidate();
};

void AssetPlaybackTest::playsSeeksAndStopsOnInvalidate()
{
    // The largest file first: the longer the stream, the more the read-ahead matters.
    QStringList candidates = containerFixtures();
    std::sort(candidates.begin(), candidates.end(), [](const QString& a, const QString& b) {
        return QFileInfo(a).size() > QFileInfo(b).size();
    });
    QString path;
    for (const auto& candidate : candidates) {
        try {
            const auto media = ContainerMedia::open(candidate);
            if (media->videoTracks() > 0) {
                path = candidate;
                break;
            }
        } catch (const ContainerError&) {
        }
    }
    if (path.isEmpty()) QSKIP("no container fixture with video in the fixture directory");

    WatchedAsset asset(ContainerMedia::open(path));
    QMediaPlayer player;
    QVideoSink sink;
    player.setVideoSink(&sink);
    int frames = 0;
    connect(&sink, &QVideoSink::videoFrameChanged, this, [&] { ++frames; });
    player.setSourceDevice(&asset, asset.url());

    QTRY_VERIFY_WITH_TIMEOUT(player.mediaStatus() == QMediaPlayer::LoadedMedia ||
                                 player.mediaStatus() == QMediaPlayer::BufferedMedia ||
                                 player.error() != QMediaPlayer::NoError,
                             20000);
    QCOMPARE(player.error(), QMediaPlayer::NoError);
    QVERIFY(player.duration() > 0);
    QVERIFY(player.hasVideo());

    player.play();
    QTRY_VERIFY_WITH_TIMEOUT(frames > 5, 20000);
    const qint64 target = player.duration() / 2;
    player.setPosition(target);
    QTRY_VERIFY_WITH_TIMEOUT(player.position() >= target, 20000);

    const auto served = asset.statistics();
    qInfo("device read by %lld thread(s), GUI thread among them: %s; largest read %lld bytes; "
          "%lld bytes from the read-ahead, %lld read directly",
          qint64(asset.threads().size()), asset.threads().contains(thread()) ? "yes" : "no",
          asset.largestRead(), served.windowBytes, served.directBytes);
    QVERIFY(served.windowBytes > 0);

    asset.invalidate();
    player.setPosition(0);
    QTest::qWait(500);
    player.stop();
    QCOMPARE(asset.read(16), QByteArray());
}

QTEST_MAIN(AssetPlaybackTest)
#include "tst_assetplayback.moc"
