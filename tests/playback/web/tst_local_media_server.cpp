// The loopback server over real sockets: what reaches the wire for good and hostile requests, the
// connection cap, a file that shrinks, concurrency, descriptor hygiene, and stopping.
#include "LocalMediaServer.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <atomic>
#include <filesystem>
#include <future>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace quorvane;

namespace {

// Plain blocking sockets, so the tests see exactly the bytes on the wire and need no event loop.
struct Raw {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    bool connected = false;
    explicit Raw(quint16 port, int receiveBuffer = 0)
    {
        if (receiveBuffer > 0) ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(int));
        const timeval timeout{30, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
        connected = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    ~Raw() { ::close(fd); }
    void send(const QByteArray& bytes)
    {
        ::send(fd, bytes.data(), size_t(bytes.size()), MSG_NOSIGNAL);
    }
    // Empty at the end of the stream, on a reset or on the time-out.
    QByteArray receive()
    {
        QByteArray buffer(65536, Qt::Uninitialized);
        buffer.resize(std::max<ssize_t>(::recv(fd, buffer.data(), size_t(buffer.size()), 0), 0));
        return buffer;
    }
};

struct Reply {
    QByteArray head, body; // head ends with the blank line; both empty when nothing was answered
};

// `halfClose`: the client says it will send nothing more.
Reply exchange(quint16 port, const QByteArray& request, bool halfClose = false)
{
    Raw connection(port);
    connection.send(request);
    if (halfClose) ::shutdown(connection.fd, SHUT_WR);
    QByteArray all;
    for (QByteArray piece = connection.receive(); !piece.isEmpty(); piece = connection.receive())
        all += piece;
    const qsizetype end = all.indexOf("\r\n\r\n");
    return end < 0 ? Reply{all, {}} : Reply{all.left(end + 4), all.mid(end + 4)};
}

QByteArray pattern(qsizetype size) // size: a multiple of four
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator(7).fillRange(reinterpret_cast<quint32*>(bytes.data()), size / 4);
    return bytes;
}

const QByteArray kPage = QByteArrayLiteral("<!doctype html><p>page</p>");

LocalMediaServer::StartResult startAndWait(LocalMediaServer& server)
{
    auto promise = std::make_shared<std::promise<LocalMediaServer::StartResult>>();
    auto future = promise->get_future();
    server.start([promise](const auto& result) { promise->set_value(result); });
    EXPECT_EQ(future.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    return future.get();
}

class LocalMediaServerTest : public ::testing::Test {
protected:
    QString write(const QString& name, const QByteArray& bytes)
    {
        QFile file(m_dir.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
        return file.fileName();
    }

    void serve(const QString& name, const QByteArray& content)
    {
        auto made = LocalMediaServer::create(QUrl::fromLocalFile(write(name, content)), kPage);
        m_server = std::move(std::get<std::unique_ptr<LocalMediaServer>>(made));
        m_content = content;
        const QUrl url = std::get<QUrl>(startAndWait(*m_server));
        m_port = quint16(url.port());
        m_token = m_server->token().toLatin1();
        EXPECT_EQ(url.path(), "/" + m_token + "/index.html");
    }

    QByteArray get(const QByteArray& path, const QByteArray& headers = {}) const
    {
        return "GET /" + m_token + path + " HTTP/1.1\r\n" + headers + "\r\n";
    }

    QTemporaryDir m_dir;
    std::unique_ptr<LocalMediaServer> m_server;
    QByteArray m_content, m_token;
    quint16 m_port = 0;
};

} // namespace

TEST(ByteRangeTest, FormsAgainstAThousandBytes)
{
    const std::pair<const char*, std::optional<ByteRange>> cases[] = {
        {"bytes=0-", ByteRange{0, 1000}},
        {"bytes=0-0", ByteRange{0, 1}},
        {"bytes=999-", ByteRange{999, 1}},
        {"bytes=990-5000", ByteRange{990, 10}},
        {"bytes=-200", ByteRange{800, 200}},
        {"bytes=-5000", ByteRange{0, 1000}},
        {"bytes=+5-+6", ByteRange{5, 2}},
        {"bytes=500-100", std::nullopt},
        {"bytes=1000-", std::nullopt},
        {"bytes=0-1,5-6", std::nullopt},
        {"bytes=-0", std::nullopt},
        {"items=0-1", std::nullopt},
        {"bytes = 0-1", std::nullopt},
        {"Bytes=0-1", std::nullopt},
        {"bytes= 0-1", std::nullopt},
        {"bytes=0x1-", std::nullopt},
        {"bytes=18446744073709551616-", std::nullopt},
        {"bytes=0-18446744073709551615", ByteRange{0, 1000}},
    };
    for (const auto& [header, expected] : cases)
        EXPECT_EQ(parseByteRange(QString::fromLatin1(header), 1000), expected) << header;
    EXPECT_EQ(parseByteRange(std::nullopt, 1000), (ByteRange{0, 1000}));
    EXPECT_EQ(parseByteRange(QStringLiteral("bytes=0-"), 0), std::nullopt);
}

TEST_F(LocalMediaServerTest, AnswersExactlyOrClosesWithoutAnswering)
{
    serve(QStringLiteral("clip.webm"), pattern(1000));
    const auto media = [](qsizetype length, const QByteArray& range = {}) {
        return QByteArray(range.isEmpty() ? "HTTP/1.1 200 OK\r\n"
                                          : "HTTP/1.1 206 Partial Content\r\n") +
               "Content-Type: video/webm\r\nContent-Length: " + QByteArray::number(length) +
               "\r\nAccept-Ranges: bytes\r\nCache-Control: no-store\r\nConnection: close\r\n" +
               (range.isEmpty() ? QByteArray() : "Content-Range: bytes " + range + "\r\n") + "\r\n";
    };
    const QByteArray page = "HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\n"
                            "Content-Length: " +
                            QByteArray::number(kPage.size()) +
                            "\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n";
    const QByteArray notFound =
        "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    const QByteArray path = "/" + m_token + "/media";
    const QByteArray& c = m_content;
    struct Case {
        const char* name;
        QByteArray request, head, body; // head and body empty: closed without an answer
    };
    // The range grammar is covered above; these check what reaches the wire.
    const Case cases[] = {
        {"whole file", get("/media"), media(1000), c},
        {"suffix", get("/media", "RANGE: bytes=-200\r\n"), media(200, "800-999/1000"),
         c.right(200)},
        {"clamped", get("/media", "range:  bytes=990-5000 \r\nX-Other: 1\r\n"),
         media(10, "990-999/1000"), c.right(10)},
        {"head media",
         "HEAD " + path + " HTTP/1.1\r\nRange: bytes=0-9\r\n\r\n",
         media(10, "0-9/1000"),
         {}},
        {"page", get("/index.html"), page, kPage},
        {"wrong token", "GET /wrong-token/media HTTP/1.1\r\n\r\n", notFound, {}},
        {"query", get("/media?x=1"), notFound, {}},
        {"lower-case token", "GET /" + m_token.toLower() + "/media HTTP/1.1\r\n\r\n", notFound, {}},
        {"backwards",
         get("/media", "Range: bytes=500-100\r\n"),
         "HTTP/1.1 416 Range Not Satisfiable\r\nContent-Range: bytes */1000\r\n"
         "Content-Length: 0\r\nConnection: close\r\n\r\n",
         {}},
        {"utf-8 header", get("/media", "X-Name: \xe6\x97\xa5\r\nRange: bytes=1-2\r\n"),
         media(2, "1-2/1000"), c.mid(1, 2)},
        {"body ignored", get("/media", "Range: bytes=1-2\r\n") + "GET / HTTP/1.1\r\n\r\n",
         media(2, "1-2/1000"), c.mid(1, 2)},
        {"post", "POST " + path + " HTTP/1.1\r\n\r\n", {}, {}},
        {"http/1.0", "GET " + path + " HTTP/1.0\r\n\r\n", {}, {}},
        {"no version", "GET " + path + "\r\n\r\n", {}, {}},
        {"no colon", get("/media", "No colon here\r\n"), {}, {}},
        {"repeated range", get("/media", "Range: bytes=0-1\r\nrange: bytes=2-3\r\n"), {}, {}},
        {"invalid utf-8", get("/media", "X-Name: \xff\xfe\r\n"), {}, {}},
        {"overlong utf-8", get("/media", "X-Overlong: \xc0\xaf\r\n"), {}, {}},
        {"oversized head", "GET " + path + " HTTP/1.1\r\nX-Pad: " + QByteArray(16384, 'a'), {}, {}},
        {"gives up before the blank line", "GET " + path + " HTTP/1.1\r\n", {}, {}},
    };
    for (const Case& k : cases) {
        const Reply reply = exchange(m_port, k.request, k.request.endsWith("HTTP/1.1\r\n"));
        EXPECT_EQ(reply.head, k.head) << k.name;
        EXPECT_EQ(reply.body, k.body) << k.name;
    }
    // Ogg is served as audio, whatever the case of its suffix.
    serve(QStringLiteral("b.OGA"), pattern(12));
    EXPECT_TRUE(exchange(m_port, get("/media")).head.contains("Content-Type: audio/ogg\r\n"));
}

TEST_F(LocalMediaServerTest, RefusesTheNinthConnectionEndsAStreamShortWhenTheFileShrinksAndStops)
{
    serve(QStringLiteral("clip.webm"), pattern(16 * 1024 * 1024));
    // Eight held: one streaming the file through a small window, seven whose head never completes.
    Raw streaming(m_port, 64 * 1024);
    streaming.send(get("/media"));
    QByteArray received = streaming.receive();
    std::vector<std::unique_ptr<Raw>> stalled;
    for (int i = 1; i < LocalMediaServer::kMaxConnections; ++i) {
        stalled.push_back(std::make_unique<Raw>(m_port));
        stalled.back()->send("GET /");
    }
    QThread::msleep(300);
    QDeadlineTimer refusedWithin(3000); // closed on arrival, not left waiting in the backlog
    EXPECT_TRUE(exchange(m_port, get("/media")).head.isEmpty());
    EXPECT_FALSE(refusedWithin.hasExpired());
    // The stream goes on past the refusal; then the file shrinks under it. How much was already
    // on its way depends on the kernel's buffers; what matters is that the server closes
    // promptly, short of the promised length, without padding or garbage.
    while (received.size() < 2 * 1024 * 1024)
        received += streaming.receive();
    ASSERT_TRUE(QFile::resize(m_dir.filePath(QStringLiteral("clip.webm")), 1024 * 1024));
    QDeadlineTimer closedWithin(20000);
    for (QByteArray piece = streaming.receive(); !piece.isEmpty(); piece = streaming.receive())
        received += piece;
    EXPECT_FALSE(closedWithin.hasExpired());
    const QByteArray body = received.mid(received.indexOf("\r\n\r\n") + 4);
    EXPECT_TRUE(received.contains("Content-Length: 16777216\r\n"));
    EXPECT_LT(body.size(), m_content.size());
    EXPECT_TRUE(body == m_content.left(body.size()));

    // Stopped from another thread, and again: the port closes and the server never starts again.
    EXPECT_EQ(std::get<LocalMediaServerError>(startAndWait(*m_server)),
              LocalMediaServerError::Cancelled); // while started
    std::thread(&LocalMediaServer::stop, m_server.get()).join();
    m_server->stop();
    QDeadlineTimer deadline(10000);
    while (Raw(m_port).connected && !deadline.hasExpired())
        QThread::msleep(20);
    EXPECT_FALSE(Raw(m_port).connected);
    EXPECT_EQ(std::get<LocalMediaServerError>(startAndWait(*m_server)),
              LocalMediaServerError::Cancelled);
}

TEST_F(LocalMediaServerTest, EightStreamingClientsGetEveryByteAmongHostileOnesAndNoDescriptorLeaks)
{
    serve(QStringLiteral("big.webm"), pattern(6 * 1024 * 1024));
    exchange(m_port, get("/nothing")); // warm up whatever the first request allocates
    const auto openDescriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = openDescriptors();
    // Hostile clients that hang up mid-request or ask for the file and never read it.
    std::atomic_bool done = false;
    std::vector<std::jthread> hostile;
    for (int h = 0; h < 3; ++h)
        hostile.emplace_back([&, h] {
            while (!done) {
                Raw(m_port).send(h == 0 ? QByteArray(20000, 'x') : get("/media"));
                QThread::msleep(h == 0 ? 5 : 200);
            }
        });
    std::vector<std::future<bool>> good;
    for (int g = 0; g < LocalMediaServer::kMaxConnections; ++g)
        good.push_back(std::async(std::launch::async, [&, g] {
            std::mt19937_64 random(g);
            bool all = true;
            for (int round = 0; round < 3; ++round) {
                const qsizetype start = qsizetype(random() % quint64(m_content.size()));
                const qsizetype end = std::min<qsizetype>(
                    start + qsizetype(random() % (2 * 1024 * 1024)), m_content.size() - 1);
                const QByteArray request =
                    get("/media", "Range: bytes=" + QByteArray::number(start) + '-' +
                                      QByteArray::number(end) + "\r\n");
                // Refused while every slot is taken: try again, as a browser would.
                Reply reply;
                for (QDeadlineTimer deadline(60000);
                     (reply = exchange(m_port, request)).head.isEmpty() && !deadline.hasExpired();)
                    QThread::msleep(20);
                all &= reply.body == m_content.mid(start, end - start + 1);
            }
            return all;
        }));
    for (int g = 0; g < int(good.size()); ++g)
        EXPECT_TRUE(good[g].get()) << "client " << g;
    done = true;
    hostile.clear();
    QDeadlineTimer deadline(20000);
    while (openDescriptors() > before && !deadline.hasExpired())
        QThread::msleep(50);
    EXPECT_LE(openDescriptors(), before);
}

TEST_F(LocalMediaServerTest, RefusesWhatIsNotARegularNonEmptyFile)
{
    for (const QUrl& url : {QUrl(QStringLiteral("https://example.com/a.webm")),
                            QUrl::fromLocalFile(m_dir.filePath(QStringLiteral("missing.webm"))),
                            QUrl::fromLocalFile(m_dir.path()),
                            QUrl::fromLocalFile(write(QStringLiteral("empty.webm"), {}))})
        EXPECT_EQ(std::get<LocalMediaServerError>(LocalMediaServer::create(url, kPage)),
                  LocalMediaServerError::FileDoesNotExist)
            << url.toString().toStdString();
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
