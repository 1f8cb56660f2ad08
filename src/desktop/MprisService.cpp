#include "MprisService.h"

#include "DesktopLog.h"
#include "MprisAdaptors.h"
#include "Player.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include <cmath>

namespace quorvane {

namespace {

const QString kObjectPath = QStringLiteral("/org/mpris/MediaPlayer2");
const QString kServiceName = QStringLiteral("org.mpris.MediaPlayer2.quorvane");
const QString kRootInterface = QStringLiteral("org.mpris.MediaPlayer2");
const QString kPlayerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
// Track ids only need to be unique within this run; the number changes with every opened item.
const QString kTrackPrefix = QStringLiteral("/io/github/quorvane/Player/Track/");
const QString kNoTrack = QStringLiteral("/org/mpris/MediaPlayer2/TrackList/NoTrack");

} // namespace

MprisService::MprisService(Player& player, QDBusConnection bus, QObject* parent)
    : QObject(parent), m_player(player), m_bus(std::move(bus))
{
    if (!m_bus.isConnected()) {
        qCInfo(lcDesktop) << "no session bus: media keys and MPRIS control are off";
        return;
    }
    m_root = new MprisRootAdaptor(this);
    m_playerInterface = new MprisPlayerAdaptor(this);
    if (!m_bus.registerObject(kObjectPath, this)) {
        qCWarning(lcDesktop) << "MPRIS: cannot export" << kObjectPath;
        return;
    }
    // A second player on the same bus (one runs per display) takes the per-process name that the
    // MPRIS convention reserves for that.
    for (const QString& name :
         {kServiceName,
          kServiceName + QStringLiteral(".instance%1").arg(QCoreApplication::applicationPid())}) {
        if (m_bus.registerService(name)) {
            m_serviceName = name;
            break;
        }
    }
    if (m_serviceName.isEmpty()) {
        qCWarning(lcDesktop) << "MPRIS: cannot own a bus name:" << m_bus.lastError().message();
        m_bus.unregisterObject(kObjectPath);
        return;
    }

    m_flush.setSingleShot(true);
    m_flush.setInterval(0);
    connect(&m_flush, &QTimer::timeout, this, &MprisService::flushChanges);

    const auto onChange = [this](auto signal, QStringList properties) {
        connect(&m_player, signal, this, [this, properties] {
            for (const QString& property : properties)
                markChanged(kPlayerInterface, property);
        });
    };
    const QString status = QStringLiteral("PlaybackStatus");
    const QString metadata = QStringLiteral("Metadata");
    const QStringList neighbours{QStringLiteral("CanGoNext"), QStringLiteral("CanGoPrevious")};
    const QStringList controls{QStringLiteral("CanPlay"), QStringLiteral("CanPause"),
                               QStringLiteral("CanSeek")};
    onChange(&Player::pausedChanged, {status});
    onChange(&Player::loadedChanged, QStringList{status} + controls);
    onChange(&Player::durationChanged, QStringList{metadata, QStringLiteral("CanSeek")});
    onChange(&Player::titleChanged, {metadata});
    onChange(&Player::playlistChanged, neighbours);
    onChange(&Player::volumeChanged, {QStringLiteral("Volume")});
    onChange(&Player::speedChanged, {QStringLiteral("Rate")});
    connect(&m_player, &Player::currentURLChanged, this, [this] {
        ++m_track;
        for (const QString& property : {QStringLiteral("Metadata"), QStringLiteral("CanGoNext"),
                                        QStringLiteral("CanGoPrevious")})
            markChanged(kPlayerInterface, property);
    });
    connect(&m_player, &Player::positionChanged, this, &MprisService::noteSeek);
}

MprisService::~MprisService()
{
    if (!isRegistered()) return;
    m_bus.unregisterService(m_serviceName);
    m_bus.unregisterObject(kObjectPath);
}

QStringList MprisService::supportedMimeTypes()
{
    return QString::fromLatin1(QV_DESKTOP_MIME_TYPES).split(QLatin1Char(','), Qt::SkipEmptyParts);
}

QDBusObjectPath MprisService::trackId() const
{
    if (m_player.currentURL().isEmpty()) return QDBusObjectPath(kNoTrack);
    return QDBusObjectPath(kTrackPrefix + QString::number(m_track));
}

QVariantMap MprisService::metadata() const
{
    QVariantMap map{{QStringLiteral("mpris:trackid"), QVariant::fromValue(trackId())}};
    if (m_player.currentURL().isEmpty()) return map;
    if (m_player.duration() > 0)
        map.insert(QStringLiteral("mpris:length"),
                   qlonglong(std::llround(m_player.duration() * 1e6)));
    map.insert(QStringLiteral("xesam:title"), m_player.title());
    map.insert(QStringLiteral("xesam:url"), m_player.currentURL().toString(QUrl::FullyEncoded));
    return map;
}

QString MprisService::playbackStatus() const
{
    if (!m_player.loaded()) return QStringLiteral("Stopped");
    return m_player.paused() ? QStringLiteral("Paused") : QStringLiteral("Playing");
}

bool MprisService::canGoNext() const
{
    const qsizetype index = m_player.playlist().indexOf(m_player.currentURL());
    return index >= 0 && index + 1 < m_player.playlist().size();
}

bool MprisService::canGoPrevious() const
{
    return m_player.playlist().indexOf(m_player.currentURL()) > 0;
}

void MprisService::markChanged(const QString& interface, const QString& property)
{
    (interface == kRootInterface ? m_changedRoot : m_changedPlayer).insert(property);
    m_flush.start();
}

void MprisService::flushChanges()
{
    const auto send = [this](const QString& interface, QObject* adaptor, QSet<QString>& names) {
        if (names.isEmpty()) return;
        QVariantMap changed;
        for (const QString& name : std::as_const(names))
            changed.insert(name, adaptor->property(name.toLatin1().constData()));
        names.clear();
        QDBusMessage signal = QDBusMessage::createSignal(
            kObjectPath, QStringLiteral("org.freedesktop.DBus.Properties"),
            QStringLiteral("PropertiesChanged"));
        signal << interface << changed << QStringList();
        m_bus.send(signal);
    };
    send(kRootInterface, m_root, m_changedRoot);
    send(kPlayerInterface, m_playerInterface, m_changedPlayer);
}

void MprisService::noteSeek()
{
    // A seek (ours, the window's or a resume) sets the position while the model waits for the
    // backend to confirm it; ordinary playback moves the position without one pending.
    if (m_player.hasPendingSeek())
        emit m_playerInterface->Seeked(qlonglong(std::llround(m_player.position() * 1e6)));
}

} // namespace quorvane
