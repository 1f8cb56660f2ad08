#include "ContainerAsset.h"

#include <QHash>
#include <QLoggingCategory>
#include <QUuid>

#include <algorithm>

Q_LOGGING_CATEGORY(lcContainers, "quorvane.containers")

namespace quorvane {

namespace {

QUrl freshAssetUrl()
{
    return QUrl(QStringLiteral("quorvane-media://") +
                QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral("/movie.mp4"));
}

// The live assets by host, for readers that only know the URL.
struct Registry {
    QMutex lock;
    QHash<QString, std::weak_ptr<AssetReader>> readers;
};

Registry& registry()
{
    static Registry instance;
    return instance;
}

bool isAssetUrl(const QUrl& url)
{
    return url.scheme() == QLatin1String("quorvane-media") && !url.host().isEmpty();
}

} // namespace

QByteArray AssetReader::readPiece(quint64 offset, quint64 count) const
{
    if (m_closed.load()) throw ContainerCancelled();
    const quint64 length = m_source->length();
    if (offset > length) throw ContainerError(ContainerError::Malformed);
    const quint64 wanted = std::min({count, quint64(ContainerAsset::kPieceSize), length - offset});
    if (wanted == 0) return {};
    QByteArray bytes = m_source->read(offset, wanted);
    // Invalidated while the engine read: the bytes may belong to a file being torn down.
    if (m_closed.load()) throw ContainerCancelled();
    if (bytes.isEmpty()) throw ContainerError(ContainerError::InputOutput);
    return bytes;
}

std::shared_ptr<AssetReader> ContainerAsset::find(const QUrl& url)
{
    if (!isAssetUrl(url)) return nullptr;
    Registry& assets = registry();
    QMutexLocker locker(&assets.lock);
    std::shared_ptr<AssetReader> reader = assets.readers.value(url.host().toLower()).lock();
    return reader && !reader->isInvalidated() ? reader : nullptr;
}

ContainerAsset::ContainerAsset(std::shared_ptr<ContainerMedia> source, QObject* parent)
    : QIODevice(parent), m_source(std::move(source)), m_url(freshAssetUrl()),
      m_reader(std::make_shared<AssetReader>(m_source)), m_worker(new QObject)
{
    Q_ASSERT(m_source);
    {
        Registry& assets = registry();
        QMutexLocker locker(&assets.lock);
        assets.readers.insert(m_url.host(), m_reader);
    }
    m_thread.setObjectName(QStringLiteral("quorvane.container.ranges"));
    m_worker->moveToThread(&m_thread);
    // The thread starts with the first read through the device: readers through find() never
    // need it, and an open should not pay for it.
    // Unbuffered: the read-ahead window already keeps the next piece in memory.
    QIODevice::open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

ContainerAsset::~ContainerAsset()
{
    invalidate();
    m_thread.quit();
    m_thread.wait();
    delete m_worker;
}

void ContainerAsset::invalidate()
{
    if (m_closed.exchange(true)) return;
    m_reader->m_closed.store(true);
    {
        Registry& assets = registry();
        QMutexLocker locker(&assets.lock);
        assets.readers.remove(m_url.host());
    }
    QMutexLocker locker(&m_windowLock);
    ++m_generation;
    m_window.clear();
    m_pendingStart = -1;
}

ContainerAsset::Statistics ContainerAsset::statistics() const
{
    return {m_windowBytes.load(), m_directBytes.load()};
}

qint64 ContainerAsset::size() const
{
    return qint64(m_source->length());
}

bool ContainerAsset::atEnd() const
{
    return m_closed.load() || QIODevice::atEnd();
}

qint64 ContainerAsset::bytesAvailable() const
{
    return m_closed.load() ? 0 : QIODevice::bytesAvailable();
}

bool ContainerAsset::open(OpenMode mode)
{
    if (m_closed.load() || (mode & QIODevice::WriteOnly)) return false;
    return QIODevice::open(mode | QIODevice::ReadOnly | QIODevice::Unbuffered);
}

qint64 ContainerAsset::writeData(const char*, qint64)
{
    return -1;
}

qint64 ContainerAsset::readData(char* data, qint64 maxSize)
{
    if (m_closed.load()) {
        setErrorString(QStringLiteral("The media source is closed"));
        return -1;
    }
    const qint64 start = pos();
    const qint64 total = std::min(maxSize, size() - start);
    if (total <= 0) return 0;

    qint64 done = 0;
    while (done < total) {
        // Checked between pieces, so a long read stops soon after invalidate().
        if (m_closed.load()) {
            setErrorString(QStringLiteral("The media source is closed"));
            return -1;
        }
        const qint64 position = start + done;
        const qint64 cached = copyFromWindow(position, data + done, total - done);
        if (cached > 0) {
            m_windowBytes += cached;
            done += cached;
            continue;
        }
        const qint64 piece = std::min(total - done, kPieceSize);
        try {
            const QByteArray bytes = m_source->read(quint64(position), quint64(piece));
            if (bytes.isEmpty()) throw ContainerError(ContainerError::InputOutput);
            std::memcpy(data + done, bytes.constData(), size_t(bytes.size()));
            m_directBytes += bytes.size();
            done += bytes.size();
        } catch (const ContainerError& error) {
            qCWarning(lcContainers)
                << "read of the virtual file failed at" << position << ":" << error.what();
            setErrorString(QString::fromLatin1(error.what()));
            return -1;
        } catch (const ContainerCancelled&) {
            setErrorString(QStringLiteral("The media source was cancelled"));
            return -1;
        }
    }
    scheduleReadAhead(start + total);
    return total;
}

qint64 ContainerAsset::copyFromWindow(qint64 position, char* data, qint64 maxSize)
{
    QMutexLocker locker(&m_windowLock);
    const qint64 offset = position - m_windowStart;
    if (offset < 0 || offset >= m_window.size()) return 0;
    const qint64 count = std::min(maxSize, m_window.size() - offset);
    std::memcpy(data, m_window.constData() + offset, size_t(count));
    return count;
}

void ContainerAsset::scheduleReadAhead(qint64 position)
{
    if (position >= size()) return;
    quint64 generation = 0;
    {
        QMutexLocker locker(&m_windowLock);
        // Enough is already in memory (or on its way) when the window reaches half a piece past
        // the reader.
        const qint64 windowEnd = m_windowStart + m_window.size();
        const bool covered = position >= m_windowStart && windowEnd - position >= kPieceSize / 2;
        // A read-ahead on its way is kept while it still reaches past the reader; replacing it
        // each time would starve it when the reader runs ahead of the disk.
        const bool pending = m_pendingStart >= 0 && position >= m_pendingStart &&
                             position < m_pendingStart + kPieceSize;
        if (covered || pending || m_closed.load()) return;
        m_pendingStart = position;
        generation = m_generation;
    }
    std::call_once(m_threadStarted, [this] { m_thread.start(); });
    QMetaObject::invokeMethod(
        m_worker, [this, position, generation] { readAhead(position, generation); },
        Qt::QueuedConnection);
}

void ContainerAsset::readAhead(qint64 position, quint64 generation)
{
    {
        QMutexLocker locker(&m_windowLock);
        // A newer request replaced this one while it waited in the queue.
        if (generation != m_generation || m_pendingStart != position || m_closed.load()) return;
    }
    QByteArray bytes;
    try {
        bytes = m_source->read(quint64(position), quint64(std::min(kPieceSize, size() - position)));
    } catch (const QException&) {
        // The reader will meet the same failure itself and report it.
    }
    QMutexLocker locker(&m_windowLock);
    if (generation != m_generation || m_closed.load()) return;
    if (m_pendingStart == position) m_pendingStart = -1;
    if (!bytes.isEmpty()) {
        m_windowStart = position;
        m_window = bytes;
    }
}

} // namespace quorvane
