#include "NativePlayback.h"

#include "AudioValidation.h"
#include "ContainerTrackLabels.h"
#include "DiagnosticLog.h"
#include "MediaSourceElement.h"
#include "NativeContainerSource.h"
#include "NativeMediaInfo.h"
#include "containers/ContainerSubtitles.h"

#include <QAudioOutput>
#include <QFutureWatcher>
#include <QLoggingCategory>
#include <QMediaMetaData>
#include <QTimer>
#include <QVideoFrame>
#include <QVideoSink>
#include <QtConcurrent>

#include <algorithm>
#include <cmath>
#include <utility>

Q_LOGGING_CATEGORY(lcNative, "quorvane.playback.native")

namespace quorvane {

namespace {
// How long the first picture may take after the player loaded the file. A file whose video never
// produces one still opens (and shows nothing) rather than hanging in the loading state.
constexpr int kFirstFrameTimeoutMs = 3000;
// A seek that produces no picture near its target (the player snapped elsewhere, or the end of the
// file) still completes after this long, so the owner never waits forever.
constexpr int kSeekFallbackMs = 1500;
constexpr qint64 kDefaultFrameMs = 40;
// How much longer than the player the read of a file's text tracks may delay Ready. It reads only
// an MP4's movie box and text samples, or a Matroska file's header and its cued text blocks (a
// walk of the clusters when they are not cued), so it normally finishes first; past this the
// player's own subtitle tracks are listed instead.
constexpr int kTextTracksWaitMs = 2000;

} // namespace

NativePlayback::NativePlayback(QObject* parent) : NativePlayback(Route::Engine, parent) {}

NativePlayback::NativePlayback(Route route, QObject* parent)
    : PlaybackBackend(parent), m_route(route), m_player(new QMediaPlayer(this)),
      m_audio(new QAudioOutput(this)), m_detachedSink(new QVideoSink(this))
{
    // Before any file: remuxed files reach GStreamer through our own source element.
    if (m_route == Route::Engine) m_sourceElement = mediasource::registerElement();
    m_player->setAudioOutput(m_audio);
    m_player->setVideoSink(m_detachedSink);
    attachSink(m_detachedSink);

    connect(m_player, &QMediaPlayer::mediaStatusChanged, this, &NativePlayback::handleStatus);
    connect(m_player, &QMediaPlayer::errorOccurred, this,
            [this](QMediaPlayer::Error error, const QString& text) {
                qCInfo(lcNative) << "player error" << error << text;
                handleError(error);
            });
}

NativePlayback::~NativePlayback()
{
    bumpGeneration();
    if (m_textTracksCancel) m_textTracksCancel->store(true);
    m_onEvent = nullptr;
    delete m_audioValidation.data();
    m_player->setSource(QUrl());
    m_player->setVideoOutput(static_cast<QObject*>(nullptr));
    m_container.reset();
}

void NativePlayback::bumpGeneration()
{
    ++m_generation;
    m_frameGeneration.store(m_generation);
}

void NativePlayback::setOnEvent(EventHandler handler)
{
    m_onEvent = std::move(handler);
}

bool NativePlayback::isMuted() const
{
    return m_mutedBeforeSwitch.value_or(m_audio->isMuted());
}

void NativePlayback::setMuted(bool muted)
{
    if (m_mutedBeforeSwitch)
        m_mutedBeforeSwitch = muted; // applied once the pending switch is made
    else
        m_audio->setMuted(muted);
}

double NativePlayback::volume() const
{
    return m_audio->volume();
}

void NativePlayback::setVolume(double volume)
{
    if (!std::isfinite(volume)) return;
    m_audio->setVolume(float(std::clamp(volume, 0.0, 1.0)));
}

PlaybackSnapshot NativePlayback::snapshot() const
{
    PlaybackSnapshot snap;
    // Before Ready the player holds nothing of this file worth reporting.
    if (m_phase != Phase::Ready) return snap;
    // At the end the player rewinds its clock; the file still sits at its end until played again.
    const qint64 ms = m_ended ? m_player->duration() : m_player->position();
    snap.position = ms > 0 ? double(ms) / 1000.0 : 0.0;
    snap.rate =
        m_player->playbackState() == QMediaPlayer::PlayingState ? m_player->playbackRate() : 0.0;
    // The selection as made here: while GStreamer switches streams it briefly reports none.
    snap.audioID = m_audioID;
    snap.subtitleID = m_subtitleID;
    return snap;
}

void NativePlayback::open(const QUrl& url)
{
    stop();
    const quint64 generation = m_generation;
    m_url = url;
    m_phase = Phase::Opening;
    if (!url.isLocalFile()) {
        fail(kFileFormatNotRecognized);
        return;
    }

    m_streamsChecked = !nativemedia::isTransportStream(url);
    if (!m_streamsChecked) {
        NativeContainerSource::probeTransportStream(
            url, this,
            [this, generation](std::optional<NativeContainerSource::Presence> presence,
                               qint64 code) {
                if (generation != m_generation) return;
                if (!presence) {
                    qCInfo(lcNative) << "transport stream probe failed with" << code;
                    fail(kFileFormatNotRecognized);
                    return;
                }
                m_streamsChecked = true;
                // The player must have loaded every kind of stream the probe saw in the file.
                m_transportAudio = presence->hasAudio;
                m_transportVideo = presence->hasVideo;
                checkReady();
            });
    }

    if (m_route == Route::Engine && nativemedia::usesContainerPath(url)) {
        m_container = std::make_unique<NativeContainerSource>(url);
        m_container->open(this, [this, generation] {
            if (generation == m_generation) containerOpened();
        });
        return;
    }
    m_phase = Phase::Loading;
    // The platform draws text subtitles badly (a line stays up after its end, the last is lost,
    // no styles or embedded fonts): where we can read a file's text tracks, we draw them.
    if (nativemedia::hasIsoTimedText(url) ||
        (m_route == Route::Platform && nativemedia::isMatroska(url)))
        readTextTracks(url);
    startPlayer(url, nullptr);
}

void NativePlayback::readTextTracks(const QUrl& url)
{
    const quint64 generation = m_generation;
    m_textTracksPending = true;
    auto cancel = std::make_shared<std::atomic_bool>(false);
    m_textTracksCancel = cancel;
    using Result = std::shared_ptr<const ContainerSubtitles>;
    auto* watcher = new QFutureWatcher<Result>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, generation] {
        watcher->deleteLater();
        if (generation != m_generation || !m_textTracksPending) return;
        m_textTracksPending = false;
        m_textTracks = watcher->result();
        checkReady();
    });
    watcher->setFuture(QtConcurrent::run(
        [path = url.toLocalFile(), cancel] { return readTextSubtitles(path, cancel); }));
}

void NativePlayback::containerOpened()
{
    if (const auto code = m_container->errorCode()) {
        fail(*code);
        return;
    }
    m_phase = Phase::Loading;
    startPlayer(m_container->assetUrl(), m_sourceElement ? nullptr : m_container->device());
    // Recorded once GStreamer is at work: the log writes its file on this thread.
    SupportDiagnostics::log().record(
        QStringLiteral("media.container.ready"),
        {{QStringLiteral("format"), m_container->format()},
         {QStringLiteral("samples"), QString::number(m_container->sampleCount())}});
}

void NativePlayback::startPlayer(const QUrl& source, QIODevice* device)
{
    const quint64 generation = m_generation;
    QTimer::singleShot(kPlayerOpenTimeoutMs, this, [this, generation] {
        if (generation != m_generation || m_phase != Phase::Loading) return;
        qCInfo(lcNative) << "the player did not finish opening in time";
        fail(kFileFormatNotRecognized);
    });
    if (device)
        m_player->setSourceDevice(device, source);
    else
        m_player->setSource(source);
    // Paused before it loads: a picture prerolled while the player still counts as stopped is
    // never handed on by Qt 6.4, and the first picture is what completes the opening.
    m_player->pause();
}

void NativePlayback::play(double rate)
{
    if (!std::isfinite(rate) || rate < kMinimumRate || rate > kMaximumRate ||
        m_phase != Phase::Ready)
        return;
    m_ended = false;
    m_player->setPlaybackRate(rate);
    m_player->play();
    armTrackSwitch();
}

void NativePlayback::pause()
{
    // After the end the player has stopped; pausing would restart it at the beginning.
    if (m_phase == Phase::Idle || m_ended) return;
    m_player->pause();
    // A switch still pending waits for the next play.
    disconnect(m_switchWatch);
    unsilence();
}

void NativePlayback::stop()
{
    bumpGeneration();
    m_phase = Phase::Idle;
    m_seeks.clear();
    delete m_audioValidation.data();
    m_loaded = m_firstFrame = m_audioChecked = m_streamsChecked = false;
    m_transportAudio = m_transportVideo = false;
    m_hdr = m_ended = false;
    m_audioID = m_subtitleID = 0;
    if (m_textTracksCancel) m_textTracksCancel->store(true);
    m_textTracksCancel.reset();
    m_textTracks.reset();
    m_textTracksPending = m_textTracksWaited = m_ownSubtitles = false;
    dropTrackSwitch();
    m_frameSize = {};
    m_player->setSource(QUrl());
    // The player no longer reads the device: pending and later reads now fail.
    m_container.reset();
}

void NativePlayback::seek(double seconds, const QUuid& id)
{
    if (!std::isfinite(seconds) || m_phase != Phase::Ready) return;
    const qint64 duration = m_player->duration();
    qint64 target = std::llround(std::clamp(seconds, 0.0, 1.0e9) * 1000.0);
    if (duration > 0) target = std::min(target, duration);
    const qint64 frameMs =
        m_frameRate > 0 ? qint64(std::ceil(1000.0 / m_frameRate)) : kDefaultFrameMs;
    m_seeks.begin(id, target, frameMs);
    m_ended = false;
    m_player->setPosition(target);
    // The position jumped: a pending switch waits for the clock to run again.
    if ((m_pendingAudio || m_pendingSubtitle) &&
        m_player->playbackState() == QMediaPlayer::PlayingState)
        armTrackSwitch();

    const quint64 generation = m_generation;
    const quint64 serial = m_seeks.serial();
    if (!m_player->hasVideo()) {
        // Without pictures the position is all there is; it settles once the seek was handled.
        QMetaObject::invokeMethod(
            this,
            [this, generation] {
                if (generation == m_generation) completeSeek(m_seeks.arrived(m_player->position()));
            },
            Qt::QueuedConnection);
    }
    QTimer::singleShot(kSeekFallbackMs, this, [this, generation, serial] {
        if (generation == m_generation) completeSeek(m_seeks.expire(serial));
    });
}

void NativePlayback::completeSeek(const std::optional<QUuid>& id)
{
    if (id) emitEvent(PlaybackEvents::SeekCompleted{*id});
}

void NativePlayback::selectTrack(PlaybackTrackKind kind, qint64 id)
{
    if (m_phase != Phase::Ready || id < 0) return;
    const bool audio = kind == PlaybackTrackKind::Audio;
    // The file's text tracks are drawn by us; Qt's stay off.
    if (!audio && m_ownSubtitles) return;
    const qsizetype count =
        audio ? m_player->audioTracks().size() : m_player->subtitleTracks().size();
    if (count == 0 || id > count) return;
    (audio ? m_audioID : m_subtitleID) = id;
    (audio ? m_pendingAudio : m_pendingSubtitle) = id == 0 ? -1 : int(id - 1);
    // Qt 6.4 makes a switch take effect by flushing the pipeline. Flushed while paused (or still
    // on its way to playing), GStreamer can deadlock: the input selector's old and new streams
    // both push towards the audio queue that the prerolled sink does not drain, and the flush
    // pauses their tasks one after the other. So the switch is made once the pipeline runs.
    if (m_player->playbackState() == QMediaPlayer::PlayingState) armTrackSwitch();
}

void NativePlayback::armTrackSwitch()
{
    if (!m_pendingAudio && !m_pendingSubtitle) return;
    if (m_pendingAudio && !m_mutedBeforeSwitch) {
        // The old track stays silent until the new one plays.
        m_mutedBeforeSwitch = m_audio->isMuted();
        m_audio->setMuted(true);
    }
    disconnect(m_switchWatch);
    // The player reports its position every 100 ms while it plays; two reports moving forwards
    // mean the clock runs, so the pipeline has finished changing to playing.
    auto last = std::make_shared<qint64>(-1);
    m_switchWatch =
        connect(m_player, &QMediaPlayer::positionChanged, this, [this, last](qint64 ms) {
            const bool running = *last >= 0 && ms > *last;
            *last = ms;
            if (running && m_player->playbackState() == QMediaPlayer::PlayingState)
                applyTrackSwitch();
        });
}

void NativePlayback::applyTrackSwitch()
{
    disconnect(m_switchWatch);
    if (const auto index = std::exchange(m_pendingAudio, std::nullopt))
        m_player->setActiveAudioTrack(*index);
    if (const auto index = std::exchange(m_pendingSubtitle, std::nullopt))
        m_player->setActiveSubtitleTrack(*index);
    unsilence();
}

void NativePlayback::unsilence()
{
    if (m_mutedBeforeSwitch) m_audio->setMuted(*std::exchange(m_mutedBeforeSwitch, std::nullopt));
}

void NativePlayback::dropTrackSwitch()
{
    disconnect(m_switchWatch);
    m_pendingAudio.reset();
    m_pendingSubtitle.reset();
    unsilence();
}

void NativePlayback::setVideoSink(QVideoSink* sink)
{
    disconnect(m_viewSinkGone);
    m_viewSink = sink;
    if (sink) {
        // The view may be torn down before the backend: fall back rather than keep a dangling sink.
        m_viewSinkGone = connect(sink, &QObject::destroyed, this, [this] {
            m_player->setVideoSink(m_detachedSink);
            attachSink(m_detachedSink);
        });
    }
    QVideoSink* target = sink ? sink : m_detachedSink;
    m_player->setVideoSink(target);
    attachSink(target);
}

void NativePlayback::attachSink(QVideoSink* sink)
{
    disconnect(m_frameConnection);
    if (!sink) return;
    // Frames may be delivered from the pipeline's thread: stamp each with the generation current
    // when it was made, so that a picture of the previous file never counts for the next one.
    m_frameConnection = connect(
        sink, &QVideoSink::videoFrameChanged, this,
        [this](const QVideoFrame& frame) {
            const quint64 generation = m_frameGeneration.load();
            QMetaObject::invokeMethod(
                this, [this, generation, frame] { handleFrame(generation, frame); },
                Qt::QueuedConnection);
        },
        Qt::DirectConnection);
}

void NativePlayback::handleFrame(quint64 generation, const QVideoFrame& frame)
{
    if (generation != m_generation || !frame.isValid()) return;
    if (m_phase == Phase::Loading && !m_firstFrame) {
        m_firstFrame = true;
        m_hdr = nativemedia::isHdrTransfer(frame.surfaceFormat().colorTransfer());
        m_frameSize = frame.size();
        m_frameRotation = int(frame.rotationAngle());
        emit firstFrameShown();
        checkReady();
        return;
    }
    if (m_seeks.pending()) {
        const qint64 ms = frame.startTime() >= 0 ? frame.startTime() / 1000 : m_player->position();
        completeSeek(m_seeks.arrived(ms));
    }
}

void NativePlayback::handleStatus(QMediaPlayer::MediaStatus status)
{
    switch (status) {
    case QMediaPlayer::LoadedMedia:
    case QMediaPlayer::BufferedMedia:
    case QMediaPlayer::BufferingMedia:
        if (m_phase == Phase::Loading && !m_loaded) playerLoaded();
        break;
    case QMediaPlayer::EndOfMedia:
        if (m_phase == Phase::Ready && !m_ended) {
            m_ended = true;
            emitEvent(PlaybackEvents::Ended{});
        }
        break;
    case QMediaPlayer::InvalidMedia:
        if (m_phase == Phase::Loading) fail(kFileFormatNotRecognized);
        break;
    default:
        break;
    }
}

void NativePlayback::handleError(QMediaPlayer::Error error)
{
    if (error == QMediaPlayer::NoError) return;
    // Before Ready the file cannot be played here; afterwards playback broke off on the way. While
    // the engine still opens a file the player holds none: an error then is the previous file's,
    // delivered late.
    if (m_phase == Phase::Loading)
        fail(kFileFormatNotRecognized);
    else if (m_phase == Phase::Ready)
        fail(kUnknownMediaError);
}

void NativePlayback::playerLoaded()
{
    m_loaded = true;
    const bool hasVideo = m_player->hasVideo();
    const bool hasAudio = m_player->hasAudio();
    if (!nativemedia::isTransportStream(m_url) && !hasVideo && !hasAudio) {
        fail(kFileFormatNotRecognized);
        return;
    }
    // Every stream the engine remuxed must have been taken up by the player (each audio stream is
    // counted in checkReady, once the track list is complete).
    if (m_container && ((m_container->videoTracks() > 0 && !hasVideo) ||
                        (m_container->audioTracks() > 0 && !hasAudio))) {
        qCInfo(lcNative) << "the player loaded fewer streams than the file holds";
        fail(kFileFormatNotRecognized);
        return;
    }

    const quint64 generation = m_generation;
    if (hasVideo) {
        QTimer::singleShot(kFirstFrameTimeoutMs, this, [this, generation] {
            if (generation != m_generation || m_phase != Phase::Loading || m_firstFrame) return;
            qCInfo(lcNative) << "no picture in time; opening without one";
            m_firstFrame = true;
            checkReady();
        });
    } else {
        m_firstFrame = true;
    }

    // The demuxer names an audio codec, yet no audio stream reached the player: no decoder here.
    if (!hasAudio && m_player->metaData().value(QMediaMetaData::AudioCodec).isValid()) {
        qCInfo(lcNative) << "the file's audio cannot be decoded";
        fail(kFileFormatNotRecognized);
        return;
    }
    // Remuxed files only carry codecs the engine accepted, which the player decodes. Audio-only
    // files are decoded once to prove this machine can play them; Qt 6.4's audio decoder cannot
    // open files that also hold video, whose audio the checks above cover.
    m_audioChecked = !hasAudio || hasVideo || m_container;
    checkReady();
}

void NativePlayback::startAudioValidation()
{
    const quint64 generation = m_generation;
    m_audioValidation = new AudioValidation(m_url, this);
    connect(m_audioValidation, &AudioValidation::finished, this,
            [this, generation](bool decodable) {
                if (generation != m_generation) return;
                m_audioValidation->deleteLater();
                if (!decodable) {
                    fail(kFileFormatNotRecognized);
                    return;
                }
                m_audioChecked = true;
                checkReady();
            });
}

void NativePlayback::checkReady()
{
    if (m_phase != Phase::Loading || !m_loaded || !m_firstFrame) return;
    // The decoder starts only once the player has loaded the file, so that the two pipelines do
    // not plug their elements at the same moment.
    if (!m_audioChecked && !m_audioValidation) {
        startAudioValidation();
        return;
    }
    if (!m_audioChecked || !m_streamsChecked) return;
    if ((m_transportVideo && !m_player->hasVideo()) ||
        (m_transportAudio && !m_player->hasAudio())) {
        qCInfo(lcNative) << "the transport stream holds streams the player did not load";
        fail(kFileFormatNotRecognized);
        return;
    }

    if (m_container && qsizetype(m_container->audioTracks()) > m_player->audioTracks().size()) {
        qCInfo(lcNative) << "the player loaded fewer audio streams than the file holds";
        fail(kFileFormatNotRecognized);
        return;
    }

    if (m_textTracksPending) {
        if (!std::exchange(m_textTracksWaited, true)) {
            const quint64 generation = m_generation;
            QTimer::singleShot(kTextTracksWaitMs, this, [this, generation] {
                if (generation != m_generation || !m_textTracksPending) return;
                qCInfo(lcNative) << "the text tracks took too long to read; listing the player's";
                m_textTracksPending = false;
                m_textTracksCancel->store(true);
                checkReady();
            });
        }
        return;
    }

    const QMediaMetaData meta = m_player->metaData();
    PlaybackMediaInfo info;
    info.duration = nativemedia::durationSeconds(m_player->duration());
    if (m_player->hasVideo()) {
        QSize resolution = meta.value(QMediaMetaData::Resolution).toSize();
        if (!resolution.isValid()) resolution = m_frameSize;
        // Qt 6.4 hands the rotation on with the pictures; its metadata holds GStreamer's tag text.
        const int rotation =
            m_frameRotation != 0
                ? m_frameRotation
                : nativemedia::rotationDegrees(meta.value(QMediaMetaData::Orientation));
        const QSizeF displayed = nativemedia::displaySize(resolution, rotation);
        info.width = displayed.width();
        info.height = displayed.height();
        bool ok = false;
        double rate = meta.value(QMediaMetaData::VideoFrameRate).toDouble(&ok);
        if ((!ok || rate <= 0) && !m_player->videoTracks().isEmpty())
            rate =
                m_player->videoTracks().first().value(QMediaMetaData::VideoFrameRate).toDouble(&ok);
        info.frameRate = ok && std::isfinite(rate) && rate > 0 ? rate : 0.0;
        info.hdr = m_hdr;
    }
    m_frameRate = info.frameRate;
    // Text tracks we read ourselves replace the player's, so that their ids and selection are ours.
    m_ownSubtitles = m_textTracks != nullptr;
    info.tracks = nativemedia::playbackTracks(m_player->audioTracks(),
                                              m_ownSubtitles ? QList<QMediaMetaData>()
                                                             : m_player->subtitleTracks());
    if (m_container) nativemedia::labelContainerAudio(info.tracks, m_container->tracks());
    if (m_container) info.embeddedSubtitles = m_container->subtitles();
    if (m_ownSubtitles) info.embeddedSubtitles = m_textTracks;

    // Subtitles start off; the user turns them on from the track menu.
    if (!m_player->subtitleTracks().isEmpty()) m_player->setActiveSubtitleTrack(-1);
    const int audio = m_player->activeAudioTrack();
    const qsizetype audioCount = m_player->audioTracks().size();
    m_audioID = audioCount == 0 ? 0 : (audio >= 0 && audio < audioCount ? audio + 1 : 1);
    m_subtitleID = 0;
    m_phase = Phase::Ready;
    emitEvent(PlaybackEvents::Ready{info});
}

void NativePlayback::fail(qint64 code)
{
    if (m_phase == Phase::Idle || m_phase == Phase::Failed) return;
    m_phase = Phase::Failed;
    m_seeks.clear();
    emitEvent(PlaybackEvents::Failed{code});
}

void NativePlayback::emitEvent(const PlaybackEvent& event)
{
    // The owner may stop or reopen from inside its handler; keep the handler alive meanwhile.
    if (const EventHandler handler = m_onEvent) handler(event);
}

} // namespace quorvane
