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

void Player::offerEmbeddedSubtitles(const ContainerSubtitles* embedded)
{
    if (!embedded) return;
    m_subtitles->setDiagnosticLog(&diagnostics());
    qint64 forced = 0;
    for (const ContainerSubtitleTrack& track : embedded->tracks) {
        QList<SubtitleEvent> blocks;
        blocks.reserve(track.events.size());
        for (const ContainerSubtitleEvent& event : track.events)
            blocks.append({event.start, event.duration, event.text});
        SubtitleParse parse = subtitles::embeddedTrack(track.codecId, track.codecPrivate, blocks);
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
        for (const ContainerFont& font : embedded->fonts)
            parse.document.fonts.append({font.name, font.data});
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
        const qint64 id = m_subtitles->addDocument(std::move(parse.document), label, track.forced);
        if (track.forced && forced == 0) forced = id;
    }
    // Subtitles start off, except a track the file says must always be shown.
    if (forced != 0) selectOwnSubtitle(forced);
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
    m_subtitles->select(id);
    setSubtitleID(m_subtitles->activeID());
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
