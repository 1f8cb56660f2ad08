// Starts the player: one settings store, one Player, one window. A file named on the command line
// is opened at once.
#include "Player.h"
#include "WebMediaPlayback.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QSettings>
#include <QUrl>

int main(int argc, char* argv[])
{
    QCoreApplication::setOrganizationName(QStringLiteral("Quorvane"));
    QCoreApplication::setApplicationName(QStringLiteral("Quorvane Player"));
    // The web backend's view needs its engine set up before the application object exists.
    quorvane::WebMediaPlayback::initializeWebEngine();
    QGuiApplication app(argc, argv);

    QSettings settings;
    quorvane::Player player(&settings);

    QQmlApplicationEngine engine;
    engine.setInitialProperties({{QStringLiteral("player"), QVariant::fromValue(&player)}});
    QObject::connect(
        &engine, &QQmlApplicationEngine::objectCreationFailed, &app,
        [] { QCoreApplication::exit(1); }, Qt::QueuedConnection);
    engine.load(QUrl(QStringLiteral("qrc:/Quorvane/Main.qml")));
    if (engine.rootObjects().isEmpty()) return 1;

    const QStringList arguments = app.arguments().mid(1);
    if (!arguments.isEmpty())
        player.open(QUrl::fromLocalFile(QFileInfo(arguments.first()).absoluteFilePath()));

    // Closing the window saves the position too; quitting by other means must not lose it.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &player,
                     &quorvane::Player::savePosition);
    return app.exec();
}
