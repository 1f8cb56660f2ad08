#pragma once
// The contract every way of playing a file fulfils. The player model holds exactly one backend
// (normally the router, itself a backend) and talks to nothing else: it drives the backend with
// the operations below, learns about loading, failures, seeks and the end through `onEvent`, and
// polls `snapshot()` for fast-changing values.
#include <QList>
#include <QObject>
#include <QSizeF>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>
#include <variant>

class QQuickItem;
class QVideoSink;

namespace quorvane {

// Platform media error codes used across backends.
inline constexpr qint64 kFileFormatNotRecognized = -11828;
inline constexpr qint64 kUnknownMediaError = -11800;

struct ContainerSubtitles;

enum class PlaybackTrackKind { Audio, Subtitle };

// "audio" / "subtitle"; any other raw value (case-sensitive) yields no kind.
QString rawValue(PlaybackTrackKind kind);
std::optional<PlaybackTrackKind> playbackTrackKind(const QString& rawValue);

struct PlaybackTrack {
    qint64 id = 0; // the backend's own id, passed back unchanged to selectTrack
    PlaybackTrackKind kind = PlaybackTrackKind::Audio;
    QString label;
    bool operator==(const PlaybackTrack&) const = default;
};

struct PlaybackMediaInfo {
    double duration = 0; // seconds
    double width = 0;    // display size in pixels, 0 for audio only
    double height = 0;
    double frameRate = 0; // 0 where unknown
    bool hdr = false;
    QList<PlaybackTrack> tracks; // audio and subtitle tracks, in the backend's order
    // Text subtitle tracks the player draws itself (those of Matroska files); null for none.
    std::shared_ptr<const ContainerSubtitles> embeddedSubtitles = {};
    bool operator==(const PlaybackMediaInfo&) const = default;
};

struct PlaybackSnapshot {
    double position = 0; // seconds
    double rate = 0;     // 0 when paused
    qint64 audioID = 0;
    qint64 subtitleID = 0;
    double droppedFrames = 0;
    bool operator==(const PlaybackSnapshot&) const = default;
};

namespace PlaybackEvents {
struct Ready {
    PlaybackMediaInfo info;
    bool operator==(const Ready&) const = default;
};
struct Failed {
    qint64 code = kUnknownMediaError;
    bool operator==(const Failed&) const = default;
};
struct SeekCompleted {
    QUuid id;
    bool operator==(const SeekCompleted&) const = default;
};
struct Ended {
    bool operator==(const Ended&) const = default;
};
} // namespace PlaybackEvents

using PlaybackEvent = std::variant<PlaybackEvents::Ready, PlaybackEvents::Failed,
                                   PlaybackEvents::SeekCompleted, PlaybackEvents::Ended>;

class PlaybackBackend : public QObject {
    Q_OBJECT
public:
    using EventHandler = std::function<void(const PlaybackEvent&)>;
    using QObject::QObject;
    ~PlaybackBackend() override = default;

    // Set by the owner; called on the GUI thread, never after stop() or after being cleared.
    virtual void setOnEvent(EventHandler handler) = 0;
    virtual bool isMuted() const = 0;
    virtual void setMuted(bool muted) = 0;
    virtual PlaybackSnapshot snapshot() const = 0;
    // Starts loading and returns at once; the result arrives as Ready or Failed.
    virtual void open(const QUrl& url) = 0;
    virtual void play(double rate) = 0;
    virtual void pause() = 0;
    // Releases the file and everything held for it; no event follows.
    virtual void stop() = 0;
    // Emits SeekCompleted{id} when done; a newer seek may supersede an older one.
    virtual void seek(double seconds, const QUuid& id) = 0;
    // Linear volume, 0 to 1.
    virtual void setVolume(double volume) = 0;
    virtual void selectTrack(PlaybackTrackKind kind, qint64 id) = 0;
    // Where the picture goes: the sink of the window's video item, or nullptr for none. Backends
    // without a picture of their own ignore it. The sink is owned by the view and may go away.
    virtual void setVideoSink(QVideoSink* sink) { Q_UNUSED(sink); }

    // The web view declared in the window (a QtWebEngine `WebEngineView`), for backends that play
    // through a web page. The view belongs to the window; a backend only borrows it between
    // open() and stop().
    virtual void setWebView(QQuickItem* view) { Q_UNUSED(view); }
    // Whether the picture is currently the web view's rather than the video output's.
    virtual bool showsWebView() const { return false; }
};

// Implemented by backends that show a picture: the item that draws it. The backend owns the item.
class VideoOutput {
public:
    virtual ~VideoOutput() = default;
    virtual QQuickItem* videoView() = 0;
};

// "00:00", "59:59", "1:00:00": the text for a position or duration in seconds.
QString timestamp(double seconds);

// Content size for a video of natural size `size` inside `within`, with the 640x480 (unknown
// size) and 640x360 (minimum) floors.
QSizeF fittedVideoSize(const QSizeF& size, const QSizeF& within);

} // namespace quorvane
