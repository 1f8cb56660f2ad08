#include "SubtitleSession.h"

#include "DiagnosticLog.h"
#include "SubtitleText.h"

#include <QElapsedTimer>
#include <QFutureWatcher>
#include <QtConcurrent/QtConcurrentRun>

#include <cmath>

namespace quorvane {

SubtitleSession::SubtitleSession(QObject* parent) : QObject(parent)
{
    auto timer = std::make_shared<QElapsedTimer>();
    timer->start();
    m_clock = [timer] { return double(timer->nsecsElapsed()) / 1e9; };
}

SubtitleSession::~SubtitleSession() = default;

qint64 SubtitleSession::addFile(const QString& path, const QString& label)
{
    m_tracks.append({{m_nextID, label, false}, path, nullptr});
    return m_nextID++;
}

qint64 SubtitleSession::addDocument(SubtitleDocument document, const QString& label, bool forced)
{
    m_tracks.append(
        {{m_nextID, label, forced}, {}, std::make_shared<SubtitleDocument>(std::move(document))});
    return m_nextID++;
}

void SubtitleSession::read(const QString& path, std::function<void(SubtitleParse)> done)
{
    // The watcher is ours: a session destroyed before the read ends never hears of it.
    auto* watcher = new QFutureWatcher<SubtitleParse>(this);
    const quint64 generation = m_generation;
    connect(watcher, &QFutureWatcherBase::finished, this,
            [this, watcher, generation, done = std::move(done)] {
                watcher->deleteLater();
                if (generation == m_generation) done(watcher->result());
            });
    watcher->setFuture(QtConcurrent::run([path] { return subtitles::readFile(path); }));
}

void SubtitleSession::appendEvents(qint64 id, const QList<SubtitleEvent>& events)
{
    Track* track = find(id);
    if (!track || !track->document || events.isEmpty()) return;
    // The document is shared with the overlay: a grown copy replaces it.
    auto grown = std::make_shared<SubtitleDocument>(*track->document);
    const qsizetype firstNew = grown->events.size();
    grown->events.append(events);
    track->document = std::move(grown);
    emit documentChanged(id, firstNew);
}

void SubtitleSession::addFonts(qint64 id, const QList<SubtitleFont>& fonts)
{
    Track* track = find(id);
    if (!track || !track->document || fonts.isEmpty()) return;
    auto changed = std::make_shared<SubtitleDocument>(*track->document);
    changed->fonts.append(fonts);
    track->document = std::move(changed);
    emit documentChanged(id, -1);
}

void SubtitleSession::clear()
{
    ++m_generation;
    m_tracks.clear();
    m_pendingID = 0;
    show(0);
}

void SubtitleSession::show(qint64 id)
{
    if (id == m_activeID) return;
    m_activeID = id;
    emit activeChanged();
}

QList<SubtitleTrackInfo> SubtitleSession::tracks() const
{
    QList<SubtitleTrackInfo> list;
    for (const Track& track : m_tracks)
        list.append(track.info);
    return list;
}

SubtitleSession::Track* SubtitleSession::find(qint64 id)
{
    for (Track& track : m_tracks) {
        if (track.info.id == id) return &track;
    }
    return nullptr;
}

bool SubtitleSession::owns(qint64 id) const
{
    return const_cast<SubtitleSession*>(this)->find(id) != nullptr;
}

void SubtitleSession::note(const QString& event, const QString& reason)
{
    if (m_log) m_log->record(event, {{QStringLiteral("reason"), reason}});
}

bool SubtitleSession::select(qint64 id)
{
    Track* track = find(id);
    m_pendingID = 0;
    if (!track || track->document) {
        show(track ? id : 0);
        return track || id == 0;
    }
    // Nothing of the previous track stays up while the file is read.
    show(0);
    m_pendingID = id;
    read(track->path, [this, id](const SubtitleParse& parse) {
        Track* target = find(id);
        if (m_pendingID != id || !target) return; // another track was chosen meanwhile
        m_pendingID = 0;
        for (const QString& line : parse.notes)
            note(QStringLiteral("subtitle.cut"), line);
        if (!parse.ok()) {
            note(QStringLiteral("subtitle.dropped"), parse.failure);
            return;
        }
        target->document = std::make_shared<SubtitleDocument>(parse.document);
        show(id);
    });
    return true;
}

std::shared_ptr<const SubtitleDocument> SubtitleSession::activeDocument() const
{
    for (const Track& track : m_tracks) {
        if (track.info.id == m_activeID) return track.document;
    }
    return nullptr;
}

void SubtitleSession::setTiming(double position, double rate)
{
    if (!std::isfinite(position) || !std::isfinite(rate)) return;
    const double now = m_clock();
    // Every snapshot re-anchors the clock; only what extrapolation could not foresee (a seek, a
    // pause, a new rate) is announced, so the overlay redraws at once instead of on its next tick.
    const bool jump = rate != m_rate || std::abs(currentTime() - position) > 0.25;
    m_anchorPosition = position;
    m_anchorTime = now;
    m_rate = rate;
    if (jump) emit timingChanged();
}

double SubtitleSession::currentTime() const
{
    return m_anchorPosition + m_rate * (m_clock() - m_anchorTime);
}

} // namespace quorvane
