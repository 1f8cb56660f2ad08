#pragma once
// The one model of the application. Views read its properties and call its operations; it owns
// the playback backend (normally the router), the playlist, the speed and volume state and the
// playback history. Everything runs on the GUI thread.
#include "PlaybackBackend.h"
#include "Playlist.h"
#include "SubtitleSession.h"

#include <QFuture>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QQuickItem>
#include <QSizeF>
#include <QStringList>
#include <QTimer>
#include <QUrl>
#include <QUuid>
#include <QVariantList>
#include <QVariantMap>
#include <QVideoSink>

#include <functional>
#include <memory>
#include <optional>

class QScreen;
class QSettings;
class QWindow;

namespace quorvane {

class DiagnosticLog;
struct ContainerSubtitles;

struct MediaTrack {
    qint64 id = 0;
    QString type; // "audio" or "subtitle"
    QString label;
    bool operator==(const MediaTrack&) const = default;
};

class Player : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<QUrl> recentFiles READ recentFiles NOTIFY recentFilesChanged FINAL)
    Q_PROPERTY(QVariantMap watchedProgress READ watchedProgress NOTIFY watchedProgressChanged FINAL)
    Q_PROPERTY(QString title READ title NOTIFY titleChanged FINAL)
    Q_PROPERTY(bool loaded READ loaded NOTIFY loadedChanged FINAL)
    Q_PROPERTY(bool paused READ paused NOTIFY pausedChanged FINAL)
    Q_PROPERTY(double position READ position NOTIFY positionChanged FINAL)
    Q_PROPERTY(double duration READ duration NOTIFY durationChanged FINAL)
    Q_PROPERTY(QSizeF videoSize READ videoSize NOTIFY videoSizeChanged FINAL)
    Q_PROPERTY(double volume READ volume NOTIFY volumeChanged FINAL)
    Q_PROPERTY(bool showingVolume READ showingVolume NOTIFY showingVolumeChanged FINAL)
    // Empty while there is no error.
    Q_PROPERTY(QString error READ error NOTIFY errorChanged FINAL)
    Q_PROPERTY(QList<QUrl> playlist READ playlist NOTIFY playlistChanged FINAL)
    // "name" or "creationDate"; other values are ignored.
    Q_PROPERTY(QString playlistSortOrder READ playlistSortOrderName WRITE setPlaylistSortOrderName
                   NOTIFY playlistSortOrderChanged FINAL)
    // Empty while no item is open.
    Q_PROPERTY(QUrl currentURL READ currentURL NOTIFY currentURLChanged FINAL)
    // Maps with "id", "type" ("audio"/"subtitle") and "label".
    Q_PROPERTY(QVariantList tracks READ trackList NOTIFY tracksChanged FINAL)
    Q_PROPERTY(qint64 subtitleID READ subtitleID NOTIFY subtitleIDChanged FINAL)
    Q_PROPERTY(qint64 audioID READ audioID NOTIFY audioIDChanged FINAL)
    Q_PROPERTY(bool hdrContent READ hdrContent NOTIFY hdrContentChanged FINAL)
    Q_PROPERTY(bool hdrOutput READ hdrOutput NOTIFY hdrOutputChanged FINAL)
    Q_PROPERTY(double videoFPS READ videoFPS NOTIFY videoFPSChanged FINAL)
    Q_PROPERTY(double droppedFrames READ droppedFrames NOTIFY droppedFramesChanged FINAL)
    Q_PROPERTY(double speed READ speed NOTIFY speedChanged FINAL)
    Q_PROPERTY(bool isBoosting READ isBoosting NOTIFY isBoostingChanged FINAL)
    Q_PROPERTY(bool showingBoost READ showingBoost NOTIFY showingBoostChanged FINAL)
    Q_PROPERTY(double holdMultiplier READ holdMultiplier WRITE setHoldMultiplier NOTIFY
                   holdMultiplierChanged FINAL)
    // The base speeds the speed menu offers, in menu order.
    Q_PROPERTY(QVariantList speedChoices READ speedChoices CONSTANT FINAL)
    // The backend's picture, when the backend shows one.
    Q_PROPERTY(QQuickItem* videoView READ videoView CONSTANT FINAL)
    // True while the backend's picture is the web view's (the web fallback plays the file), so the
    // view shows its WebEngineView above the video output.
    Q_PROPERTY(bool webViewActive READ webViewActive NOTIFY webViewActiveChanged FINAL)
    // The subtitle tracks the player draws itself (files, embedded text tracks); a
    // SubtitleOverlay over the picture shows its active track.
    Q_PROPERTY(quorvane::SubtitleSession* subtitles READ subtitles CONSTANT FINAL)

public:
    // Seconds on a monotonic scale; tests substitute their own.
    using Clock = std::function<double()>;

    // Without a backend the player creates a router over the standard slots. `defaults` must
    // outlive the player.
    explicit Player(QSettings* defaults, std::unique_ptr<PlaybackBackend> playback = {},
                    bool muted = false, QObject* parent = nullptr);
    ~Player() override;

    void setClock(Clock clock);
    // Where "media.open", "media.failed" and "playback.state" go; the shared log by default.
    void setDiagnosticLog(DiagnosticLog* log);
    PlaybackBackend* playback() const { return m_playback.get(); }
    QTimer* refreshTimer() { return &m_timer; }

    // Published state.
    QList<QUrl> recentFiles() const { return m_recentFiles; }
    QVariantMap watchedProgress() const { return m_watchedProgress; }
    QString title() const { return m_title; }
    bool loaded() const { return m_loaded; }
    bool paused() const { return m_paused; }
    double position() const { return m_position; }
    double duration() const { return m_duration; }
    QSizeF videoSize() const { return m_videoSize; }
    double volume() const { return m_volume; }
    bool showingVolume() const { return m_showingVolume; }
    QString error() const { return m_error; }
    QList<QUrl> playlist() const { return m_playlist; }
    PlaylistSortOrder playlistSortOrder() const { return m_playlistSortOrder; }
    QString playlistSortOrderName() const { return rawValue(m_playlistSortOrder); }
    QUrl currentURL() const { return m_currentURL; }
    QList<MediaTrack> tracks() const { return m_tracks; }
    QVariantList trackList() const;
    qint64 subtitleID() const { return m_subtitleID; }
    qint64 audioID() const { return m_audioID; }
    bool hdrContent() const { return m_hdrContent; }
    bool hdrOutput() const { return m_hdrOutput; }
    double videoFPS() const { return m_videoFPS; }
    double droppedFrames() const { return m_droppedFrames; }
    double speed() const { return m_speed; }
    bool isBoosting() const { return m_isBoosting; }
    bool showingBoost() const { return m_showingBoost; }
    double holdMultiplier() const { return m_holdMultiplier; }
    QQuickItem* videoView() const;
    bool webViewActive() const { return m_webViewActive; }
    SubtitleSession* subtitles() const { return m_subtitles; }
    static QVariantList speedChoices();
    // The time text of the views ("00:00", "1:00:00").
    Q_INVOKABLE static QString formatTime(double seconds) { return timestamp(seconds); }
    int playlistGeneration() const { return m_playlistGeneration; }
    bool hasPendingSeek() const { return m_pendingSeek.has_value(); }
    std::optional<double> originalSpeed() const { return m_originalSpeed; }

    // Playback.
    Q_INVOKABLE void open(const QUrl& url);
    // The window's WebEngineView, borrowed by the backends that play through a web page.
    Q_INVOKABLE void setWebView(QQuickItem* view);
    Q_INVOKABLE void toggle();
    Q_INVOKABLE void seek(double time);
    // Relative to the shown position, for the back/forward commands.
    Q_INVOKABLE void seekBy(double delta) { seek(m_position + delta); }
    Q_INVOKABLE void selectTrack(const QString& type, qint64 id);
    Q_INVOKABLE void adjustVolume(double change);
    // "Load Subtitle File…": asks the view for a file (chooseSubtitleFileRequested), whose
    // choice goes to loadSubtitleFile. The file is read in the background and, once read, becomes
    // a subtitle track and is shown. False at once for what is not a local subtitle file; a file
    // that turns out unreadable changes nothing. Either way the reason is in the diagnostic log.
    Q_INVOKABLE void chooseSubtitleFile();
    Q_INVOKABLE bool loadSubtitleFile(const QUrl& url);
    Q_INVOKABLE void dismissError();
    // The window's video item hands its sink here; the backend draws every picture into it.
    Q_INVOKABLE void setVideoSink(QVideoSink* sink);

    // Speed: the base speed the user chose (0.25...4) and the press-and-hold boost on top.
    Q_INVOKABLE void setBaseSpeed(double rate);
    Q_INVOKABLE void applySpeed(double rate);
    Q_INVOKABLE void beginBoost();
    Q_INVOKABLE void endBoost();
    void setHoldMultiplier(double multiplier);

    // Playlist.
    Q_INVOKABLE static bool isMediaFile(const QUrl& url, bool videoOnly = false);
    Q_INVOKABLE void addFiles(bool openFirst, const QList<QUrl>& urls);
    Q_INVOKABLE void chooseFile();
    Q_INVOKABLE void removeFile(const QUrl& url);
    Q_INVOKABLE void next(int step);
    Q_INVOKABLE void sortPlaylist();
    void setPlaylistSortOrder(PlaylistSortOrder order);
    void setPlaylistSortOrderName(const QString& order);
    // Where creation dates come from when sorting by creation date.
    void setCreationDateSource(CreationDateSource source);

    // History.
    Q_INVOKABLE void savePosition();
    Q_INVOKABLE double savedPosition(const QUrl& url) const;
    Q_INVOKABLE double playbackProgress(const QUrl& url) const;
    Q_INVOKABLE void clearHistory();

    // Display: HDR output needs HDR content and a screen with headroom above 1.
    void configureDisplay(std::optional<double> screenHeadroom, QWindow* window);
    Q_INVOKABLE void configureDisplay(QScreen* screen, QWindow* window);

    // Records "playback.state" in the diagnostic log.
    Q_INVOKABLE void captureDiagnostics();

    // The 0.2 s poll of the backend; public so that tests can drive it with a scripted clock.
    void refresh();
    // The backend's event sink.
    void handle(const PlaybackEvent& event);

signals:
    void recentFilesChanged();
    void watchedProgressChanged();
    void titleChanged();
    void loadedChanged();
    void pausedChanged();
    void positionChanged();
    void durationChanged();
    void videoSizeChanged();
    void volumeChanged();
    void showingVolumeChanged();
    void errorChanged();
    void playlistChanged();
    void playlistSortOrderChanged();
    void currentURLChanged();
    void tracksChanged();
    void subtitleIDChanged();
    void audioIDChanged();
    void hdrContentChanged();
    void hdrOutputChanged();
    void videoFPSChanged();
    void droppedFramesChanged();
    void speedChanged();
    void isBoostingChanged();
    void showingBoostChanged();
    void holdMultiplierChanged();
    void webViewActiveChanged();
    // The view answers with a file dialog whose choice goes to addFiles(true, urls).
    void chooseFileRequested();
    // The view answers with a file dialog for .srt/.ass/.ssa/.vtt whose choice goes to
    // loadSubtitleFile(url).
    void chooseSubtitleFileRequested();

private:
    struct PendingSeek {
        QUuid id;
        double time = 0;
        double started = 0;
    };

    double now() const { return m_clock(); }
    DiagnosticLog& diagnostics() const;
    void applicationDeactivating();
    void didLoad(const PlaybackMediaInfo& info);
    void didFail(qint64 code);
    void didReachEnd();
    void resetItemState();
    void startPlaylistScan(const QList<QUrl>& urls, bool replace, bool openFirst);
    void finishPlaylistScan(int generation, const QList<QUrl>& files, bool replace, bool openFirst);

    void setRecentFiles(const QList<QUrl>& value);
    void setWatchedProgress(const QVariantMap& value);
    void setTitle(const QString& value);
    void setLoaded(bool value);
    void setPaused(bool value);
    void setPosition(double value);
    void setDuration(double value);
    void setVideoSize(const QSizeF& value);
    void setVolume(double value);
    void setShowingVolume(bool value);
    void setError(const QString& value);
    void setPlaylist(const QList<QUrl>& value);
    void setCurrentURL(const QUrl& value);
    void setTracks(const QList<MediaTrack>& value);
    void setSubtitleID(qint64 value);
    void setAudioID(qint64 value);
    void setHdrContent(bool value);
    void setHdrOutput(bool value);
    void setVideoFPS(double value);
    void setDroppedFrames(double value);
    void setSpeed(double value);
    void setIsBoosting(bool value);
    void setShowingBoost(bool value);

    // Subtitles drawn by the player (PlayerSubtitles.cpp).
    void connectSubtitles();
    void offerSidecarSubtitles(const QString& videoPath);
    void offerEmbeddedSubtitles(std::shared_ptr<const ContainerSubtitles> embedded);
    void forgetEmbeddedSubtitles();
    // Hands the shown embedded track's newly found events to the session.
    void pullEmbeddedEvents();
    void loadEmbeddedFonts();
    QList<MediaTrack> withSubtitleTracks(QList<MediaTrack> tracks) const;
    bool selectOwnSubtitle(qint64 id);
    void syncSubtitleClock();

    QSettings* m_defaults;
    std::unique_ptr<PlaybackBackend> m_playback;
    bool m_webViewActive = false;
    void updateWebViewActive();
    Clock m_clock;
    DiagnosticLog* m_log = nullptr;
    CreationDateSource m_creationDate = fileCreationDate;
    QTimer m_timer;
    QList<QMetaObject::Connection> m_cancellationObservers;
    QList<QFuture<void>> m_scans;

    QList<QUrl> m_recentFiles;
    QVariantMap m_watchedProgress;
    QString m_title;
    bool m_loaded = false;
    bool m_paused = true;
    double m_position = 0;
    double m_duration = 0;
    QSizeF m_videoSize{0, 0};
    double m_volume = 80;
    bool m_showingVolume = false;
    QString m_error;
    QList<QUrl> m_playlist;
    PlaylistSortOrder m_playlistSortOrder = PlaylistSortOrder::Name;
    QUrl m_currentURL;
    QList<MediaTrack> m_tracks;
    qint64 m_subtitleID = 0;
    qint64 m_audioID = 0;
    bool m_hdrContent = false;
    bool m_hdrOutput = false;
    double m_videoFPS = 0;
    double m_droppedFrames = 0;
    double m_speed = 1.0;
    bool m_isBoosting = false;
    bool m_showingBoost = false;
    double m_holdMultiplier = 2.0;

    double m_volumeFeedbackUntil;
    double m_lastSavedAt;
    double m_boostFeedbackUntil;
    std::optional<double> m_originalSpeed;
    bool m_handledEOF = false;
    std::optional<PendingSeek> m_pendingSeek;
    int m_playlistGeneration = 0;
    SubtitleSession* m_subtitles = new SubtitleSession(this);
    // The open file's own text tracks: in a large file their events arrive while it plays, and
    // their fonts are read when one is first shown.
    struct EmbeddedTrack {
        qint64 id = 0;        // in the session
        qsizetype index = 0;  // in m_embedded->tracks
        qsizetype blocks = 0; // blocks fetched
        qsizetype lines = 0;  // events the session holds
        bool complete = true;
    };
    std::shared_ptr<const ContainerSubtitles> m_embedded;
    QList<EmbeddedTrack> m_embeddedTracks;
    bool m_embeddedFontsAsked = false;
    QTimer m_embeddedPoll;
};

} // namespace quorvane
