#include "Player.h"

#include "DiagnosticLog.h"
#include "PlaybackHistory.h"
#include "PlaybackRouter.h"
#include "TranslationCatalog.h"

#include <QColorSpace>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQuickItem>
#include <QSettings>
#include <QSurfaceFormat>
#include <QWindow>

#include <cmath>
#include <limits>

namespace quorvane {

Q_LOGGING_CATEGORY(lcPlayer, "quorvane.player")

namespace {

constexpr double kDistantPast = -std::numeric_limits<double>::infinity();
constexpr int kRefreshIntervalMs = 200;
constexpr double kVolumeFeedbackSeconds = 1.5;
constexpr double kBoostFeedbackSeconds = 1.0;
constexpr double kPendingSeekSeconds = 1.0;
constexpr double kPeriodicSaveSeconds = 5.0;
constexpr double kMinBaseSpeed = 0.25;
constexpr double kMaxBaseSpeed = 4.0;
constexpr double kMinSpeed = 0.25;
constexpr double kMaxSpeed = 20.0;

double monotonicSeconds()
{
    static QElapsedTimer clock = [] {
        QElapsedTimer timer;
        timer.start();
        return timer;
    }();
    return clock.nsecsElapsed() / 1e9;
}

QString diagnosticBool(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

// The name of the media framework under Qt Multimedia, for support reports.
QString audioOutputName()
{
#if defined(Q_OS_MACOS)
    return QStringLiteral("darwin");
#elif defined(Q_OS_WIN)
    return QStringLiteral("windows");
#else
    return QStringLiteral("gstreamer");
#endif
}

QString cannotPlayText()
{
#if defined(Q_OS_MACOS)
    return translate(QStringLiteral("This Mac cannot play this file's format or codec."));
#else
    return translate(QStringLiteral("This computer cannot play this file's format or codec."));
#endif
}

} // namespace

Player::Player(QSettings* defaults, std::unique_ptr<PlaybackBackend> playback, bool muted,
               QObject* parent)
    : QObject(parent), m_defaults(defaults), m_playback(std::move(playback)),
      m_clock(monotonicSeconds), m_volumeFeedbackUntil(kDistantPast), m_lastSavedAt(kDistantPast),
      m_boostFeedbackUntil(kDistantPast)
{
    Q_ASSERT(m_defaults);
    if (!m_playback) m_playback = std::make_unique<PlaybackRouter>();

    m_title = translate(QStringLiteral("Your private cinema"));
    m_recentFiles = history::readRecentFiles(*m_defaults);
    m_watchedProgress = history::readNumberMap(*m_defaults, history::kWatchedProgressKey);
    m_playlistSortOrder = history::readPlaylistSortOrder(*m_defaults);
    m_holdMultiplier = history::readHoldMultiplier(*m_defaults);

    // A muted start reaches the backend as its mute flag; the model itself has no mute.
    m_playback->setMuted(muted);
    m_playback->setVolume(m_volume / 100);
    connectSubtitles();

    if (auto* app = qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        m_cancellationObservers.append(connect(app, &QGuiApplication::applicationStateChanged, this,
                                               [this](Qt::ApplicationState state) {
                                                   if (state != Qt::ApplicationActive)
                                                       applicationDeactivating();
                                               }));
    }
    if (auto* app = QCoreApplication::instance()) {
        m_cancellationObservers.append(
            connect(app, &QCoreApplication::aboutToQuit, this, &Player::applicationDeactivating));
    }

    QPointer<Player> self(this);
    m_playback->setOnEvent([self](const PlaybackEvent& event) {
        if (self) self->handle(event);
    });

    m_timer.setInterval(kRefreshIntervalMs);
    connect(&m_timer, &QTimer::timeout, this, &Player::refresh);
    m_timer.start();
}

Player::~Player()
{
    m_timer.stop();
    for (const QMetaObject::Connection& connection : std::as_const(m_cancellationObservers))
        disconnect(connection);
    // A folder scan still running refers to nothing of ours, but its result must not arrive
    // after we are gone.
    for (QFuture<void>& scan : m_scans)
        scan.waitForFinished();
    m_playback->setOnEvent(nullptr);
    m_playback->stop();
}

void Player::setClock(Clock clock)
{
    m_clock = clock ? std::move(clock) : Clock(monotonicSeconds);
    m_subtitles->setClock(m_clock);
}

void Player::setDiagnosticLog(DiagnosticLog* log)
{
    m_log = log;
}

DiagnosticLog& Player::diagnostics() const
{
    return m_log ? *m_log : SupportDiagnostics::log();
}

QQuickItem* Player::videoView() const
{
    auto* output = dynamic_cast<VideoOutput*>(m_playback.get());
    return output ? output->videoView() : nullptr;
}

void Player::setVideoSink(QVideoSink* sink)
{
    m_playback->setVideoSink(sink);
}

void Player::setWebView(QQuickItem* view)
{
    m_playback->setWebView(view);
}

void Player::updateWebViewActive()
{
    const bool active = m_playback->showsWebView();
    if (active == m_webViewActive) return;
    m_webViewActive = active;
    emit webViewActiveChanged();
}

QVariantList Player::speedChoices()
{
    return {0.5, 0.75, 1.0, 1.25, 1.5, 2.0, 3.0, 4.0};
}

QVariantList Player::trackList() const
{
    QVariantList list;
    for (const MediaTrack& track : m_tracks) {
        list.append(QVariantMap{{QStringLiteral("id"), track.id},
                                {QStringLiteral("type"), track.type},
                                {QStringLiteral("label"), track.label}});
    }
    return list;
}

void Player::applicationDeactivating()
{
    endBoost();
    savePosition();
}

// Opening

void Player::open(const QUrl& requested)
{
    const QUrl url = canonicalFileUrl(requested);
    const QFileInfo info(url.toLocalFile());
    if (url.isEmpty() || !info.isFile() || !info.isReadable()) {
        qCDebug(lcPlayer) << "refusing to open an unreadable file";
        setError(translate(QStringLiteral("Unable to read this file")));
        return;
    }

    savePosition();
    endBoost();
    resetItemState();

    const QList<QUrl> recent = history::withRecentFile(m_recentFiles, url);
    history::writeRecentFiles(*m_defaults, recent);
    setRecentFiles(recent);

    if (!m_playlist.contains(url)) {
        // The opened file stands alone until its folder has been listed.
        setPlaylist({url});
        startPlaylistScan({QUrl::fromLocalFile(info.absolutePath())}, true, false);
    }

    setCurrentURL(url);
    setTitle(info.completeBaseName());
    offerSidecarSubtitles(info.absoluteFilePath());

    // Logged before the backend starts, so that a failure it reports at once follows the open.
    QString backend = QStringLiteral("custom");
    if (auto* router = qobject_cast<PlaybackRouter*>(m_playback.get()))
        backend = router->firstSlotFor(url).value_or(QStringLiteral("none"));
    diagnostics().record(
        QStringLiteral("media.open"),
        {{QStringLiteral("ext"), info.suffix().toLower()}, {QStringLiteral("backend"), backend}});

    m_playback->setVolume(m_volume / 100);
    m_playback->open(url);
    updateWebViewActive();
}

void Player::resetItemState()
{
    m_handledEOF = false;
    m_pendingSeek.reset();
    setLoaded(false);
    setPaused(true);
    setPosition(0);
    setDuration(0);
    setVideoSize({0, 0});
    setTracks({});
    m_subtitles->clear();
    forgetEmbeddedSubtitles();
    setError({});
    setHdrContent(false);
    setVideoFPS(0);
    setDroppedFrames(0);
}

void Player::handle(const PlaybackEvent& event)
{
    if (const auto* ready = std::get_if<PlaybackEvents::Ready>(&event)) {
        didLoad(ready->info);
    } else if (const auto* failed = std::get_if<PlaybackEvents::Failed>(&event)) {
        didFail(failed->code);
    } else if (const auto* seek = std::get_if<PlaybackEvents::SeekCompleted>(&event)) {
        if (m_pendingSeek && m_pendingSeek->id == seek->id) m_pendingSeek.reset();
    } else if (std::holds_alternative<PlaybackEvents::Ended>(event)) {
        didReachEnd();
    }
    updateWebViewActive();
}

void Player::didLoad(const PlaybackMediaInfo& info)
{
    const auto finiteOrZero = [](double value) {
        return std::isfinite(value) && value > 0 ? value : 0.0;
    };
    setDuration(finiteOrZero(info.duration));
    setVideoSize({finiteOrZero(info.width), finiteOrZero(info.height)});
    QList<MediaTrack> tracks;
    for (const PlaybackTrack& track : info.tracks)
        tracks.append({track.id, rawValue(track.kind), track.label});
    offerEmbeddedSubtitles(info.embeddedSubtitles);
    setTracks(withSubtitleTracks(tracks));
    setHdrContent(info.hdr);
    setVideoFPS(finiteOrZero(info.frameRate));
    setLoaded(true);

    const double resume = savedPosition(m_currentURL);
    if (history::resumePoint(resume, m_duration) > 0) seek(resume);

    // A file that finished loading starts playing at the effective speed.
    m_playback->play(m_speed);
    setPaused(false);
    captureDiagnostics();
}

void Player::didFail(qint64 code)
{
    qCInfo(lcPlayer) << "playback failed with" << code;
    setError(cannotPlayText());
    diagnostics().record(QStringLiteral("media.failed"),
                         {{QStringLiteral("code"), QString::number(code)}});
}

void Player::didReachEnd()
{
    if (!m_loaded || m_handledEOF) return;
    m_handledEOF = true;
    endBoost();
    setPosition(m_duration);
    savePosition();
    setPaused(true);
    next(1);
}

// Transport

void Player::toggle()
{
    if (!m_loaded) return;
    if (!m_paused) {
        endBoost();
        m_playback->pause();
        setPaused(true);
        savePosition();
        return;
    }
    if (m_handledEOF) {
        m_handledEOF = false;
        seek(0.0);
    }
    m_playback->play(m_speed);
    setPaused(false);
}

void Player::seek(double time)
{
    if (!std::isfinite(time) || !m_loaded) return;
    const double target = std::min(std::max(time, 0.0), std::max(m_duration, 0.0));
    const QUuid id = QUuid::createUuid();
    m_pendingSeek = PendingSeek{id, target, now()};
    setPosition(target);
    m_handledEOF = false;
    m_playback->seek(target, id);
}

void Player::selectTrack(const QString& type, qint64 id)
{
    const auto kind =
        type == QLatin1String("audio") ? PlaybackTrackKind::Audio : PlaybackTrackKind::Subtitle;
    if (kind == PlaybackTrackKind::Subtitle && selectOwnSubtitle(id)) return;
    m_playback->selectTrack(kind, id);
}

void Player::adjustVolume(double change)
{
    if (!std::isfinite(change)) return;
    const double volume = std::min(std::max(m_volume + change, 0.0), 100.0);
    setVolume(volume);
    m_playback->setVolume(volume / 100);
    setShowingVolume(true);
    m_volumeFeedbackUntil = now() + kVolumeFeedbackSeconds;
}

void Player::dismissError()
{
    setError({});
}

void Player::refresh()
{
    const double time = now();
    if (m_showingVolume && time >= m_volumeFeedbackUntil) setShowingVolume(false);
    if (m_showingBoost && time >= m_boostFeedbackUntil) setShowingBoost(false);
    if (!m_playback || !m_loaded) return;

    const PlaybackSnapshot snapshot = m_playback->snapshot();
    if (m_pendingSeek && time - m_pendingSeek->started < kPendingSeekSeconds) {
        setPosition(m_pendingSeek->time);
    } else {
        m_pendingSeek.reset();
        if (std::isfinite(snapshot.position)) setPosition(snapshot.position);
    }
    setAudioID(snapshot.audioID);
    setSubtitleID(m_subtitles->activeID() != 0 ? m_subtitles->activeID() : snapshot.subtitleID);
    if (std::isfinite(snapshot.droppedFrames)) setDroppedFrames(snapshot.droppedFrames);

    if (time - m_lastSavedAt > kPeriodicSaveSeconds) savePosition();
}

// Speed

void Player::applySpeed(double rate)
{
    if (std::isnan(rate)) return;
    setSpeed(std::min(std::max(rate, kMinSpeed), kMaxSpeed));
    // A paused item keeps its rate for the next play; telling the backend now would start it.
    if (m_loaded && !m_paused) m_playback->play(m_speed);
}

void Player::setBaseSpeed(double rate)
{
    if (!std::isfinite(rate) || rate < kMinBaseSpeed || rate > kMaxBaseSpeed) return;
    endBoost();
    applySpeed(rate);
}

void Player::beginBoost()
{
    if (!m_loaded || m_paused || m_originalSpeed || !(m_speed > 0)) return;
    m_originalSpeed = m_speed;
    applySpeed(m_speed * m_holdMultiplier);
    setIsBoosting(true);
    setShowingBoost(true);
    m_boostFeedbackUntil = now() + kBoostFeedbackSeconds;
}

void Player::endBoost()
{
    if (!m_originalSpeed) return;
    const double original = *m_originalSpeed;
    m_originalSpeed.reset();
    applySpeed(original);
    setIsBoosting(false);
    setShowingBoost(false);
}

void Player::setHoldMultiplier(double multiplier)
{
    if (!history::isValidHoldMultiplier(multiplier)) return;
    m_defaults->setValue(QLatin1String(history::kHoldMultiplierKey), multiplier);
    if (m_holdMultiplier != multiplier) {
        m_holdMultiplier = multiplier;
        emit holdMultiplierChanged();
    }
    if (m_originalSpeed) applySpeed(*m_originalSpeed * m_holdMultiplier);
}

// Display and diagnostics

void Player::configureDisplay(std::optional<double> screenHeadroom, QWindow* window)
{
    setHdrOutput(m_hdrContent && screenHeadroom && *screenHeadroom > 1.0);
    if (!window) return;
    // Takes effect when the window's surface is (re)created.
    QSurfaceFormat format = window->requestedFormat();
    format.setColorSpace(m_hdrOutput ? QColorSpace(QColorSpace::DisplayP3)
                                     : QColorSpace(QColorSpace::SRgb));
    window->setFormat(format);
}

void Player::configureDisplay(QScreen* screen, QWindow* window)
{
    // Qt offers no extended-dynamic-range headroom query, so a screen reports none.
    configureDisplay(screen ? std::optional<double>(1.0) : std::nullopt, window);
}

void Player::captureDiagnostics()
{
    diagnostics().record(QStringLiteral("playback.state"),
                         {{QStringLiteral("loaded"), diagnosticBool(m_loaded)},
                          {QStringLiteral("paused"), diagnosticBool(m_paused)},
                          {QStringLiteral("volume"), QString::number(m_volume)},
                          {QStringLiteral("muted"), diagnosticBool(m_playback->isMuted())},
                          {QStringLiteral("ao"), audioOutputName()},
                          {QStringLiteral("speed"), QString::number(m_speed)}});
}

} // namespace quorvane
