#pragma once
// What the bus tests share: a real Player (router, GStreamer) over settings in a temporary folder,
// copies of generated media in folders of their own (each folder is a playlist), and a client on
// its own bus connection. Calls go out with BlockWithGui because the service answering them lives
// on this thread.
#include "DiagnosticLog.h"
#include "Player.h"
#include "TranslationCatalog.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

namespace quorvane::testing {

struct PlayerUnderTest {
    QTemporaryDir dir;
    QSettings settings{dir.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat};
    DiagnosticLog log;
    Player player{&settings};

    PlayerUnderTest()
    {
        setPlayerLanguageSettings(&settings);
        player.setDiagnosticLog(&log);
    }
    ~PlayerUnderTest() { setPlayerLanguageSettings(nullptr); }

    // A copy of the generated fixture `name` at `relativePath` in the temporary folder.
    QUrl media(const QString& name, const QString& relativePath)
    {
        const QString target = dir.filePath(relativePath);
        QDir().mkpath(QFileInfo(target).absolutePath());
        if (!QFileInfo::exists(target))
            QFile::copy(QStringLiteral(QV_DESKTOP_FIXTURE_DIR "/") + name, target);
        return QUrl::fromLocalFile(QFileInfo(target).canonicalFilePath());
    }

    bool playing() const { return player.loaded() && !player.paused(); }
};

inline QVariantMap toMap(const QVariant& value)
{
    if (value.canConvert<QDBusArgument>())
        return qdbus_cast<QVariantMap>(value.value<QDBusArgument>());
    return value.toMap();
}

class BusClient : public QObject {
    Q_OBJECT

public:
    QDBusConnection bus =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("test-client"));
    QString service;
    QString path = QStringLiteral("/org/mpris/MediaPlayer2");
    QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
    QList<QVariantMap> playerChanges; // PropertiesChanged of the Player interface, values unpacked
    QList<qlonglong> seeks;

    void listen()
    {
        bus.connect(service, path, QStringLiteral("org.freedesktop.DBus.Properties"),
                    QStringLiteral("PropertiesChanged"), this,
                    SLOT(propertiesChanged(QString, QVariantMap, QStringList)));
        bus.connect(service, path, playerInterface, QStringLiteral("Seeked"), this,
                    SLOT(seeked(qlonglong)));
    }

    QDBusMessage call(const QString& interface, const QString& method,
                      const QVariantList& args = {})
    {
        QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
        message.setArguments(args);
        return bus.call(message, QDBus::BlockWithGui, 10000);
    }
    QDBusMessage play(const QString& method, const QVariantList& args = {})
    {
        return call(playerInterface, method, args);
    }
    QVariant get(const QString& name, const QString& interface = {})
    {
        const QDBusMessage reply =
            call(QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
                 {interface.isEmpty() ? playerInterface : interface, name});
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return {};
        return reply.arguments().first().value<QDBusVariant>().variant();
    }
    QDBusMessage set(const QString& name, const QVariant& value)
    {
        return call(QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"),
                    {playerInterface, name, QVariant::fromValue(QDBusVariant(value))});
    }
    QString status() { return get(QStringLiteral("PlaybackStatus")).toString(); }
    QVariantMap metadata() { return toMap(get(QStringLiteral("Metadata"))); }
    // The most recent value a PropertiesChanged carried for `name`.
    QVariant lastChange(const QString& name) const
    {
        for (auto it = playerChanges.crbegin(); it != playerChanges.crend(); ++it)
            if (it->contains(name)) return it->value(name);
        return {};
    }

public slots:
    void propertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList&)
    {
        if (interface != playerInterface) return;
        QVariantMap unpacked;
        for (auto it = changed.cbegin(); it != changed.cend(); ++it)
            unpacked.insert(it.key(),
                            it.key() == QLatin1String("Metadata") ? toMap(it.value()) : it.value());
        playerChanges.append(unpacked);
    }
    void seeked(qlonglong position) { seeks.append(position); }
};

} // namespace quorvane::testing
