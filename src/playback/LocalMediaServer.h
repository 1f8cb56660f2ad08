#pragma once
// A tiny HTTP/1.1 server that exists for one web playback session: it serves the playback page
// and the media file (with single byte ranges) to the embedded web view, on 127.0.0.1 with a
// system-chosen port, under a random per-server token, one request per connection.
//
// Everything the server does runs on its own thread, "quorvane.media.loopback", which owns the
// listening socket and every connection. `start` and `stop` may be called from any thread; they
// hop onto that thread. The start completion runs on the server thread: a caller that needs the
// result elsewhere carries it over itself.
#include <QByteArray>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>
#include <variant>

class QThread;

namespace quorvane {

// The platform URL error codes the server reports.
enum class LocalMediaServerError {
    Cancelled = -999,         // start on a stopped or already started server
    FileDoesNotExist = -1100, // not a file URL, not a regular file, or empty
    CannotListen = -1004,     // the loopback socket could not be bound
};

// One single byte range of a file: `count` bytes from `start`.
struct ByteRange {
    quint64 start = 0;
    quint64 count = 0;
    bool operator==(const ByteRange&) const = default;
};

// The Range header value (or its absence) against a file of `length` bytes; nothing when the
// range cannot be satisfied (which is answered with 416).
std::optional<ByteRange> parseByteRange(const std::optional<QString>& header, quint64 length);

class LoopbackWorker;

class LocalMediaServer {
public:
    using StartResult = std::variant<QUrl, LocalMediaServerError>;
    using Completion = std::function<void(const StartResult&)>;

    // Fails with FileDoesNotExist unless `fileUrl` names a regular, non-empty local file.
    static std::variant<std::unique_ptr<LocalMediaServer>, LocalMediaServerError>
    create(const QUrl& fileUrl, const QByteArray& html);

    // Stops the server and waits for its thread to end.
    ~LocalMediaServer();
    LocalMediaServer(const LocalMediaServer&) = delete;
    LocalMediaServer& operator=(const LocalMediaServer&) = delete;

    // Starts listening; `completion` gets "http://127.0.0.1:<port>/<token>/index.html" or an
    // error, exactly once, on the server thread.
    void start(Completion completion);
    // Closes the listener and every connection; the server never works again. Any thread, any
    // number of times.
    void stop();

    const QString& token() const { return m_token; }
    quint64 length() const { return m_length; }
    QThread* thread() const { return m_thread; }

    // The most connections served at once; one more is closed on arrival.
    static constexpr int kMaxConnections = 8;
    // Bytes of request head accepted before the connection is closed.
    static constexpr qsizetype kMaxRequestBytes = 16384;
    // Bytes asked for per receive.
    static constexpr qint64 kReceiveBytes = 8192;
    // Bytes read from the file and sent at once; the next chunk waits until this one is sent.
    static constexpr qint64 kChunkBytes = 65536;
    // A connection that is not streaming the file by then is dropped.
    static constexpr int kIdleCheckMs = 10000;

private:
    LocalMediaServer(const QUrl& fileUrl, const QByteArray& html, quint64 length);

    QString m_token;
    quint64 m_length = 0;
    QThread* m_thread = nullptr;
    LoopbackWorker* m_worker = nullptr;
};

} // namespace quorvane
