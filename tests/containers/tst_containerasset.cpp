// Reads through ContainerMedia and ContainerAsset against the engine tool's copy of the virtual
// file, over every generated container fixture.
#include "ContainerAsset.h"
#include "ContainerMedia.h"
#include "MediaOracle.h"
#include "TransportStreams.h"

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

#include <thread>

using namespace quorvane;
using namespace quorvane::testing;

namespace {

struct Opened {
    QString path;
    std::shared_ptr<ContainerMedia> media;
    QByteArray expected;
};

QByteArray readAt(QIODevice& device, qint64 offset, qint64 count)
{
    if (!device.seek(offset)) return QByteArray("seek failed");
    return device.read(count);
}

} // namespace

class ContainerAssetTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void mediaReadsMatchTheTool();
    void mediaReadLimits();
    void deviceReadsMatchTheTool();
    void deviceSequentialSmallReadsMatchTheTool();
    void deviceIdentity();
    void invalidateFailsLaterAndRunningReads();
    void cancelFlagStaysAttachedAfterOpening();
    void transportStreamPresenceMatchesFfprobe();

private:
    QList<Opened> m_files;
};

void ContainerAssetTest::initTestCase()
{
    for (const auto& path : containerFixtures()) {
        std::shared_ptr<ContainerMedia> media;
        try {
            media = ContainerMedia::open(path);
        } catch (const ContainerError&) {
            continue; // deliberately broken fixtures belong to the engine's own tests
        }
        const QByteArray expected = virtualFileByTool(path);
        QVERIFY2(!expected.isEmpty(), qPrintable(path));
        QCOMPARE(quint64(expected.size()), media->length());
        m_files.append({path, media, expected});
    }
    if (m_files.isEmpty()) QSKIP("no container fixtures in the fixture directory");
}

void ContainerAssetTest::mediaReadsMatchTheTool()
{
    for (const auto& file : m_files) {
        const auto& media = *file.media;
        const QString suffix = QFileInfo(file.path).suffix();
        QCOMPARE(media.format(), suffix == QLatin1String("flv") ? QStringLiteral("flv")
                                                                : QStringLiteral("matroska"));
        QVERIFY(media.sampleCount() > 0);
        QVERIFY(media.videoTracks() + media.audioTracks() > 0);

        QRandomGenerator random(quint32(qHash(file.path)));
        const quint64 length = media.length();
        for (int i = 0; i < 40; ++i) {
            const quint64 offset = random.bounded(quint64(length) + 1);
            const quint64 count = random.bounded(quint64(ContainerMedia::kMaxRead) + 1);
            QCOMPARE(media.read(offset, count),
                     file.expected.mid(qsizetype(offset), qsizetype(count)));
        }
        // Past the end: shorter, then empty.
        QCOMPARE(media.read(length - 5, 100), file.expected.right(5));
        QCOMPARE(media.read(length, 10), QByteArray());
    }
}

void ContainerAssetTest::mediaReadLimits()
{
    const auto& media = *m_files.first().media;
    const auto codeOf = [&](quint64 offset, quint64 count) {
        try {
            media.read(offset, count);
        } catch (const ContainerError& error) {
            return error.code();
        }
        return 0;
    };
    QCOMPARE(codeOf(media.length() + 1, 10), 5);
    QCOMPARE(codeOf(0, ContainerMedia::kMaxRead + 1), 1);
    QCOMPARE(codeOf(0, ContainerMedia::kMaxRead), 0);
}

void ContainerAssetTest::deviceReadsMatchTheTool()
{
    for (const auto& file : m_files) {
        ContainerAsset asset(file.media);
        QVERIFY(asset.isOpen());
        QVERIFY(!asset.isSequential());
        QCOMPARE(asset.size(), file.expected.size());

        // The whole file in one read, though the engine is asked in pieces.
        QCOMPARE(readAt(asset, 0, asset.size() + 10), file.expected);
        QVERIFY(asset.atEnd());
        QCOMPARE(asset.read(10), QByteArray());

        QRandomGenerator random(7);
        for (int i = 0; i < 60; ++i) {
            const qint64 offset = random.bounded(asset.size());
            const qint64 count = random.bounded(3 * ContainerAsset::kPieceSize);
            QCOMPARE(readAt(asset, offset, count), file.expected.mid(offset, count));
        }
    }
}

void ContainerAssetTest::deviceSequentialSmallReadsMatchTheTool()
{
    // The pattern of a streaming player: small reads front to back, served mostly by the
    // read-ahead, with a jump backwards half-way.
    for (const auto& file : m_files) {
        ContainerAsset asset(file.media);
        QByteArray collected;
        while (!asset.atEnd()) {
            const QByteArray piece = asset.read(4096);
            QVERIFY(!piece.isEmpty());
            collected += piece;
            if (collected.size() / 4096 % 7 == 0) QThread::yieldCurrentThread();
        }
        QCOMPARE(collected, file.expected);
        const auto served = asset.statistics();
        QCOMPARE(served.windowBytes + served.directBytes, asset.size());
        qInfo("%s: %lld of %lld bytes from the read-ahead",
              qPrintable(QFileInfo(file.path).fileName()), served.windowBytes, asset.size());

        const qint64 middle = asset.size() / 2;
        QCOMPARE(readAt(asset, middle, 4096), file.expected.mid(middle, 4096));
        QCOMPARE(readAt(asset, 100, 4096), file.expected.mid(100, 4096));
        QCOMPARE(asset.read(4096), file.expected.mid(4196, 4096));
    }
}

void ContainerAssetTest::deviceIdentity()
{
    const auto& media = m_files.first().media;
    ContainerAsset first(media);
    ContainerAsset second(media);
    // QUrl keeps host names in lower case, whatever case the UUID was written in.
    static const QRegularExpression shape(
        QStringLiteral("^quorvane-media://[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-"
                       "[0-9a-f]{12}/movie\\.mp4$"));
    QVERIFY2(shape.match(first.url().toString()).hasMatch(), qPrintable(first.url().toString()));
    QVERIFY(first.url() != second.url());
    QCOMPARE(first.url().scheme(), QStringLiteral("quorvane-media"));
    QCOMPARE(first.url().path(), QStringLiteral("/movie.mp4"));
    QVERIFY(!first.open(QIODevice::ReadWrite));
    QCOMPARE(first.write("x", 1), -1);
}

void ContainerAssetTest::invalidateFailsLaterAndRunningReads()
{
    const auto& file = m_files.first();
    {
        ContainerAsset asset(file.media);
        QCOMPARE(asset.read(64), file.expected.left(64));
        asset.invalidate();
        char buffer[64];
        QCOMPARE(asset.read(buffer, 64), -1);
        QVERIFY(asset.seek(0));
        QCOMPARE(asset.read(buffer, 64), -1);
        QVERIFY(asset.atEnd());
        QCOMPARE(asset.bytesAvailable(), 0);
        asset.close();
        QVERIFY(!asset.open(QIODevice::ReadOnly));
        asset.invalidate();
    }

    // A reader on another thread: everything it got before matches, then it fails and stops.
    ContainerAsset asset(file.media);
    std::atomic_bool failed{false};
    std::atomic_int reads{0};
    bool allMatched = true;
    std::thread reader([&] {
        QByteArray buffer(4096, Qt::Uninitialized);
        for (;;) {
            const qint64 offset = asset.pos();
            const qint64 got = asset.read(buffer.data(), buffer.size());
            if (got < 0) {
                failed = true;
                return;
            }
            if (QByteArrayView(buffer.constData(), got) !=
                QByteArrayView(file.expected).sliced(offset, got))
                allMatched = false;
            ++reads;
            if (asset.atEnd() && !asset.isInvalidated()) asset.seek(0);
        }
    });
    QTRY_VERIFY(reads.load() > 20);
    asset.invalidate();
    reader.join();
    QVERIFY(failed.load());
    QVERIFY(allMatched);
}

void ContainerAssetTest::cancelFlagStaysAttachedAfterOpening()
{
    const auto cancel = std::make_shared<std::atomic_bool>(false);
    const auto media = ContainerMedia::open(m_files.first().path, cancel);
    // Header bytes come from memory; the last byte is sample data from the source.
    QCOMPARE(media->read(media->length() - 1, 1), m_files.first().expected.right(1));
    cancel->store(true);
    try {
        media->read(media->length() - 1, 1);
        QFAIL("a read after cancelling succeeded");
    } catch (const ContainerError& error) {
        QCOMPARE(error.code(), 5);
    }
}

void ContainerAssetTest::transportStreamPresenceMatchesFfprobe()
{
    const QDir dir(fixtureDir());
    const QStringList streams = dir.entryList({"*.ts"}, QDir::Files, QDir::Name);
    if (streams.isEmpty()) QSKIP("no transport-stream fixtures");
    for (const auto& name : streams) {
        QProcess probe;
        probe.start(QStringLiteral("ffprobe"), {"-v", "error", "-show_entries", "stream=codec_type",
                                                "-of", "csv=p=0", dir.filePath(name)});
        QVERIFY(probe.waitForFinished(30000));
        const QString types = QString::fromUtf8(probe.readAllStandardOutput());
        if (probe.exitCode() != 0)
            continue; // not a stream ffprobe understands; the engine's own tests cover those
        const auto presence = TransportStreams::inspect(dir.filePath(name));
        QVERIFY2(presence.hasAudio == types.contains(QLatin1String("audio")), qPrintable(name));
        QVERIFY2(presence.hasVideo == types.contains(QLatin1String("video")), qPrintable(name));
    }
}

QTEST_GUILESS_MAIN(ContainerAssetTest)
#include "tst_containerasset.moc"
