#include "ScreenSaverInhibitor.h"

#include "DesktopLog.h"
#include "Player.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QPointer>

namespace quorvane {

namespace {

const QString kScreenSaverService = QStringLiteral("org.freedesktop.ScreenSaver");
const QString kScreenSaverPath = QStringLiteral("/org/freedesktop/ScreenSaver");
const QString kPortalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kApplication = QStringLiteral("quorvane-player");
// The portal's inhibit flags.
constexpr uint kPortalSuspend = 4;
constexpr uint kPortalIdle = 8;

} // namespace

ScreenSaverInhibitor::ScreenSaverInhibitor(Player& player, QDBusConnection bus, QObject* parent)
    : QObject(parent), m_player(player), m_bus(std::move(bus))
{
    for (auto signal : {&Player::loadedChanged, &Player::pausedChanged, &Player::videoSizeChanged,
                        &Player::errorChanged, &Player::currentURLChanged})
        connect(&m_player, signal, this, &ScreenSaverInhibitor::update);
    update();
}

ScreenSaverInhibitor::~ScreenSaverInhibitor()
{
    release();
}

ScreenSaverInhibitor::Hold ScreenSaverInhibitor::wanted() const
{
    if (!m_following || !m_player.loaded() || m_player.paused() || !m_player.error().isEmpty())
        return Hold::None;
    const QSizeF size = m_player.videoSize();
    return size.width() > 0 && size.height() > 0 ? Hold::Screen : Hold::Sleep;
}

void ScreenSaverInhibitor::release()
{
    m_following = false;
    update();
}

void ScreenSaverInhibitor::update()
{
    const Hold hold = wanted();
    if (hold == m_held) return;
    ++m_generation;
    drop(m_bus, std::exchange(m_grant, {}));
    m_held = hold;
    if (hold != Hold::None && m_bus.isConnected()) acquire(hold);
}

bool ScreenSaverInhibitor::serviceRunning(const QString& name) const
{
    QDBusConnectionInterface* bus = m_bus.interface();
    return bus && bus->isServiceRegistered(name).value();
}

void ScreenSaverInhibitor::acquire(Hold hold)
{
    const quint64 generation = m_generation;
    const QString reason =
        hold == Hold::Screen ? QStringLiteral("Playing a video") : QStringLiteral("Playing audio");
    QDBusMessage call;
    if (hold == Hold::Screen && serviceRunning(kScreenSaverService)) {
        call = QDBusMessage::createMethodCall(kScreenSaverService, kScreenSaverPath,
                                              kScreenSaverService, QStringLiteral("Inhibit"));
        call << kApplication << reason;
    } else if (serviceRunning(kPortalService)) {
        call = QDBusMessage::createMethodCall(kPortalService, kPortalPath,
                                              QStringLiteral("org.freedesktop.portal.Inhibit"),
                                              QStringLiteral("Inhibit"));
        const uint flags = hold == Hold::Screen ? (kPortalIdle | kPortalSuspend) : kPortalSuspend;
        call << QString() << flags << QVariantMap{{QStringLiteral("reason"), reason}};
    } else {
        qCDebug(lcDesktop) << "no screen saver or portal to inhibit";
        return;
    }

    // The watcher outlives us if the window closes while the desktop is answering: a grant that
    // arrives for nobody, or for an older state, is handed back at once instead of leaking.
    const bool portal = call.service() == kPortalService;
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call));
    QPointer<ScreenSaverInhibitor> self(this);
    QObject::connect(
        watcher, &QDBusPendingCallWatcher::finished, watcher,
        [self, bus = m_bus, generation, portal](QDBusPendingCallWatcher* watcher) {
            watcher->deleteLater();
            const QDBusMessage reply = watcher->reply();
            if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
                qCInfo(lcDesktop) << "the desktop refused to inhibit:" << reply.errorMessage();
                return;
            }
            Grant grant;
            if (portal)
                grant.request = reply.arguments().first().value<QDBusObjectPath>();
            else
                grant.cookie = reply.arguments().first().toUInt();
            if (self && generation == self->m_generation)
                self->m_grant = grant;
            else
                drop(bus, grant);
        });
}

void ScreenSaverInhibitor::drop(QDBusConnection bus, const Grant& grant)
{
    // Sent without waiting for an answer: nothing useful can be done with a failure, and the
    // window may be closing.
    if (grant.cookie) {
        QDBusMessage call =
            QDBusMessage::createMethodCall(kScreenSaverService, kScreenSaverPath,
                                           kScreenSaverService, QStringLiteral("UnInhibit"));
        call << *grant.cookie;
        bus.send(call);
    }
    if (grant.request) {
        bus.send(QDBusMessage::createMethodCall(kPortalService, grant.request->path(),
                                                QStringLiteral("org.freedesktop.portal.Request"),
                                                QStringLiteral("Close")));
    }
}

} // namespace quorvane
