#include "SingleInstance.h"

#include "DesktopLog.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalSocket>
#include <QPointer>
#include <QRegularExpression>
#include <QStandardPaths>

namespace quorvane {

namespace {

// A running instance answers at once; these bound how long a start can hang on a stuck one.
constexpr int kConnectTimeoutMs = 1000;
constexpr int kWriteTimeoutMs = 3000;
// A hand-over is a short list of paths; anything larger is not from us.
constexpr qint64 kMaxMessageBytes = 4 * 1024 * 1024;

} // namespace

SingleInstance::SingleInstance(QString serverName, QObject* parent)
    : QObject(parent), m_serverName(std::move(serverName))
{
    // Only this user may connect (the socket in the runtime folder is private anyway).
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnection);
}

QString SingleInstance::defaultServerName()
{
    // One player per graphical session: a second display (another login, a virtual X server
    // running tests) gets a player of its own.
    QString display = qEnvironmentVariable("WAYLAND_DISPLAY");
    if (display.isEmpty()) display = qEnvironmentVariable("DISPLAY");
    display.remove(QRegularExpression(QStringLiteral("[^A-Za-z0-9_.-]")));
    const QString name = display.isEmpty() ? QStringLiteral("quorvane-player")
                                           : QStringLiteral("quorvane-player-") + display;

    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (!runtime.isEmpty()) return QDir(runtime).filePath(name + QStringLiteral(".socket"));
    // QLocalServer puts a bare name in the temporary folder, shared by every user: name the user.
    return name + QLatin1Char('-') + qEnvironmentVariable("USER", QStringLiteral("user"));
}

QList<QUrl> SingleInstance::filesFromArguments(const QStringList& arguments)
{
    QList<QUrl> files;
    for (const QString& argument : arguments) {
        if (argument.isEmpty() || argument.startsWith(QLatin1Char('-'))) continue;
        // A file whose name looks like a URL ("clip:1.mkv") is still a file.
        const QUrl url(argument, QUrl::StrictMode);
        if (QFileInfo::exists(argument) || url.scheme().isEmpty())
            files.append(QUrl::fromLocalFile(QFileInfo(argument).absoluteFilePath()));
        else if (url.isLocalFile())
            files.append(url);
        else
            qCInfo(lcDesktop) << "ignored an argument that is not a file:" << url.scheme();
    }
    return files;
}

bool SingleInstance::start(const QList<QUrl>& files)
{
    if (handOver(files)) return false;

    // Nobody answered: whatever socket file is there belongs to a player that is gone.
    QLocalServer::removeServer(m_serverName);
    if (m_server.listen(m_serverName)) return true;

    // Two launches racing: the other one may have just started listening.
    if (handOver(files)) return false;
    qCWarning(lcDesktop) << "cannot listen for other launches:" << m_server.errorString();
    return true;
}

bool SingleInstance::handOver(const QList<QUrl>& files)
{
    QLocalSocket socket;
    socket.connectToServer(m_serverName);
    if (!socket.waitForConnected(kConnectTimeoutMs)) return false;

    QJsonArray list;
    for (const QUrl& url : files)
        list.append(url.toString(QUrl::FullyEncoded));
    socket.write(QJsonDocument(list).toJson(QJsonDocument::Compact));
    socket.disconnectFromServer();
    if (socket.state() != QLocalSocket::UnconnectedState &&
        !socket.waitForDisconnected(kWriteTimeoutMs)) {
        qCWarning(lcDesktop) << "the running player did not take the files:"
                             << socket.errorString();
        return false;
    }
    return true;
}

void SingleInstance::acceptConnection()
{
    while (QLocalSocket* socket = m_server.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        // The message is complete when the sender disconnects.
        auto buffer = std::make_shared<QByteArray>();
        connect(socket, &QLocalSocket::readyRead, this, [socket, buffer] {
            buffer->append(socket->readAll());
            if (buffer->size() > kMaxMessageBytes) socket->abort();
        });
        QPointer<SingleInstance> self(this);
        connect(socket, &QLocalSocket::disconnected, this, [self, socket, buffer] {
            buffer->append(socket->readAll());
            if (!self || buffer->size() > kMaxMessageBytes) return;
            const QJsonDocument document = QJsonDocument::fromJson(*buffer);
            if (!document.isArray()) {
                qCWarning(lcDesktop) << "ignored a malformed hand-over from another launch";
                return;
            }
            QList<QUrl> files;
            for (const QJsonValue& value : document.array()) {
                const QUrl url(value.toString(), QUrl::StrictMode);
                if (url.isLocalFile()) files.append(url);
            }
            emit self->activated(files);
        });
    }
}

} // namespace quorvane
