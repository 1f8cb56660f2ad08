#include "MprisAdaptors.h"

#include "DesktopLog.h"
#include "MprisService.h"
#include "Player.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QUrl>

#include <cmath>

namespace quorvane {

namespace {

constexpr double kMicroseconds = 1e6;

qlonglong toMicroseconds(double seconds)
{
    return std::isfinite(seconds) ? qlonglong(std::llround(seconds * kMicroseconds)) : 0;
}

} // namespace

MprisRootAdaptor::MprisRootAdaptor(MprisService* service)
    : QDBusAbstractAdaptor(service), m_service(service)
{
}

QStringList MprisRootAdaptor::supportedMimeTypes() const
{
    return MprisService::supportedMimeTypes();
}

void MprisRootAdaptor::Raise()
{
    emit m_service->raiseRequested();
}

void MprisRootAdaptor::Quit()
{
    // Queued, so that the reply to this call still goes out before the event loop ends.
    QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit,
                              Qt::QueuedConnection);
}

MprisPlayerAdaptor::MprisPlayerAdaptor(MprisService* service)
    : QDBusAbstractAdaptor(service), m_service(service)
{
}

QString MprisPlayerAdaptor::playbackStatus() const
{
    return m_service->playbackStatus();
}

double MprisPlayerAdaptor::rate() const
{
    return m_service->player().speed();
}

void MprisPlayerAdaptor::setRate(double rate)
{
    // The model accepts the same range; checking here keeps a bad value out of the log noise and
    // makes the rule visible next to MinimumRate/MaximumRate.
    if (!std::isfinite(rate) || rate < MprisService::kMinimumRate ||
        rate > MprisService::kMaximumRate) {
        qCInfo(lcDesktop) << "MPRIS: ignored rate" << rate;
        return;
    }
    m_service->player().setBaseSpeed(rate);
}

QVariantMap MprisPlayerAdaptor::metadata() const
{
    return m_service->metadata();
}

double MprisPlayerAdaptor::volume() const
{
    return m_service->player().volume() / 100.0;
}

void MprisPlayerAdaptor::setVolume(double volume)
{
    if (!std::isfinite(volume) || volume < 0 || volume > 1) {
        qCInfo(lcDesktop) << "MPRIS: ignored volume" << volume;
        return;
    }
    Player& player = m_service->player();
    player.adjustVolume(volume * 100.0 - player.volume());
}

qlonglong MprisPlayerAdaptor::position() const
{
    return toMicroseconds(m_service->player().position());
}

double MprisPlayerAdaptor::minimumRate() const
{
    return MprisService::kMinimumRate;
}

double MprisPlayerAdaptor::maximumRate() const
{
    return MprisService::kMaximumRate;
}

bool MprisPlayerAdaptor::canGoNext() const
{
    return m_service->canGoNext();
}

bool MprisPlayerAdaptor::canGoPrevious() const
{
    return m_service->canGoPrevious();
}

bool MprisPlayerAdaptor::canPlay() const
{
    return m_service->player().loaded();
}

bool MprisPlayerAdaptor::canPause() const
{
    return m_service->player().loaded();
}

bool MprisPlayerAdaptor::canSeek() const
{
    return m_service->player().loaded() && m_service->player().duration() > 0;
}

void MprisPlayerAdaptor::Next()
{
    m_service->player().next(1);
}

void MprisPlayerAdaptor::Previous()
{
    m_service->player().next(-1);
}

void MprisPlayerAdaptor::Pause()
{
    Player& player = m_service->player();
    if (player.loaded() && !player.paused()) player.toggle();
}

void MprisPlayerAdaptor::PlayPause()
{
    m_service->player().toggle();
}

void MprisPlayerAdaptor::Stop()
{
    // The model has no stopped state: pause and go back to the start.
    Player& player = m_service->player();
    if (!player.loaded()) return;
    if (!player.paused()) player.toggle();
    player.seek(0);
}

void MprisPlayerAdaptor::Play()
{
    Player& player = m_service->player();
    if (player.loaded() && player.paused()) player.toggle();
}

void MprisPlayerAdaptor::Seek(qlonglong Offset)
{
    Player& player = m_service->player();
    if (!canSeek()) return;
    const double target = player.position() + double(Offset) / kMicroseconds;
    // Past the end means the next item, as a client skipping forward expects.
    if (target > player.duration() && canGoNext()) {
        player.next(1);
        return;
    }
    player.seek(target);
}

void MprisPlayerAdaptor::SetPosition(const QDBusObjectPath& TrackId, qlonglong Position)
{
    Player& player = m_service->player();
    // A client that read the metadata of an earlier item must not move the current one.
    if (!canSeek() || TrackId != m_service->trackId() || Position < 0 ||
        Position > toMicroseconds(player.duration())) {
        qCInfo(lcDesktop) << "MPRIS: ignored SetPosition" << TrackId.path() << Position;
        return;
    }
    player.seek(double(Position) / kMicroseconds);
}

void MprisPlayerAdaptor::OpenUri(const QString& Uri)
{
    const QUrl url(Uri, QUrl::StrictMode);
    const QFileInfo file(url.isLocalFile() ? url.toLocalFile() : QString());
    // Only files we can read: the model would otherwise show its error over what is playing.
    if (!url.isLocalFile() || !file.isFile() || !file.isReadable()) {
        qCInfo(lcDesktop) << "MPRIS: ignored OpenUri for an unreadable or non-file URI";
        return;
    }
    m_service->player().open(url);
}

} // namespace quorvane
