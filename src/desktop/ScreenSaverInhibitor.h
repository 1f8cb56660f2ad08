#pragma once
// Keeps the screen on while a video plays. A playing video asks the desktop's screen saver not to
// blank the screen (org.freedesktop.ScreenSaver Inhibit/UnInhibit, or the desktop portal's Inhibit
// where that interface is missing); pausing, the end, an error or closing releases it. Playing
// audio only keeps the computer from suspending, which only the portal can say; the screen saver
// interface is left alone for it. A desktop without either service is fine: nothing happens.
#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QObject>

#include <optional>

namespace quorvane {

class Player;

class ScreenSaverInhibitor : public QObject {
    Q_OBJECT

public:
    enum class Hold { None, Screen, Sleep };
    Q_ENUM(Hold)

    ScreenSaverInhibitor(Player& player, QDBusConnection bus, QObject* parent = nullptr);
    // Releases what is held; the desktop also drops it when our bus connection closes.
    ~ScreenSaverInhibitor() override;

    // What the playback state asks for now, and what is held (or being asked for).
    Hold wanted() const;
    Hold held() const { return m_held; }
    // Releases and stops following the player, for the window closing.
    void release();

private:
    struct Grant {
        std::optional<uint> cookie;             // org.freedesktop.ScreenSaver
        std::optional<QDBusObjectPath> request; // the portal's request handle
    };

    void update();
    void acquire(Hold hold);
    static void drop(QDBusConnection bus, const Grant& grant);
    bool serviceRunning(const QString& name) const;

    Player& m_player;
    QDBusConnection m_bus;
    bool m_following = true;
    Hold m_held = Hold::None;
    // Replies carry the generation they were asked in; a reply for an older one is released.
    quint64 m_generation = 0;
    Grant m_grant;
};

} // namespace quorvane
