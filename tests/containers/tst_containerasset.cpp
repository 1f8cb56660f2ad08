// The container wrapper and its asset device over the real engine: error codes, reads against the
// engine tool's copy of every fixture's virtual file, Qt Multimedia playing from the device.
#include "ContainerAsset.h"
#include "ContainerError.h"
#include "ContainerSubtitles.h"
#include "TransportStreams.h"

#include <QMediaPlayer>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <QVideoSink>

#include <thread>

using namespace quorvane;
using namespace Qt::StringLiterals;

namespace {

const QString kFixtures = QStringLiteral(QV_TEST_FIXTURE_DIR);

// The whole virtual file as `qvmedia cat` writes it; empty when the tool fails.
QByteArray virtualFileByTool(const QString& path)
{
    QTemporaryDir dir;
    const QString out = dir.filePath(QStringLiteral("virtual.mp4"));
    QProcess tool;
    tool.start(QStringLiteral(QV_TEST_QVMEDIA), {QStringLiteral("cat"), path, out});
    if (!tool.waitForFinished(60000) || tool.exitStatus() != QProcess::NormalExit ||
        tool.exitCode() != 0)
        return {};
    QFile file(out);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// How `work` ended: 0 when it returned, the ContainerError's code, kCancelled for a cancellation.
constexpr qint32 kCancelled = -QV_MEDIA_CANCELLED;
template <typename Work> qint32 outcome(Work work)
{
    try {
        work();
    } catch (const ContainerError& error) {
        return error.code();
    } catch (const ContainerCancelled&) {
        return kCancelled;
    }
    return 0;
}

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

    QTemporaryDir m_dir;
    QList<Opened> m_files;

    QString writeFile(const QString& name, const QByteArray& data)
    {
        QFile file(m_dir.filePath(name));
        if (file.open(QIODevice::WriteOnly)) file.write(data);
        return file.fileName();
    }

private slots:
    // Matroska, WebM and FLV fixtures: the shared set, then the large file of these tests.
    void initTestCase()
    {
        for (const QDir& dir : {QDir(kFixtures), QDir(kFixtures + u"/containers"_s)})
            for (const auto& name :
                 dir.entryList({"*.mkv", "*.mka", "*.webm", "*.flv"}, QDir::Files)) {
                const QString path = dir.filePath(name);
                std::shared_ptr<ContainerMedia> media;
                if (outcome([&] { media = ContainerMedia::open(path); }) != 0)
                    continue; // files the engine refuses belong to its own tests
                const QByteArray expected = virtualFileByTool(path);
                QCOMPARE(quint64(expected.size()), media->length());
                m_files.append({path, media, expected});
            }
        if (m_files.isEmpty()) QSKIP("no container fixtures in the fixture directory");
    }

    void failuresCarryEngineCodesAndCancellationIsNotOne()
    {
        const QString text = writeFile(u"notes.mkv"_s, "just some text, not a container\n");
        const QString missing = m_dir.filePath(u"missing.mkv"_s);
        const auto cancelled = std::make_shared<std::atomic_bool>(true);
        const std::pair<std::function<void()>, qint32> cases[] = {
            {[&] { ContainerMedia::open(text); }, 2},
            {[&] { ContainerMedia::open(writeFile(u"empty.mkv"_s, {})); }, 1},
            {[&] { ContainerMedia::open(missing); }, 5},
            {[&] { ContainerMedia::open(m_dir.path()); }, 5},
            {[&] { ContainerMedia::open(QUrl(u"https://example.com/a.mkv"_s)); }, 2},
            {[&] { TransportStreams::inspect(missing); }, 5},
            {[&] { TransportStreams::inspect(QUrl(u"http://x/a.ts"_s)); }, 2},
            // Errors cross futures with their type and code.
            {[&] { ContainerMedia::openAsync(QUrl::fromLocalFile(text), {}).result(); }, 2},
            {[&] { TransportStreams::inspectAsync(QUrl::fromLocalFile(missing), {}).result(); }, 5},
            // The engine polls the flag before its first read of the source, so the same file
            // that fails with an engine error reports the cancellation instead.
            {[&] { ContainerMedia::open(text, cancelled); }, kCancelled},
            {[&] { TransportStreams::inspect(text, cancelled); }, kCancelled},
        };
        for (const auto& [work, code] : cases)
            QCOMPARE(outcome(work), code);
        // A file without transport packets holds neither audio nor video; that is an answer.
        QCOMPARE(TransportStreams::inspect(writeFile(u"plain.ts"_s, QByteArray(4096, 'x'))),
                 TransportStreams{});
        // A flag set after opening still cancels reads of sample data from the source; the
        // header is held in memory and still reads.
        const auto cancel = std::make_shared<std::atomic_bool>(false);
        const auto media = ContainerMedia::open(m_files.first().path, cancel);
        QCOMPARE(media->read(media->length() - 1, 1), m_files.first().expected.right(1));
        cancel->store(true);
        QCOMPARE(outcome([&] { media->read(media->length() - 1, 1); }), kCancelled);
        QCOMPARE(media->read(0, 8), m_files.first().expected.left(8));
    }

    // The font muxed by mkvmerge, read only when asked for; the tracks themselves are checked on
    // screen by the subtitle player's test.
    void attachedFont()
    {
        const QString path = kFixtures + u"/subtitles.mkv"_s;
        if (!QFile::exists(path)) QSKIP("generated fixtures are missing");
        const auto subtitles = ContainerMedia::open(path)->subtitles();
        QVERIFY(subtitles);
        const QList<ContainerFont> fonts = subtitles->readFonts();
        QCOMPARE(fonts.size(), 1);
        QCOMPARE(subtitles->fontBytes(), fonts[0].data.size());
        QCOMPARE(fonts[0].data.left(4), QByteArray("\0\1\0\0", 4)); // TrueType
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

            // Each device has a URL of its own: GStreamer's source element finds the asset by it
            // (and reads its pieces, checked through the element itself).
            QVERIFY(asset.url() != streamed.url());
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
        // Nobody finds it any more; a reader still held by GStreamer fails with the cancellation
        // (what the source element makes of it is its own test's), also once an asset is gone
        // without being invalidated.
        QVERIFY(!ContainerAsset::find(asset.url()));
        auto other = std::make_unique<ContainerAsset>(file.media);
        const QUrl url = other->url();
        const auto orphan = ContainerAsset::find(url);
        other.reset();
        QVERIFY(!ContainerAsset::find(url));
        QCOMPARE(outcome([&] { orphan->readPiece(0, 10); }), kCancelled);
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
