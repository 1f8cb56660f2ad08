// Starts the player: one settings store, one Player, one window. A file named on the command line
// is opened at once.
#include "DesktopIntegration.h"
#include "Player.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QSettings>
#include <QUrl>
#include <QtWebEngineQuick/qtwebenginequickglobal.h>

int main(int argc, char* argv[])
{
    QCoreApplication::setOrganizationName(QStringLiteral("Quorvane"));
    QCoreApplication::setApplicationName(QStringLiteral("Quorvane Player"));
    // The web backend's view needs its engine set up before the application object exists.
    QtWebEngineQuick::initialize();
    QGuiApplication app(argc, argv);
    // A second launch hands its files to the running player and ends here.
    const QList<QUrl> files = quorvane::SingleInstance::filesFromArguments(app.arguments().mid(1));
    quorvane::SingleInstance instance;
    if (!instance.start(files)) return 0;

    QSettings settings;
    quorvane::Player player(&settings);

    QQmlApplicationEngine engine;
    engine.setInitialProperties({{QStringLiteral("player"), QVariant::fromValue(&player)}});
    QObject::connect(
        &engine, &QQmlApplicationEngine::objectCreationFailed, &app,
        [] { QCoreApplication::exit(1); }, Qt::QueuedConnection);
    engine.load(QUrl(QStringLiteral("qrc:/Quorvane/Main.qml")));
    if (engine.rootObjects().isEmpty()) return 1;

    quorvane::DesktopIntegration desktop(player, &instance);
    quorvane::openHandedFiles(player, files);

    // Closing the window saves the position too; quitting by other means must not lose it.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &player,
                     &quorvane::Player::savePosition);
    return app.exec();
}
