#pragma once
// The container engine as the native backend sees it: opens a Matroska, WebM or FLV file off the
// GUI thread (cancellable), then serves the virtual MP4 as a ContainerAsset: under its own URL to
// our GStreamer source element (QMediaPlayer::setSource(assetUrl())), or as a random-access device
// for QMediaPlayer::setSourceDevice where that element is missing. Also runs the transport-stream
// probe. Everything here is dropped by destroying the object: a running open is cancelled and the
// asset stops answering reads.
#include "ContainerMedia.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

class QIODevice;

namespace quorvane {

struct ContainerSubtitles;

class NativeContainerSource {
public:
    explicit NativeContainerSource(const QUrl& url);
    ~NativeContainerSource();
    NativeContainerSource(const NativeContainerSource&) = delete;
    NativeContainerSource& operator=(const NativeContainerSource&) = delete;

    // Opens the file on a worker thread and calls `done` on `context`'s thread afterwards (not at
    // all when this object or `context` is gone by then). Then either errorCode() or device() is
    // set.
    void open(QObject* context, std::function<void()> done);

    std::optional<qint64> errorCode() const { return m_error; }
    QIODevice* device() const;
    // "quorvane-media://<uuid>/movie.mp4", empty until the file is open.
    QUrl assetUrl() const;
    QString format() const;
    quint64 sampleCount() const;
    // The file's text subtitle tracks and fonts; null for none.
    std::shared_ptr<const ContainerSubtitles> subtitles() const;
    quint32 videoTracks() const;
    quint32 audioTracks() const;
    // The engine's description of every track; empty until opened.
    QList<ContainerMedia::Track> tracks() const;

    struct Presence {
        bool hasAudio = false;
        bool hasVideo = false;
    };
    // Probes a transport stream on a worker thread; `done` gets the presence or, on failure, the
    // engine's error code.
    static void probeTransportStream(const QUrl& url, QObject* context,
                                     std::function<void(std::optional<Presence>, qint64)> done);

private:
    struct State;
    QUrl m_url;
    std::shared_ptr<std::atomic_bool> m_cancel;
    std::shared_ptr<State> m_state;
    std::optional<qint64> m_error;
};

} // namespace quorvane
