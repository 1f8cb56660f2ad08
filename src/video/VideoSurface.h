#pragma once
// The picture area of the player window and its input. The window's VideoOutput sits inside it;
// the surface turns keys, presses, double clicks and pointer movement over the picture into player
// commands, and follows the window's screen so that the player can choose its colour space.
//
// Keys are taken from the whole window (an event filter on it), like an application-wide key
// monitor: arrows seek, change the volume and boost while held; Return and keypad Enter toggle
// full screen. Keys pass on with Shift, Control, Alt or Meta held, while a sheet is open
// (`keysBlocked`) and while a text field or a control has the focus.
#include "ArrowKeyPlayback.h"
#include "Player.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QQuickItem>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace quorvane {

class VideoSurface : public QQuickItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(
        quorvane::Player* player READ player WRITE setPlayer NOTIFY playerChanged REQUIRED FINAL)
    Q_PROPERTY(
        bool keysBlocked READ keysBlocked WRITE setKeysBlocked NOTIFY keysBlockedChanged FINAL)

public:
    // Picture presses held this long start a boost.
    static constexpr int kHoldMs = 350;
    static constexpr int kDisplayCheckMs = 2000;

    explicit VideoSurface(QQuickItem* parent = nullptr);
    ~VideoSurface() override;

    Player* player() const { return m_player; }
    void setPlayer(Player* player);
    bool keysBlocked() const { return m_keysBlocked; }
    void setKeysBlocked(bool blocked);

    // The virtual key code for a Qt key, or nothing for keys the surface does not handle.
    static std::optional<quint16> keyCode(int qtKey);
    // The display's extended-dynamic-range headroom; 1.0 where the platform has no such query.
    static double displayHeadroom(const QScreen* screen);

    // Full screen on, or back to the window's previous state.
    Q_INVOKABLE void toggleFullScreen();
    // Re-checks the window's screen and reports to the player when headroom or content changed.
    Q_INVOKABLE void updateDisplay();
    // Forgets a held arrow key and ends its boost.
    Q_INVOKABLE void cancelArrowKeys();

    ArrowKeyPlayback* arrowKeys();
    double lastHeadroom() const { return m_lastHeadroom; }

signals:
    void playerChanged();
    void keysBlockedChanged();
    // The pointer moved over the picture, or dragged on it.
    void pointerActivity();
    // A right click on the picture, at `position` in the surface's coordinates.
    void contextMenuRequested(QPointF position);
    // The player was asked to configure the display (after a change of headroom or content).
    void displayConfigured();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void itemChange(ItemChange change, const ItemChangeData& value) override;
    void hoverEnterEvent(QHoverEvent* event) override;
    void hoverMoveEvent(QHoverEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseUngrabEvent() override;

private:
    bool handleKey(QKeyEvent* event);
    bool keysPassOn(const QKeyEvent* event) const;
    void attachWindow(QQuickWindow* window);
    void endHold();
    double uptime() const { return m_uptime.nsecsElapsed() / 1e9; }

    QPointer<Player> m_player;
    QPointer<QQuickWindow> m_window;
    QList<QMetaObject::Connection> m_windowObservers;
    ArrowKeyPlayback* m_arrowKeys = nullptr;
    QElapsedTimer m_uptime;
    QTimer m_displayTimer;
    QTimer m_holdTimer;
    bool m_keysBlocked = false;
    double m_lastHeadroom = -1.0;
    bool m_lastHDR = false;
    Qt::WindowStates m_stateBeforeFullScreen = Qt::WindowNoState;
};

} // namespace quorvane
