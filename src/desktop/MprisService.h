#pragma once
// The player on the session bus as an MPRIS 2 media player ("org.mpris.MediaPlayer2.quorvane"),
// so that media keys, the desktop's sound applet and `playerctl` can drive it. Every call goes
// through the Player's own operations; calls the player would not accept (a stale track id, a
// position or rate out of range, a file that cannot be read) are dropped without changing anything.
#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>

namespace quorvane {

class Player;

class MprisService : public QObject {
    Q_OBJECT

public:
    static constexpr double kMinimumRate = 0.25;
    static constexpr double kMaximumRate = 4.0;

    // Registers on `bus`; without a connected bus it says so once in the log and stays idle.
    MprisService(Player& player, QDBusConnection bus, QObject* parent = nullptr);
    ~MprisService() override;

    bool isRegistered() const { return !m_serviceName.isEmpty(); }
    // "org.mpris.MediaPlayer2.quorvane", or with ".instance<pid>" when another player holds it.
    QString serviceName() const { return m_serviceName; }
    // The MIME types the desktop file declares, which are also what the bus advertises.
    static QStringList supportedMimeTypes();

    // Shared with the two D-Bus interfaces.
    Player& player() const { return m_player; }
    QDBusObjectPath trackId() const;
    QVariantMap metadata() const;
    QString playbackStatus() const;
    bool canGoNext() const;
    bool canGoPrevious() const;

signals:
    // A client asked to bring the window to the front.
    void raiseRequested();

private:
    void markChanged(const QString& interface, const QString& property);
    void flushChanges();
    void noteSeek();

    Player& m_player;
    QDBusConnection m_bus;
    QString m_serviceName;
    class MprisRootAdaptor* m_root = nullptr;
    class MprisPlayerAdaptor* m_playerInterface = nullptr;
    quint64 m_track = 0;
    // Changes are gathered and sent as one PropertiesChanged per interface after the event.
    QTimer m_flush;
    QSet<QString> m_changedRoot;
    QSet<QString> m_changedPlayer;
};

} // namespace quorvane
