#pragma once
// The virtual MP4 file of a ContainerMedia, served under a URL of its own,
// "quorvane-media://<uuid>/movie.mp4", in two ways:
//
// - To readers on any thread (GStreamer's streaming threads, through our source element): find()
//   looks the URL up and hands out an AssetReader that reads the engine directly, in pieces of at
//   most kPieceSize bytes, on the caller's thread.
// - As a random-access QIODevice, for QMediaPlayer::setSourceDevice(asset, asset->url()) where no
//   source element exists. That path is described below.
//
// Qt Multimedia's GStreamer backend (Qt 6.4) reads and seeks the device on the thread the player
// lives on, normally the GUI thread, in pieces as large as the demuxer asks for. A short read
// counts as the end of the stream there, so readData() always fills what was asked (up to the end
// of the file), but reaches the engine in pieces of at most kPieceSize bytes. To keep disk reads
// off the reading thread, the device reads ahead one piece past every read on its own thread,
// "quorvane.container.ranges"; sequential playback is then served from memory, and only a jump
// to a new position reads the source on the caller's thread.
//
// invalidate() stops both for good: a read in progress fails at its next piece, every later read
// fails (-1 on the device, ContainerCancelled through a reader), the read-ahead stops, atEnd()
// turns true so that a player still attached ends its stream instead of reading, and find() no
// longer knows the URL.
#include "ContainerMedia.h"

#include <QByteArray>
#include <QIODevice>
#include <QMutex>
#include <QThread>
#include <QUrl>

#include <atomic>
#include <memory>
#include <mutex>

namespace quorvane {

// What a reader on another thread holds of an asset. Keeps the media alive even past the asset's
// destruction, but fails every read once the asset is invalidated or gone.
class AssetReader {
public:
    explicit AssetReader(std::shared_ptr<ContainerMedia> source) : m_source(std::move(source)) {}

    quint64 length() const { return m_source->length(); }
    // The bytes at [offset, offset + min(count, kPieceSize)), fewer at the end of the file and
    // none exactly at the end. ContainerCancelled once the asset was invalidated; ContainerError 1
    // for an offset past the end; ContainerError 5 when the engine fails or returns nothing
    // before the end. Any thread; the engine serialises concurrent reads.
    QByteArray readPiece(quint64 offset, quint64 count) const;
    bool isInvalidated() const { return m_closed.load(); }

private:
    friend class ContainerAsset;
    const std::shared_ptr<ContainerMedia> m_source;
    std::atomic_bool m_closed{false};
};

class ContainerAsset : public QIODevice {
    Q_OBJECT

public:
    static constexpr qint64 kPieceSize = 262'144;

    // The reader of the live asset served under `url` (the host is compared in lower case), or
    // null when there is none or it has been invalidated. Any thread.
    static std::shared_ptr<AssetReader> find(const QUrl& url);

    // Opens the device read-only over `source`, under a URL of its own.
    explicit ContainerAsset(std::shared_ptr<ContainerMedia> source, QObject* parent = nullptr);
    ~ContainerAsset() override;

    // "quorvane-media://<uuid>/movie.mp4", fresh for every asset. The UUID is lower case, as QUrl
    // (and so Qt Multimedia) spells a host whatever case it was written in.
    QUrl url() const { return m_url; }
    const std::shared_ptr<ContainerMedia>& source() const { return m_source; }

    // Where the bytes handed to readers came from: the read-ahead window (memory) or the source,
    // read on the reader's own thread.
    struct Statistics {
        qint64 windowBytes = 0;
        qint64 directBytes = 0;
    };
    Statistics statistics() const;

    // Any thread; idempotent.
    void invalidate();
    bool isInvalidated() const { return m_closed.load(); }

    bool isSequential() const override { return false; }
    qint64 size() const override;
    bool atEnd() const override;
    qint64 bytesAvailable() const override;
    // Only read-only access is possible; reopening after close() is allowed until invalidate().
    bool open(OpenMode mode) override;

protected:
    qint64 readData(char* data, qint64 maxSize) override;
    qint64 writeData(const char* data, qint64 size) override;

private:
    // Copies what the read-ahead window holds at `position` into `data`; returns the count.
    qint64 copyFromWindow(qint64 position, char* data, qint64 maxSize);
    void scheduleReadAhead(qint64 position);
    void readAhead(qint64 position, quint64 generation);

    const std::shared_ptr<ContainerMedia> m_source;
    const QUrl m_url;
    std::atomic_bool m_closed{false};
    const std::shared_ptr<AssetReader> m_reader;

    QThread m_thread;
    std::once_flag m_threadStarted;
    QObject* m_worker;

    // The read-ahead window and the generation that owns it; invalidate() bumps the generation.
    QMutex m_windowLock;
    qint64 m_windowStart = 0;
    QByteArray m_window;
    qint64 m_pendingStart = -1;
    quint64 m_generation = 0;
    std::atomic<qint64> m_windowBytes{0};
    std::atomic<qint64> m_directBytes{0};
};

} // namespace quorvane
