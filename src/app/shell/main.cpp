// Starts the player: one settings store, one Player, the player window, and the desktop around it
// (single instance, MPRIS, screen-saver inhibition). Files named on the command line are opened at
// once; a second launch hands them to the running player instead.
#include "DesktopIntegration.h"
#include "Player.h"
#include "PlayerShell.h"

#include <QGuiApplication>
#include <QIcon>
#include <QSettings>

int main(int argc, char* argv[])
{
    QCoreApplication::setOrganizationName(QStringLiteral("Quorvane"));
    QCoreApplication::setApplicationName(QStringLiteral("Quorvane Player"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QV_VERSION));
    quorvane::PlayerShell::prepareApplication();
    QGuiApplication app(argc, argv);
    QGuiApplication::setDesktopFileName(QStringLiteral("quorvane-player"));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/quorvane-player.svg")));

    // A second launch hands its files to the running player and ends here.
    const QList<QUrl> files = quorvane::SingleInstance::filesFromArguments(app.arguments().mid(1));
    quorvane::SingleInstance instance;
    if (!instance.start(files)) return 0;

    QSettings settings;
    quorvane::Player player(&settings);
    quorvane::PlayerShell shell(player);
    if (!shell.load()) return 1;

    quorvane::DesktopIntegration desktop(player, &instance);
    // One file is opened, several fill the playlist with the first one playing.
    quorvane::openHandedFiles(player, files);

    // Closing the window saves the position too; quitting by other means must not lose it.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &player,
                     &quorvane::Player::savePosition);
    return app.exec();
}
