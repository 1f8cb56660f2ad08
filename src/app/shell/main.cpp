// Starts the player: one settings store, one Player, one window. A file named on the command line
// is opened at once; --settings opens the settings window as well.
#include "AppSettings.h"
#include "Player.h"
#include "UpdateNotice.h"

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

    QSettings settings;
    quorvane::Player player(&settings);
    quorvane::UpdateNotice updateNotice(&settings);
    // No updater here: on Linux the distribution's packages update the program.
    quorvane::AppSettings appSettings(&player, &updateNotice);

    QStringList arguments = app.arguments().mid(1);
    const bool showSettings = arguments.removeAll(QStringLiteral("--settings")) > 0;

    QQmlApplicationEngine engine;
    // Where the modules below "Quorvane" (Quorvane.Settings) are found.
    engine.addImportPath(QStringLiteral("qrc:/"));
    engine.setInitialProperties({{QStringLiteral("player"), QVariant::fromValue(&player)},
                                 {QStringLiteral("appSettings"), QVariant::fromValue(&appSettings)},
                                 {QStringLiteral("showingSettings"), showSettings}});
    QObject::connect(
        &engine, &QQmlApplicationEngine::objectCreationFailed, &app,
        [] { QCoreApplication::exit(1); }, Qt::QueuedConnection);
    engine.load(QUrl(QStringLiteral("qrc:/Quorvane/Main.qml")));
    if (engine.rootObjects().isEmpty()) return 1;

    if (!arguments.isEmpty())
        player.open(QUrl::fromLocalFile(QFileInfo(arguments.first()).absoluteFilePath()));

    // Closing the window saves the position too; quitting by other means must not lose it.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &player,
                     &quorvane::Player::savePosition);
    return app.exec();
}
