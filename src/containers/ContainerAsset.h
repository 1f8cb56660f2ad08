#pragma once
// The virtual MP4 file of a ContainerMedia as a random-access QIODevice, for
// QMediaPlayer::setSourceDevice(asset, asset->url()).
//
// Qt Multimedia's GStreamer backend (Qt 6.4) reads and seeks the device on the thread the player
// lives on, normally the GUI thread, in pieces as large as the demuxer asks for. A short read
// counts as the end of the stream there, so readData() always fills what was asked (up to the end
// of the file), but reaches the engine in pieces of at most kPieceSize bytes. To keep disk reads
// off the reading thread, the device reads ahead one piece past every read on its own thread,
// "quorvane.container.ranges"; sequential playback is then served from memory, and only a jump
// to a new position reads the source on the caller's thread.
//
// invalidate() stops the device for good: a read in progress fails at its next piece, every
// later read fails (-1), the read-ahead stops, and atEnd() turns true so that a player still
// attached ends its stream instead of reading.
#include "ContainerMedia.h"

#include <QByteArray>
#include <QIODevice>
#include <QMutex>
#include <QThread>
#include <QUrl>

#include <atomic>
#include <memory>

namespace quorvane {

class ContainerAsset : public QIODevice {
    Q_OBJECT

public:
    static constexpr qint64 kPieceSize = 262'144;

    // Opens the device read-only over `source`, under a URL of its own.
    explicit ContainerAsset(std::shared_ptr<ContainerMedia> source, QObject* parent = nullptr);
    ~ContainerAsset() override;

    // "quorvane-media://<UUID>/movie.mp4", fresh for every device. The UUID is written in upper
    // case, but QUrl keeps host names in lower case, so url().host() reads lower case.
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

    QThread m_thread;
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
