// Starts the player: one settings store, one Player, the player window. Files named on the
// command line are opened at once.
#include "Player.h"
#include "PlayerShell.h"

#include <QGuiApplication>
#include <QSettings>

int main(int argc, char* argv[])
{
    QCoreApplication::setOrganizationName(QStringLiteral("Quorvane"));
    QCoreApplication::setApplicationName(QStringLiteral("Quorvane Player"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QV_VERSION));
    quorvane::PlayerShell::prepareApplication();
    QGuiApplication app(argc, argv);
    QGuiApplication::setDesktopFileName(QStringLiteral("quorvane-player"));

    QSettings settings;
    quorvane::Player player(&settings);
    quorvane::PlayerShell shell(player);
    if (!shell.load()) return 1;

    // Files handed over on the command line: one is opened, several fill the playlist. (A
    // second instance hands its files to the first one here too.)
    shell.openFiles(app.arguments().mid(1));

    // Closing the window saves the position too; quitting by other means must not lose it.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &player,
                     &quorvane::Player::savePosition);
    return app.exec();
}
