#pragma once
// One running player per user session. The first launch listens on a local socket; a later launch
// connects, hands over the files it was given and exits, and the first one opens them and comes to
// the front. A socket file left behind by a crashed player is removed, so it never blocks a start.
#include <QList>
#include <QLocalServer>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>

namespace quorvane {

class SingleInstance : public QObject {
    Q_OBJECT

public:
    // `serverName` is a socket path or a name Qt places in its temporary folder; the default is
    // per user (the runtime folder when there is one) and per display.
    explicit SingleInstance(QString serverName = defaultServerName(), QObject* parent = nullptr);

    static QString defaultServerName();
    // Command-line arguments as file URLs: absolute paths, file URLs kept, anything else dropped.
    static QList<QUrl> filesFromArguments(const QStringList& arguments);

    // Becomes the running instance and returns true, or hands `files` to the one already running
    // and returns false (the caller then exits). Returns true as well when the running instance
    // cannot be reached and no server can be set up: a player that runs alone beats no player.
    bool start(const QList<QUrl>& files);
    bool isListening() const { return m_server.isListening(); }
    QString serverName() const { return m_serverName; }

signals:
    // Another launch handed over these files (possibly none: it was started without files).
    void activated(const QList<QUrl>& files);

private:
    bool handOver(const QList<QUrl>& files);
    void acceptConnection();

    QString m_serverName;
    QLocalServer m_server;
};

} // namespace quorvane
