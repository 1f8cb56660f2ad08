#pragma once
// The backend that plays a local file through Qt Multimedia (GStreamer on Linux). Matroska, WebM
// and FLV files are opened by the container engine and handed to the player as a virtual MP4,
// read by our own GStreamer source element (MediaSourceElement.h); every other file goes to the
// player directly. The backend reports `Ready` only once the player has loaded the file, shown its
// first picture and every check passed, and it fails with -11828 whenever the player would play
// less than the file holds, or does not finish opening in time, so that the router can try its
// next backend.
//
// Built for the platform route, the backend hands every file to the player directly, containers
// included: the router's last chance for what the engine refuses but GStreamer may still play.
#include "PlaybackBackend.h"
#include "SeekTracker.h"

#include <QMediaPlayer>
#include <QPointer>
#include <QUrl>

#include <atomic>
#include <memory>
#include <optional>

class QAudioOutput;
class QVideoFrame;
class QVideoSink;

namespace quorvane {

class AudioValidation;
class NativeContainerSource;
struct ContainerSubtitles;

class NativePlayback final : public PlaybackBackend {
    Q_OBJECT
public:
    // How Matroska, WebM and FLV files reach the player.
    enum class Route {
        Engine,   // remuxed by the container engine
        Platform, // opened by the platform's own demuxers, like any other file
    };

    explicit NativePlayback(QObject* parent = nullptr);
    explicit NativePlayback(Route route, QObject* parent = nullptr);
    ~NativePlayback() override;

    void setOnEvent(EventHandler handler) override;
    bool isMuted() const override;
    void setMuted(bool muted) override;
    PlaybackSnapshot snapshot() const override;
    void open(const QUrl& url) override;
    void play(double rate) override;
    void pause() override;
    void stop() override;
    void seek(double seconds, const QUuid& id) override;
    void setVolume(double volume) override;
    void selectTrack(PlaybackTrackKind kind, qint64 id) override;

    // The picture goes to `sink` (the window's VideoOutput); without one, or once it is gone,
    // to a sink of our own so that the first-picture and seek checks still see frames.
    void setVideoSink(QVideoSink* sink) override;

    double volume() const;

signals:
    // The first picture of the file being opened has arrived (once per open). For measurements;
    // the owner learns everything it needs through onEvent.
    void firstFrameShown();

public:
    // The slowest and fastest rates play() accepts.
    static constexpr double kMinimumRate = 0.25;
    static constexpr double kMaximumRate = 20.0;
    // How long the player may take from being handed the file to every check done. GStreamer can
    // sit silent on a file it cannot make sense of (a transport stream without tables, under
    // load); past this the file counts as unplayable.
    static constexpr int kPlayerOpenTimeoutMs = 15000;

    Route route() const { return m_route; }

private:
    enum class Phase { Idle, Opening, Loading, Ready, Failed };

    void startPlayer(const QUrl& source, QIODevice* device);
    void readTextTracks(const QUrl& url);
    void containerOpened();
    void bumpGeneration();
    void handleStatus(QMediaPlayer::MediaStatus status);
    void handleError(QMediaPlayer::Error error);
    void handleFrame(quint64 generation, const QVideoFrame& frame);
    void playerLoaded();
    void startAudioValidation();
    void checkReady();
    void fail(qint64 code);
    void emitEvent(const PlaybackEvent& event);
    void attachSink(QVideoSink* sink);
    void completeSeek(const std::optional<QUuid>& id);
    void armTrackSwitch();
    void applyTrackSwitch();
    void dropTrackSwitch();
    void unsilence();

    const Route m_route;
    // False only when our source element could not be registered: remuxed files then reach the
    // player as a device.
    bool m_sourceElement = false;
    QMediaPlayer* m_player = nullptr;
    QAudioOutput* m_audio = nullptr;
    QVideoSink* m_detachedSink = nullptr; // frames arrive here while no view sink is set
    QPointer<QVideoSink> m_viewSink;
    QMetaObject::Connection m_viewSinkGone;
    QMetaObject::Connection m_frameConnection;

    EventHandler m_onEvent;
    quint64 m_generation = 0;
    std::atomic<quint64> m_frameGeneration{0}; // m_generation, readable from the pipeline thread
    Phase m_phase = Phase::Idle;
    QUrl m_url;
    std::unique_ptr<NativeContainerSource> m_container;
    QPointer<AudioValidation> m_audioValidation;
    // The text tracks of an MP4/QuickTime file, or of a Matroska/WebM file the platform plays, read
    // on a worker while the player loads it.
    // When found they are drawn by us: Qt's subtitle tracks are not listed and never switched.
    std::shared_ptr<std::atomic_bool> m_textTracksCancel;
    std::shared_ptr<const ContainerSubtitles> m_textTracks;
    bool m_textTracksPending = false;
    bool m_textTracksWaited = false; // the bound on waiting for the read is running
    bool m_ownSubtitles = false;

    // What has to be known before Ready.
    bool m_loaded = false;
    bool m_firstFrame = false;
    bool m_audioChecked = false;
    bool m_streamsChecked = false;
    bool m_transportAudio = false;
    bool m_transportVideo = false;
    bool m_hdr = false;
    QSize m_frameSize;
    int m_frameRotation = 0; // degrees, from the first picture
    bool m_ended = false;

    qint64 m_audioID = 0; // 1-based, 0 = none
    qint64 m_subtitleID = 0;
    // Track switches asked for while the pipeline was not running (player indices, -1 = none),
    // made once playback has resumed; meanwhile the old audio track is silenced and
    // m_mutedBeforeSwitch holds the owner's own mute state.
    std::optional<int> m_pendingAudio;
    std::optional<int> m_pendingSubtitle;
    std::optional<bool> m_mutedBeforeSwitch;
    QMetaObject::Connection m_switchWatch;
    SeekTracker m_seeks;
    double m_frameRate = 0;
};

} // namespace quorvane
