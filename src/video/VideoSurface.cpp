#include "VideoSurface.h"

#include <QGuiApplication>
#include <QQuickWindow>
#include <QScreen>

namespace quorvane {

VideoSurface::VideoSurface(QQuickItem* parent) : QQuickItem(parent)
{
    setAcceptedMouseButtons(Qt::LeftButton | Qt::RightButton);
    setAcceptHoverEvents(true);
    m_uptime.start();

    m_displayTimer.setInterval(kDisplayCheckMs);
    connect(&m_displayTimer, &QTimer::timeout, this, &VideoSurface::updateDisplay);
    m_holdTimer.setSingleShot(true);
    m_holdTimer.setInterval(kHoldMs);
    connect(&m_holdTimer, &QTimer::timeout, this, [this] {
        if (m_player) m_player->beginBoost();
    });
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this,
            [this](Qt::ApplicationState state) {
                if (state != Qt::ApplicationActive) cancelArrowKeys();
            });
}

VideoSurface::~VideoSurface()
{
    attachWindow(nullptr);
}

void VideoSurface::setPlayer(Player* player)
{
    if (m_player == player) return;
    cancelArrowKeys();
    delete m_arrowKeys;
    m_arrowKeys = nullptr;
    m_player = player;
    m_lastHeadroom = -1.0;
    emit playerChanged();
    updateDisplay();
}

void VideoSurface::setKeysBlocked(bool blocked)
{
    if (m_keysBlocked == blocked) return;
    m_keysBlocked = blocked;
    if (blocked) cancelArrowKeys();
    emit keysBlockedChanged();
}

ArrowKeyPlayback* VideoSurface::arrowKeys()
{
    if (!m_arrowKeys && m_player) m_arrowKeys = new ArrowKeyPlayback(m_player, this);
    return m_arrowKeys;
}

std::optional<quint16> VideoSurface::keyCode(int qtKey)
{
    switch (qtKey) {
    case Qt::Key_Left:
        return ArrowKeyPlayback::kLeftArrow;
    case Qt::Key_Right:
        return ArrowKeyPlayback::kRightArrow;
    case Qt::Key_Down:
        return ArrowKeyPlayback::kDownArrow;
    case Qt::Key_Up:
        return ArrowKeyPlayback::kUpArrow;
    case Qt::Key_Return:
        return ArrowKeyPlayback::kReturn;
    case Qt::Key_Enter:
        return ArrowKeyPlayback::kKeypadEnter;
    default:
        return std::nullopt;
    }
}

double VideoSurface::displayHeadroom(const QScreen* screen)
{
    // Qt 6.4 has no extended-dynamic-range query on any platform it runs on here.
    Q_UNUSED(screen);
    return 1.0;
}

void VideoSurface::toggleFullScreen()
{
    if (!m_window) return;
    if (m_window->windowStates() & Qt::WindowFullScreen) {
        m_window->setWindowStates(m_stateBeforeFullScreen & ~Qt::WindowFullScreen);
    } else {
        m_stateBeforeFullScreen = m_window->windowStates();
        m_window->setWindowStates(Qt::WindowFullScreen);
    }
}

void VideoSurface::updateDisplay()
{
    if (!m_window || !m_player) return;
    QScreen* screen = m_window->screen();
    const double headroom = screen ? displayHeadroom(screen) : 1.0;
    const bool hdr = m_player->hdrContent();
    if (headroom == m_lastHeadroom && hdr == m_lastHDR) return;
    m_lastHeadroom = headroom;
    m_lastHDR = hdr;
    m_player->configureDisplay(screen, m_window);
    emit displayConfigured();
}

void VideoSurface::cancelArrowKeys()
{
    if (m_arrowKeys) m_arrowKeys->cancel();
}

void VideoSurface::itemChange(ItemChange change, const ItemChangeData& value)
{
    if (change == ItemSceneChange) attachWindow(value.window);
    QQuickItem::itemChange(change, value);
}

void VideoSurface::attachWindow(QQuickWindow* window)
{
    if (m_window == window) return;
    if (m_window) {
        m_window->removeEventFilter(this);
        for (const auto& observer : std::as_const(m_windowObservers))
            disconnect(observer);
        m_windowObservers.clear();
        m_displayTimer.stop();
        cancelArrowKeys();
        m_holdTimer.stop();
        // Leaving the window in the middle of a press-and-hold must not leave the movie fast.
        if (m_player && m_player->originalSpeed()) m_player->endBoost();
    }
    m_window = window;
    if (!window) return;
    window->installEventFilter(this);
    m_windowObservers = {
        connect(window, &QWindow::screenChanged, this, &VideoSurface::updateDisplay),
        connect(window, &QWindow::activeChanged, this,
                [this] {
                    if (m_window && !m_window->isActive()) cancelArrowKeys();
                }),
    };
    m_lastHeadroom = -1.0;
    m_displayTimer.start();
    updateDisplay();
}

bool VideoSurface::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_window &&
        (event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease))
        return handleKey(static_cast<QKeyEvent*>(event));
    return QQuickItem::eventFilter(watched, event);
}

bool VideoSurface::keysPassOn(const QKeyEvent* event) const
{
    constexpr Qt::KeyboardModifiers commandKeys =
        Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
    if (event->modifiers() & commandKeys) return true;
    if (m_keysBlocked || !m_window || !isVisible()) return true;
    // Typing in a field, or steering a focused control with its own keys, is not ours to take.
    const QQuickItem* focus = m_window->activeFocusItem();
    return focus && (focus->inherits("QQuickTextInput") || focus->inherits("QQuickTextEdit") ||
                     focus->inherits("QQuickControl"));
}

bool VideoSurface::handleKey(QKeyEvent* event)
{
    const std::optional<quint16> code = keyCode(event->key());
    if (!code || !m_player || keysPassOn(event)) return false;
    const bool press = event->type() == QEvent::KeyPress;

    switch (*code) {
    case ArrowKeyPlayback::kReturn:
    case ArrowKeyPlayback::kKeypadEnter:
        if (press && !event->isAutoRepeat()) toggleFullScreen();
        return true;
    case ArrowKeyPlayback::kUpArrow:
    case ArrowKeyPlayback::kDownArrow:
        if (!press) return false;
        m_player->adjustVolume(*code == ArrowKeyPlayback::kUpArrow
                                   ? ArrowKeyPlayback::kVolumeStep
                                   : -ArrowKeyPlayback::kVolumeStep);
        return true;
    default:
        // The hold logic measures time itself, so auto-repeats (presses and their releases) are
        // swallowed without effect.
        if (event->isAutoRepeat()) return true;
        if (press) return arrowKeys()->keyDown(*code, uptime());
        return arrowKeys()->keyUp(*code, uptime());
    }
}

void VideoSurface::hoverEnterEvent(QHoverEvent* event)
{
    emit pointerActivity();
    event->ignore();
}

void VideoSurface::hoverMoveEvent(QHoverEvent* event)
{
    // Hover events repeat at a still pointer whenever the scene changes (every video frame).
    if (event->position() != event->oldPosF()) emit pointerActivity();
    event->ignore();
}

void VideoSurface::mousePressEvent(QMouseEvent* event)
{
    emit pointerActivity();
    if (event->button() == Qt::RightButton) {
        emit contextMenuRequested(event->position());
        event->accept();
        return;
    }
    if (event->button() != Qt::LeftButton) {
        event->ignore();
        return;
    }
    m_holdTimer.start();
    event->accept();
}

void VideoSurface::mouseMoveEvent(QMouseEvent* event)
{
    emit pointerActivity();
    event->accept();
}

void VideoSurface::mouseReleaseEvent(QMouseEvent* event)
{
    endHold();
    event->accept();
}

void VideoSurface::mouseDoubleClickEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) return;
    endHold();
    toggleFullScreen();
    event->accept();
}

void VideoSurface::mouseUngrabEvent()
{
    endHold();
}

void VideoSurface::endHold()
{
    m_holdTimer.stop();
    if (m_player && m_player->originalSpeed()) m_player->endBoost();
}

} // namespace quorvane
