#include "DesktopIntegration.h"

#include "Player.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QWindow>

namespace quorvane {

void openHandedFiles(Player& player, const QList<QUrl>& files)
{
    if (files.size() == 1)
        player.open(files.first());
    else if (files.size() > 1)
        player.addFiles(true, files);
}

void raiseWindows()
{
    for (QWindow* window : QGuiApplication::topLevelWindows()) {
        if (!window->isVisible()) continue; // a hidden dialog stays hidden
        if (window->windowStates() & Qt::WindowMinimized)
            window->setWindowStates(window->windowStates() & ~Qt::WindowMinimized);
        window->raise();
        window->requestActivate();
    }
}

DesktopIntegration::DesktopIntegration(Player& player, SingleInstance* instance,
                                       QDBusConnection bus, QObject* parent)
    : QObject(parent), m_mpris(player, bus), m_inhibitor(player, bus)
{
    connect(&m_mpris, &MprisService::raiseRequested, this, &raiseWindows);
    if (instance) {
        connect(instance, &SingleInstance::activated, this, [&player](const QList<QUrl>& files) {
            openHandedFiles(player, files);
            raiseWindows();
        });
    }
    // Closing the window ends playback as far as the desktop is concerned.
    if (auto* app = QCoreApplication::instance())
        connect(app, &QCoreApplication::aboutToQuit, this, [this] { m_inhibitor.release(); });
}

} // namespace quorvane
