// Reads through ContainerMedia and ContainerAsset against the engine tool's copy of the virtual
// file, over every container fixture the engine opens; then Qt Multimedia playing straight from
// the device, mostly from the read-ahead, until the device is invalidated.
#include "ContainerAsset.h"
#include "TestMedia.h"

#include <QMediaPlayer>
#include <QRandomGenerator>
#include <QTest>
#include <QVideoSink>

#include <thread>

using namespace quorvane;
using namespace quorvane::testing;
using namespace Qt::StringLiterals;

namespace {

struct Opened {
    QString path;
    std::shared_ptr<ContainerMedia> media;
    QByteArray expected;
};

QByteArray readAt(QIODevice& device, qint64 offset, qint64 count)
{
    return device.seek(offset) ? device.read(count) : QByteArray("seek failed");
}

} // namespace

class ContainerAssetTest : public QObject {
    Q_OBJECT

    QList<Opened> m_files;

private slots:
    void initTestCase()
    {
        for (const auto& path : containerFixtures()) {
            std::shared_ptr<ContainerMedia> media;
            if (outcome([&] { media = ContainerMedia::open(path); }) != 0)
                continue; // files the engine refuses belong to its own tests
            const QByteArray expected = virtualFileByTool(path);
            QCOMPARE(quint64(expected.size()), media->length());
            m_files.append({path, media, expected});
        }
        if (m_files.isEmpty()) QSKIP("no container fixtures in the fixture directory");
    }

    void readsMatchTheTool()
    {
        for (const auto& [path, media, expected] : m_files) {
            const qint64 length = qint64(media->length());
            QCOMPARE(media->read(length - 5, 100), expected.right(5));
            QCOMPARE(media->read(length, 10), QByteArray());
            QCOMPARE(outcome([&] { media->read(length + 1, 10); }), 5);
            QCOMPARE(outcome([&] { media->read(0, ContainerMedia::kMaxRead + 1); }), 1);

            ContainerAsset asset(media);
            QVERIFY(asset.isOpen() && !asset.isSequential() && !asset.open(QIODevice::ReadWrite));
            // The whole file in one read, though the engine is asked in pieces.
            QCOMPARE(readAt(asset, 0, length + 10), expected);
            QVERIFY(asset.atEnd());
            QRandomGenerator random(quint32(qHash(path)));
            for (int i = 0; i < 60; ++i) {
                const qint64 offset = random.bounded(length);
                const qint64 count = random.bounded(3 * ContainerAsset::kPieceSize);
                QCOMPARE(readAt(asset, offset, count), expected.mid(offset, count));
            }

            // A streaming player's pattern: small reads front to back, mostly from the read-ahead.
            ContainerAsset streamed(media);
            QByteArray collected;
            while (!streamed.atEnd() && collected.size() <= length)
                collected += streamed.read(4096);
            QCOMPARE(collected, expected);
            const auto served = streamed.statistics();
            QCOMPARE(served.windowBytes + served.directBytes, length);
            // A seek back, then reading on continues from there.
            QCOMPARE(readAt(streamed, 100, 4096), expected.mid(100, 4096));
            QCOMPARE(streamed.read(4096), expected.mid(4196, 4096));
        }
    }

    void invalidateFailsLaterAndRunningReads()
    {
        const auto& file = m_files.last();
        // A reader on another thread: everything it got before matches, then it fails and stops.
        ContainerAsset asset(file.media);
        std::atomic_int reads{0};
        bool allMatched = true;
        std::thread reader([&] {
            QByteArray buffer(3 * ContainerAsset::kPieceSize, Qt::Uninitialized);
            for (qint64 got = 0; got >= 0; ++reads) {
                const qint64 offset = asset.pos();
                got = asset.read(buffer.data(), buffer.size());
                if (got > 0)
                    allMatched &= QByteArrayView(buffer).first(got) ==
                                  QByteArrayView(file.expected).sliced(offset, got);
                if (asset.atEnd() && !asset.isInvalidated()) asset.seek(0);
            }
        });
        QTRY_VERIFY(reads.load() > 20);
        asset.invalidate();
        reader.join();
        QVERIFY(allMatched);
        // Later reads fail too, wherever they start, and the device cannot be opened again.
        char buffer[64];
        QVERIFY(asset.seek(0));
        QCOMPARE(asset.read(buffer, 64), -1);
        QVERIFY(asset.atEnd() && asset.bytesAvailable() == 0);
        asset.close();
        QVERIFY(!asset.open(QIODevice::ReadOnly));
    }

    void readersFindTheAssetByItsUrlUntilItIsInvalidated()
    {
        const auto& file = m_files.last();
        auto asset = std::make_unique<ContainerAsset>(file.media);
        QVERIFY(asset->url() != ContainerAsset(file.media).url());
        // Found under its URL with the host in any case, as GStreamer may hand it on.
        QUrl shouted = asset->url();
        shouted.setHost(asset->url().host().toUpper());
        const auto reader = ContainerAsset::find(shouted);
        QVERIFY(reader);
        QCOMPARE(reader->length(), file.media->length());
        QVERIFY(!ContainerAsset::find(QUrl(u"quorvane-media://unknown/movie.mp4"_s)));

        // Never more than a piece per read, the end cut short, nothing past it.
        const quint64 length = reader->length();
        const struct {
            quint64 offset, count;
            qsizetype size;
        } reads[] = {
            {0, 3 * ContainerAsset::kPieceSize, ContainerAsset::kPieceSize},
            {17, 100, 100},
            {length - 10, 1000, 10},
            {length, 10, 0},
        };
        for (const auto& [offset, count, size] : reads)
            QCOMPARE(reader->readPiece(offset, count), file.expected.mid(offset, size));
        QCOMPARE(outcome([&] { reader->readPiece(length + 1, 10); }), 1);

        // Invalidated, or gone: a reader still held fails with the cancellation, nobody finds it.
        asset->invalidate();
        QVERIFY(!ContainerAsset::find(asset->url()));
        QCOMPARE(outcome([&] { reader->readPiece(0, 10); }), kCancelled);
        auto other = std::make_unique<ContainerAsset>(file.media);
        const QUrl url = other->url();
        const auto held = ContainerAsset::find(url);
        other.reset();
        QVERIFY(!ContainerAsset::find(url));
        QCOMPARE(outcome([&] { held->readPiece(0, 10); }), kCancelled);
    }

    void cancelFlagStaysAttachedAfterOpening()
    {
        const auto cancel = std::make_shared<std::atomic_bool>(false);
        const auto media = ContainerMedia::open(m_files.first().path, cancel);
        // The last byte is sample data, read from the source.
        QCOMPARE(media->read(media->length() - 1, 1), m_files.first().expected.right(1));
        cancel->store(true);
        QCOMPARE(outcome([&] { media->read(media->length() - 1, 1); }), kCancelled);
        // The header is held in memory and still reads.
        QCOMPARE(media->read(0, 8), m_files.first().expected.left(8));
    }

    void playsSeeksAndStopsOnInvalidate()
    {
        // The largest file with video: the longer the stream, the more the read-ahead matters.
        std::shared_ptr<ContainerMedia> media;
        for (const auto& file : m_files)
            if (file.media->videoTracks() > 0 && (!media || file.media->length() > media->length()))
                media = file.media;
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

QTEST_MAIN(ContainerAssetTest)
#include "tst_containerasset.moc"
