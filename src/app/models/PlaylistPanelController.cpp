#include "PlaylistPanelController.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileInfo>
#include <QScreen>

namespace quorvane {

void PlaylistPanelController::setParentWindow(QWindow* window)
{
    if (m_parent == window) return;
    m_parent = window;
    observe();
    apply();
    emit parentWindowChanged();
}

void PlaylistPanelController::setPanel(QWindow* panel)
{
    if (m_panel == panel) return;
    if (m_panel) m_panel->hide();
    m_panel = panel;
    observe();
    apply();
    emit panelChanged();
}

void PlaylistPanelController::setVisible(bool visible)
{
    if (m_visible == visible) return;
    m_visible = visible;
    apply();
    emit visibleChanged();
}

void PlaylistPanelController::observe()
{
    for (const auto& observer : std::as_const(m_observers))
        disconnect(observer);
    m_observers.clear();
    if (m_panel) {
        // The panel closed from its own title bar.
        m_observers.append(connect(m_panel, &QWindow::visibleChanged, this, [this](bool shown) {
            if (!shown) setVisible(false);
        }));
    }
    if (m_parent) {
        m_observers.append(connect(m_parent, &QWindow::visibleChanged, this, [this](bool shown) {
            if (!shown) setVisible(false);
        }));
    }
}

QRect PlaylistPanelController::placement(const QRect& parentFrame, const QSize& panelSize,
                                         const QRect& screen)
{
    QRect frame(QPoint(parentFrame.right() + 1 + kGap, parentFrame.top()),
                QSize(panelSize.width(), parentFrame.height()));
    if (screen.isValid() && frame.right() > screen.right()) {
        frame.moveRight(parentFrame.left() - 1 - kGap);
        if (frame.left() < screen.left()) frame.moveRight(screen.right());
    }
    return frame;
}

void PlaylistPanelController::apply()
{
    if (!m_panel) return;
    if (!m_visible) {
        if (m_panel->isVisible()) m_panel->hide();
        return;
    }
    if (m_parent) {
        m_panel->setTransientParent(m_parent);
        const QRect screen = m_parent->screen() ? m_parent->screen()->availableGeometry() : QRect();
        const QRect frame = placement(m_parent->frameGeometry(), m_panel->size(), screen);
        const QMargins margins = m_panel->frameMargins();
        m_panel->setGeometry(frame.marginsRemoved(margins));
    }
    m_panel->show();
    m_panel->raise();
}

void PlaylistPanelController::showInFolder(const QUrl& url)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{url.toString()} << QString();
    const QUrl folder = QUrl::fromLocalFile(QFileInfo(url.toLocalFile()).absolutePath());
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        QDesktopServices::openUrl(folder);
        return;
    }
    // Asked without waiting: a file manager that is slow to start must not freeze the window.
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 3000));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [folder](QDBusPendingCallWatcher* done) {
                         if (done->isError()) QDesktopServices::openUrl(folder);
                         done->deleteLater();
                     });
}

} // namespace quorvane
