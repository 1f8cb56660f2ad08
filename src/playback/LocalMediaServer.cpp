#include "LocalMediaServer.h"

#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QPointer>
#include <QStringDecoder>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>
#include <QUuid>

#include <algorithm>
#include <map>

namespace quorvane {

Q_LOGGING_CATEGORY(lcLoopback, "quorvane.playback.loopback")

namespace {

// Digits only, with an optional leading plus sign; nothing on overflow or any other character.
std::optional<quint64> parseUnsigned(QStringView text)
{
    if (text.startsWith(QLatin1Char('+'))) text = text.mid(1);
    if (text.isEmpty()) return std::nullopt;
    quint64 value = 0;
    for (QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9')) return std::nullopt;
        const quint64 digit = quint64(c.unicode() - '0');
        if (value > (std::numeric_limits<quint64>::max() - digit) / 10) return std::nullopt;
        value = value * 10 + digit;
    }
    return value;
}

QByteArray number(quint64 value)
{
    return QByteArray::number(value);
}

} // namespace

std::optional<ByteRange> parseByteRange(const std::optional<QString>& header, quint64 length)
{
    if (!header) return ByteRange{0, length};
    const QString& value = *header;
    if (!value.startsWith(QLatin1String("bytes=")) || value.contains(QLatin1Char(',')) ||
        length == 0)
        return std::nullopt;
    const QStringList pieces = value.mid(6).split(QLatin1Char('-'), Qt::KeepEmptyParts);
    if (pieces.size() != 2) return std::nullopt;
    const QString& first = pieces[0];
    const QString& second = pieces[1];
    if (!first.isEmpty()) {
        const auto a = parseUnsigned(first);
        if (!a || *a >= length) return std::nullopt;
        quint64 end = length - 1;
        if (!second.isEmpty()) {
            const auto b = parseUnsigned(second);
            if (!b || *b < *a) return std::nullopt;
            end = std::min(*b, length - 1);
        }
        return ByteRange{*a, end - *a + 1};
    }
    if (second.isEmpty()) return std::nullopt;
    const auto n = parseUnsigned(second);
    if (!n || *n == 0) return std::nullopt;
    const quint64 count = std::min(*n, length);
    return ByteRange{length - count, count};
}

// Lives on the server thread and owns the listener and every connection there.
class LoopbackWorker : public QObject {
public:
    LoopbackWorker(const QUrl& fileUrl, const QByteArray& html, quint64 length,
                   const QString& token)
        : m_path(fileUrl.toLocalFile()), m_html(html), m_length(length),
          m_pagePath(QStringLiteral("/%1/index.html").arg(token)),
          m_mediaPath(QStringLiteral("/%1/media").arg(token))
    {
        const QString suffix = QFileInfo(m_path).suffix().toLower();
        m_contentType = (suffix == QLatin1String("ogg") || suffix == QLatin1String("oga"))
                            ? QByteArrayLiteral("audio/ogg")
                            : QByteArrayLiteral("video/webm");
    }

    ~LoopbackWorker() override
    {
        m_stopped = true;
        for (auto& [id, peer] : m_peers)
            peer->socket->abort();
    }

    void start(const LocalMediaServer::Completion& completion, const QString& token)
    {
        if (m_stopped || m_listener) {
            completion(LocalMediaServerError::Cancelled);
            return;
        }
        m_listener = new QTcpServer(this);
        connect(m_listener, &QTcpServer::newConnection, this, &LoopbackWorker::accept);
        if (!m_listener->listen(QHostAddress::LocalHost, 0)) {
            qCWarning(lcLoopback) << "cannot listen on loopback:" << m_listener->errorString();
            completion(LocalMediaServerError::CannotListen);
            return;
        }
        completion(QUrl(QStringLiteral("http://127.0.0.1:%1/%2/index.html")
                            .arg(m_listener->serverPort())
                            .arg(token)));
    }

    void stop()
    {
        m_stopped = true;
        if (m_listener) {
            m_listener->close();
            delete m_listener;
            m_listener = nullptr;
        }
        auto peers = std::move(m_peers);
        m_peers.clear();
        for (auto& [id, peer] : peers)
            dispose(*peer);
    }

private:
    enum class Phase { Receiving, OneShot, Streaming };

    struct Peer {
        quint64 id = 0;
        QTcpSocket* socket = nullptr;
        QByteArray request;
        std::unique_ptr<QFile> file;
        quint64 remaining = 0;
        Phase phase = Phase::Receiving;
    };

    Peer* find(quint64 id)
    {
        const auto it = m_peers.find(id);
        return it == m_peers.end() ? nullptr : it->second.get();
    }

    static void dispose(Peer& peer)
    {
        // Whatever the client sent but we never read is dropped first, so that closing sends
        // an orderly end of stream after the bytes already handed to the system.
        peer.socket->disconnect();
        peer.socket->readAll();
        peer.socket->abort();
        peer.socket->deleteLater();
    }

    void remove(quint64 id)
    {
        const auto it = m_peers.find(id);
        if (it == m_peers.end()) return;
        std::unique_ptr<Peer> peer = std::move(it->second);
        m_peers.erase(it);
        dispose(*peer);
    }

    void accept()
    {
        while (m_listener && m_listener->hasPendingConnections()) {
            QTcpSocket* socket = m_listener->nextPendingConnection();
            if (m_stopped || m_peers.size() >= size_t(LocalMediaServer::kMaxConnections)) {
                socket->abort();
                socket->deleteLater();
                continue;
            }
            // Owned by the worker, not the listener, so closing the listener keeps them valid.
            socket->setParent(this);
            // What a client sends beyond one receive stays in the system's buffers, not ours.
            socket->setReadBufferSize(LocalMediaServer::kReceiveBytes);
            auto peer = std::make_unique<Peer>();
            const quint64 id = ++m_nextID;
            peer->id = id;
            peer->socket = socket;
            m_peers.emplace(id, std::move(peer));
            connect(socket, &QTcpSocket::readyRead, this, [this, id] { receive(id); });
            connect(socket, &QTcpSocket::bytesWritten, this, [this, id] { written(id); });
            connect(socket, &QTcpSocket::errorOccurred, this, [this, id] { remove(id); });
            QTimer::singleShot(LocalMediaServer::kIdleCheckMs, this, [this, id] {
                Peer* peer = find(id);
                if (peer && (!peer->request.isEmpty() || !peer->file)) remove(id);
            });
            receive(id);
        }
    }

    void receive(quint64 id)
    {
        while (Peer* peer = find(id)) {
            if (m_stopped) return;
            if (peer->phase != Phase::Receiving) {
                peer->socket->readAll(); // the one request is answered; later bytes mean nothing
                return;
            }
            if (peer->socket->bytesAvailable() <= 0) return;
            peer->request.append(peer->socket->read(LocalMediaServer::kReceiveBytes));
            if (peer->request.size() > LocalMediaServer::kMaxRequestBytes) {
                remove(id);
                return;
            }
            const qsizetype end = peer->request.indexOf("\r\n\r\n");
            if (end < 0) continue;
            const QByteArray head = peer->request.left(end);
            handle(*peer, head);
            if ((peer = find(id))) peer->request.clear();
            return;
        }
    }

    void handle(Peer& peer, const QByteArray& headBytes)
    {
        const quint64 id = peer.id;
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless |
                                                         QStringDecoder::Flag::ConvertInitialBom);
        const QString head = decoder(headBytes);
        if (decoder.hasError()) return remove(id);

        const QStringList lines = head.split(QStringLiteral("\r\n"));
        const QStringList parts = lines.first().split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (parts.size() != 3) return remove(id);
        const QString& method = parts[0];
        const bool isHead = method == QLatin1String("HEAD");
        if ((method != QLatin1String("GET") && !isHead) || parts[2] != QLatin1String("HTTP/1.1"))
            return remove(id);

        std::optional<QString> range;
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const qsizetype colon = lines[i].indexOf(QLatin1Char(':'));
            if (colon < 0) return remove(id);
            if (lines[i].left(colon).toLower() != QLatin1String("range")) continue;
            if (range) return remove(id);
            range = lines[i].mid(colon + 1).trimmed();
        }

        const QString& path = parts[1];
        if (path == m_pagePath) {
            QByteArray response = "HTTP/1.1 200 OK\r\n"
                                  "Content-Type: text/html; charset=utf-8\r\n"
                                  "Content-Length: " +
                                  number(quint64(m_html.size())) +
                                  "\r\n"
                                  "Cache-Control: no-store\r\n"
                                  "Connection: close\r\n\r\n";
            if (!isHead) response += m_html;
            sendOnce(peer, response);
        } else if (path == m_mediaPath) {
            sendMedia(peer, range, isHead);
        } else {
            sendOnce(peer, "HTTP/1.1 404 Not Found\r\n"
                           "Content-Length: 0\r\n"
                           "Connection: close\r\n\r\n");
        }
    }

    void sendOnce(Peer& peer, const QByteArray& bytes)
    {
        peer.phase = Phase::OneShot;
        send(peer, bytes);
    }

    void sendMedia(Peer& peer, const std::optional<QString>& rangeHeader, bool isHead)
    {
        const std::optional<ByteRange> range = parseByteRange(rangeHeader, m_length);
        bool positioned = false;
        if (range) {
            peer.file = std::make_unique<QFile>(m_path);
            positioned = peer.file->open(QIODevice::ReadOnly | QIODevice::Unbuffered) &&
                         peer.file->seek(qint64(range->start));
        }
        if (!positioned) {
            peer.file.reset();
            sendOnce(peer, "HTTP/1.1 416 Range Not Satisfiable\r\n"
                           "Content-Range: bytes */" +
                               number(m_length) +
                               "\r\n"
                               "Content-Length: 0\r\n"
                               "Connection: close\r\n\r\n");
            return;
        }
        peer.remaining = isHead ? 0 : range->count;
        QByteArray head = "HTTP/1.1 " + QByteArray(rangeHeader ? "206 Partial Content" : "200 OK") +
                          "\r\nContent-Type: " + m_contentType +
                          "\r\nContent-Length: " + number(range->count) +
                          "\r\nAccept-Ranges: bytes\r\n"
                          "Cache-Control: no-store\r\n"
                          "Connection: close\r\n";
        if (rangeHeader) {
            head += "Content-Range: bytes " + number(range->start) + '-' +
                    number(range->start + range->count - 1) + '/' + number(m_length) + "\r\n";
        }
        head += "\r\n";
        peer.phase = Phase::Streaming;
        send(peer, head);
    }

    void send(Peer& peer, const QByteArray& bytes)
    {
        const quint64 id =
            peer.id; // a failing write may have removed the peer by the time it returns
        if (peer.socket->write(bytes) != bytes.size()) remove(id);
    }

    // Every part of a response is sent only once the previous one has left our buffer.
    void written(quint64 id)
    {
        Peer* peer = find(id);
        if (!peer || peer->socket->bytesToWrite() > 0) return;
        if (peer->phase == Phase::OneShot) return remove(id);
        if (peer->phase == Phase::Streaming) stream(*peer);
    }

    void stream(Peer& peer)
    {
        if (m_stopped || peer.remaining == 0) return remove(peer.id);
        const qint64 want =
            qint64(std::min<quint64>(peer.remaining, LocalMediaServer::kChunkBytes));
        const QByteArray chunk = peer.file ? peer.file->read(want) : QByteArray();
        // A file that shrank under us ends the body short.
        if (chunk.isEmpty()) return remove(peer.id);
        peer.remaining -= quint64(chunk.size());
        send(peer, chunk);
    }

    const QString m_path;
    const QByteArray m_html;
    const quint64 m_length;
    const QString m_pagePath;
    const QString m_mediaPath;
    QByteArray m_contentType;
    QTcpServer* m_listener = nullptr;
    std::map<quint64, std::unique_ptr<Peer>> m_peers;
    quint64 m_nextID = 0;
    bool m_stopped = false;
};

std::variant<std::unique_ptr<LocalMediaServer>, LocalMediaServerError>
LocalMediaServer::create(const QUrl& fileUrl, const QByteArray& html)
{
    if (!fileUrl.isLocalFile()) return LocalMediaServerError::FileDoesNotExist;
    const QFileInfo info(fileUrl.toLocalFile());
    if (!info.exists() || !info.isFile() || info.size() <= 0)
        return LocalMediaServerError::FileDoesNotExist;
    return std::unique_ptr<LocalMediaServer>(
        new LocalMediaServer(fileUrl, html, quint64(info.size())));
}

LocalMediaServer::LocalMediaServer(const QUrl& fileUrl, const QByteArray& html, quint64 length)
    : m_token(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()), m_length(length)
{
    m_thread = new QThread;
    m_thread->setObjectName(QStringLiteral("quorvane.media.loopback"));
    m_worker = new LoopbackWorker(fileUrl, html, length, m_token);
    m_worker->moveToThread(m_thread);
    QObject::connect(m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
    m_thread->start();
}

LocalMediaServer::~LocalMediaServer()
{
    stop();
    m_thread->quit();
    m_thread->wait();
    delete m_thread;
}

void LocalMediaServer::start(Completion completion)
{
    QMetaObject::invokeMethod(
        m_worker,
        [worker = m_worker, token = m_token, completion = std::move(completion)] {
            worker->start(completion, token);
        },
        Qt::QueuedConnection);
}

void LocalMediaServer::stop()
{
    QMetaObject::invokeMethod(
        m_worker, [worker = m_worker] { worker->stop(); }, Qt::QueuedConnection);
}

} // namespace quorvane
