#pragma once
// One Matroska/WebM or FLV file opened by the container engine, seen as a virtual MP4 file.
//
// Opening scans the whole file and blocks for as long as that takes, so it belongs off the GUI
// thread (openAsync). It is cancelled through a shared flag that the engine polls before every
// read of the source; a cancelled open throws ContainerCancelled, never a ContainerError. The flag
// stays attached for the media's whole life, so once it is set every later read fails as well.
//
// The media is shared (std::shared_ptr): the last owner closes the engine handle. Reads may come
// from any thread; the engine serialises them.
#include "ContainerError.h"
#include "ContainerSubtitles.h"

#include <QByteArray>
#include <QFuture>
#include <QList>
#include <QString>
#include <QUrl>

#include <atomic>
#include <memory>

struct QVMedia;

namespace quorvane {

// Set to true to cancel work in flight. Shared, because the engine keeps polling it from whichever
// thread reads, long after the call that handed it over has returned.
using CancelFlag = std::shared_ptr<std::atomic_bool>;

class ContainerMedia {
public:
    // One track of the virtual movie as the engine describes it (qv_media_track_*).
    struct Track {
        bool video = false;
        QString codec;    // "avc", "aac", ...
        QString language; // ISO 639-2/T, "und" when the file does not say
        QString name;     // the file's own name for the track, often empty
    };

    // Largest count that read() accepts.
    static constexpr quint64 kMaxRead = QV_MEDIA_MAX_READ;

    // Opens a local file. A URL that is not a file URL is ContainerError 2; an engine failure is
    // ContainerError with the engine's code; a set cancel flag is ContainerCancelled.
    static std::shared_ptr<ContainerMedia> open(const QUrl& url, CancelFlag cancel = {});
    static std::shared_ptr<ContainerMedia> open(const QString& path, CancelFlag cancel = {});
    // open() on the global thread pool. The future's result() rethrows open()'s exceptions.
    static QFuture<std::shared_ptr<ContainerMedia>> openAsync(const QUrl& url, CancelFlag cancel);

    ~ContainerMedia();
    ContainerMedia(const ContainerMedia&) = delete;
    ContainerMedia& operator=(const ContainerMedia&) = delete;

    // The bytes at [offset, offset + count) of the virtual file, shorter at its end (empty exactly
    // at the end). A count above kMaxRead is ContainerError 1; a read stopped by the cancel flag is
    // ContainerCancelled; any other engine failure, an offset beyond the end included, is
    // ContainerError 5. Any thread.
    QByteArray read(quint64 offset, quint64 count) const;

    quint64 length() const { return m_length; }
    // The samples known at open: all of them in the full layout, those of the first and last
    // cluster runs in the fragmented layout (the rest are indexed as they are read).
    quint64 sampleCount() const { return m_sampleCount; }
    quint32 videoTracks() const { return m_videoTracks; }
    quint32 audioTracks() const { return m_audioTracks; }
    // "matroska" (Matroska and WebM) or "flv".
    QString format() const { return m_format; }
    // Every track in the movie's order.
    const QList<Track>& tracks() const { return m_tracks; }
    // Text subtitle tracks and their fonts (Matroska); null when there are none.
    std::shared_ptr<const ContainerSubtitles> subtitles() const { return m_subtitles; }

private:
    explicit ContainerMedia(std::shared_ptr<QVMedia> handle);

    // Shared with the subtitles, which fetch events and fonts later; its deleter closes the handle
    // and keeps the cancel flag alive until then, since the engine holds a pointer to it.
    std::shared_ptr<QVMedia> m_handle;
    quint64 m_length;
    quint64 m_sampleCount;
    quint32 m_videoTracks;
    quint32 m_audioTracks;
    QString m_format;
    QList<Track> m_tracks;
    std::shared_ptr<const ContainerSubtitles> m_subtitles;
};

} // namespace quorvane
