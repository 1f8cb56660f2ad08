// The subtitle tracks the player draws itself: files found beside the video or loaded by the
// user, listed after the backend's tracks and switched like them.
#include "ContainerSubtitles.h"
#include "ContainerTrackLabels.h"
#include "DiagnosticLog.h"
#include "Player.h"
#include "SubtitleText.h"
#include "TranslationCatalog.h"

#include <QDir>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QtConcurrent>

#include <algorithm>

namespace quorvane {

void Player::connectSubtitles()
{
    m_subtitles->setClock(m_clock);
    // The overlay's clock follows every position, pause and speed the model publishes.
    connect(this, &Player::positionChanged, this, &Player::syncSubtitleClock);
    // A pause or a new speed takes effect where the extrapolated clock stands, not at the last
    // snapshot, which may be up to 0.2 s old.
    const auto rateChanged = [this] {
        m_subtitles->setTiming(m_subtitles->currentTime(), m_paused ? 0.0 : m_speed);
    };
    connect(this, &Player::pausedChanged, this, rateChanged);
    connect(this, &Player::speedChanged, this, rateChanged);
    connect(&m_embeddedPoll, &QTimer::timeout, this, &Player::pullEmbeddedEvents);
    // A file track shows once it has been read in the background.
    connect(m_subtitles, &SubtitleSession::activeChanged, this, [this] {
        if (m_subtitles->activeID() != 0) setSubtitleID(m_subtitles->activeID());
    });
}

void Player::syncSubtitleClock()
{
    m_subtitles->setTiming(m_position, m_paused ? 0.0 : m_speed);
}

void Player::offerSidecarSubtitles(const QString& videoPath)
{
    // "movie.srt", "movie.en.srt", "movie.zh-Hans.ass" beside "movie.mkv"; they start off.
    const QFileInfo video(videoPath);
    const QString stem = video.completeBaseName() + u'.';
    const QFileInfoList candidates =
        video.dir().entryInfoList({QStringLiteral("*.srt"), QStringLiteral("*.ass"),
                                   QStringLiteral("*.ssa"), QStringLiteral("*.vtt")},
                                  QDir::Files | QDir::Readable, QDir::Name | QDir::IgnoreCase);
    for (const QFileInfo& file : candidates) {
        if (file.fileName().startsWith(stem, Qt::CaseInsensitive))
            m_subtitles->addFile(file.absoluteFilePath(), file.fileName());
    }
}

namespace {

// How often the shown track looks for events found since, while more may come.
constexpr int kEmbeddedPollMilliseconds = 250;

// Blocks of an embedded track as events of a subtitle document. Text other than ASS becomes
// lines of the default header numbered from `firstLine` on: libass keeps only the first event
// of each number.
SubtitleParse embeddedLines(const ContainerSubtitleTrack& track,
                            const QList<ContainerSubtitleEvent>& events, qsizetype firstLine)
{
    QList<SubtitleEvent> blocks;
    blocks.reserve(events.size());
    for (const ContainerSubtitleEvent& event : events)
        blocks.append({event.start, event.duration, event.text});
    SubtitleParse parse = subtitles::embeddedTrack(track.codecId, track.codecPrivate, blocks);
    const bool ass = track.codecId == "S_TEXT/ASS" || track.codecId == "S_TEXT/SSA";
    if (!ass && firstLine > 0) {
        for (qsizetype i = 0; i < parse.document.events.size(); ++i) {
            QByteArray& line = parse.document.events[i].line;
            line = QByteArray::number(firstLine + i) + line.mid(line.indexOf(','));
        }
    }
    return parse;
}

} // namespace

void Player::offerEmbeddedSubtitles(std::shared_ptr<const ContainerSubtitles> embedded)
{
    forgetEmbeddedSubtitles();
    if (!embedded) return;
    m_embedded = embedded;
    m_subtitles->setDiagnosticLog(&diagnostics());
    qint64 forced = 0;
    for (qsizetype index = 0; index < embedded->tracks.size(); ++index) {
        const ContainerSubtitleTrack& track = embedded->tracks[index];
        SubtitleParse parse = embeddedLines(track, track.events, 0);
        if (!parse.ok()) {
            diagnostics().record(QStringLiteral("subtitle.dropped"),
                                 {{QStringLiteral("reason"), parse.failure}});
            continue;
        }
        if (track.cutEvents > 0)
            parse.notes.append(QStringLiteral("skipped-events:%1").arg(track.cutEvents));
        for (const QString& note : parse.notes)
            diagnostics().record(QStringLiteral("subtitle.cut"),
                                 {{QStringLiteral("reason"), note}});
        // Labelled like the audio tracks: "Chinese — Signs", "Chinese", "Signs", or a number when
        // the file names neither.
        const QString language = nativemedia::languageName(track.language);
        QString label = language;
        if (!track.name.isEmpty() && track.name != language)
            label = label.isEmpty() ? track.name : QStringLiteral("%1 — %2").arg(label, track.name);
        if (label.isEmpty())
            label = QStringLiteral("%1 %2")
                        .arg(translate(QStringLiteral("Subtitles")))
                        .arg(m_subtitles->tracks().size() + 1);
        const qsizetype lines = parse.document.events.size();
        const qint64 id = m_subtitles->addDocument(std::move(parse.document), label, track.forced);
        m_embeddedTracks.append({id, index, track.events.size(), lines, track.complete});
        if (track.forced && forced == 0) forced = id;
    }
    // Subtitles start off, except a track the file says must always be shown.
    if (forced != 0) selectOwnSubtitle(forced);
}

void Player::forgetEmbeddedSubtitles()
{
    m_embedded.reset();
    m_embeddedTracks.clear();
    m_embeddedFontsAsked = false;
    m_embeddedPoll.stop();
}

void Player::pullEmbeddedEvents()
{
    const qint64 shown = m_subtitles->activeID();
    bool waiting = false;
    for (EmbeddedTrack& track : m_embeddedTracks) {
        if (track.id != shown || track.complete || !m_embedded) continue;
        // Events from where playback stands come first; after a seek, from the new place.
        m_embedded->want(track.index, qint64(m_position * 1000));
        const QList<ContainerSubtitleEvent> found =
            m_embedded->eventsFrom(track.index, track.blocks, &track.complete);
        waiting = !track.complete;
        if (found.isEmpty()) continue;
        track.blocks += found.size();
        SubtitleParse parse = embeddedLines(m_embedded->tracks[track.index], found, track.lines);
        track.lines += parse.document.events.size();
        m_subtitles->appendEvents(track.id, parse.document.events);
    }
    if (waiting && !m_embeddedPoll.isActive()) m_embeddedPoll.start(kEmbeddedPollMilliseconds);
    if (!waiting) m_embeddedPoll.stop();
}

void Player::loadEmbeddedFonts()
{
    if (!m_embedded || m_embeddedFontsAsked) return;
    m_embeddedFontsAsked = true;
    // Read from the file on the thread pool; the track shows without them until then.
    auto* watcher = new QFutureWatcher<QList<ContainerFont>>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, embedded = m_embedded] {
        watcher->deleteLater();
        if (embedded != m_embedded) return; // another file opened meanwhile
        QList<SubtitleFont> fonts;
        for (const ContainerFont& font : watcher->result())
            fonts.append({font.name, font.data});
        for (const EmbeddedTrack& track : m_embeddedTracks)
            m_subtitles->addFonts(track.id, fonts);
    });
    watcher->setFuture(
        QtConcurrent::run([embedded = m_embedded] { return embedded->readFonts(); }));
}

QList<MediaTrack> Player::withSubtitleTracks(QList<MediaTrack> tracks) const
{
    for (const SubtitleTrackInfo& track : m_subtitles->tracks())
        tracks.append({track.id, QStringLiteral("subtitle"), track.label});
    return tracks;
}

bool Player::selectOwnSubtitle(qint64 id)
{
    m_subtitles->setDiagnosticLog(&diagnostics());
    if (!m_subtitles->owns(id)) {
        // The backend's track or none: ours goes off first.
        m_subtitles->select(0);
        return false;
    }
    m_playback->selectTrack(PlaybackTrackKind::Subtitle, 0);
    const bool embedded = std::any_of(m_embeddedTracks.begin(), m_embeddedTracks.end(),
                                      [id](const EmbeddedTrack& track) { return track.id == id; });
    if (embedded) loadEmbeddedFonts();
    m_subtitles->select(id);
    setSubtitleID(m_subtitles->activeID());
    pullEmbeddedEvents();
    return true;
}

void Player::chooseSubtitleFile()
{
    emit chooseSubtitleFileRequested();
}

bool Player::loadSubtitleFile(const QUrl& url)
{
    const QFileInfo file(url.toLocalFile());
    const auto drop = [this](const QString& reason) {
        diagnostics().record(QStringLiteral("subtitle.dropped"),
                             {{QStringLiteral("reason"), reason}});
        return false;
    };
    if (!url.isLocalFile() || !file.isFile() || !subtitles::isSubtitleSuffix(file.suffix()))
        return drop(QStringLiteral("not-subtitles"));
    // The track joins only once the file has been read, so that one that cannot be shown changes
    // nothing; the read (up to 50 MiB) happens off the window's thread.
    m_subtitles->read(
        file.absoluteFilePath(), [this, drop, name = file.fileName()](SubtitleParse parse) {
            if (!parse.ok()) {
                drop(parse.failure);
                return;
            }
            for (const QString& note : parse.notes)
                diagnostics().record(QStringLiteral("subtitle.cut"),
                                     {{QStringLiteral("reason"), note}});
            QList<MediaTrack> tracks = m_tracks;
            tracks.removeIf([this](const MediaTrack& track) {
                return track.type == QLatin1String("subtitle") && m_subtitles->owns(track.id);
            });
            const qint64 id = m_subtitles->addDocument(std::move(parse.document), name);
            setTracks(withSubtitleTracks(tracks));
            selectTrack(QStringLiteral("subtitle"), id);
        });
    return true;
}

} // namespace quorvane
