// The loopback server over real sockets: exact responses, every range form, hostile clients,
// the connection cap, the idle check, concurrency and descriptor hygiene.
#include "LocalMediaServer.h"
#include "LoopbackClient.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <random>
#include <thread>

using namespace quorvane;
using namespace quorvane::testing;

namespace {

QByteArray pattern(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    std::mt19937 random(7);
    for (char& byte : bytes)
        byte = char(random() & 0xff);
    return bytes;
}

const QByteArray kPage = QByteArrayLiteral("<!doctype html><p>page</p>");

struct Served {
    std::unique_ptr<LocalMediaServer> server;
    quint16 port = 0;
    QString token;
    QByteArray content;

    QByteArray get(const QString& path, const QByteArray& headers = {}) const
    {
        return "GET /" + token.toLatin1() + path.toLatin1() + " HTTP/1.1\r\n" + headers + "\r\n";
    }
};

class LocalMediaServerTest : public ::testing::Test {
protected:
    QString write(const QString& name, const QByteArray& bytes)
    {
        const QString path = m_dir.filePath(name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return path;
    }

    Served serve(const QString& name, const QByteArray& content)
    {
        auto made = LocalMediaServer::create(QUrl::fromLocalFile(write(name, content)), kPage);
        Served served;
        served.server = std::move(std::get<std::unique_ptr<LocalMediaServer>>(made));
        served.content = content;
        const auto result = startAndWait(*served.server);
        const QUrl url = std::get<QUrl>(result);
        served.port = quint16(url.port());
        served.token = served.server->token();
        EXPECT_EQ(
            url.toString(),
            QStringLiteral("http://127.0.0.1:%1/%2/index.html").arg(url.port()).arg(served.token));
        return served;
    }

    static LocalMediaServer::StartResult startAndWait(LocalMediaServer& server)
    {
        auto promise = std::make_shared<std::promise<LocalMediaServer::StartResult>>();
        auto future = promise->get_future();
        server.start(
            [promise](const LocalMediaServer::StartResult& result) { promise->set_value(result); });
        EXPECT_EQ(future.wait_for(std::chrono::seconds(10)), std::future_status::ready);
        return future.get();
    }

    QTemporaryDir m_dir;
};

} // namespace

TEST(ByteRangeTest, FormsAgainstAThousandBytes)
{
    struct Case {
        const char* header;
        std::optional<ByteRange> expected;
    };
    const Case cases[] = {
        {"bytes=0-", ByteRange{0, 1000}},    {"bytes=0-0", ByteRange{0, 1}},
        {"bytes=999-", ByteRange{999, 1}},   {"bytes=990-5000", ByteRange{990, 10}},
        {"bytes=-200", ByteRange{800, 200}}, {"bytes=-5000", ByteRange{0, 1000}},
        {"bytes=-1", ByteRange{999, 1}},     {"bytes=+5-+6", ByteRange{5, 2}},
        {"bytes=500-100", std::nullopt},     {"bytes=1000-", std::nullopt},
        {"bytes=0-1,5-6", std::nullopt},     {"bytes=-0", std::nullopt},
        {"bytes=-", std::nullopt},           {"items=0-1", std::nullopt},
        {"bytes = 0-1", std::nullopt},       {"Bytes=0-1", std::nullopt},
        {"bytes=0-1-2", std::nullopt},       {"bytes= 0-1", std::nullopt},
        {"bytes=0x1-", std::nullopt},        {"bytes=18446744073709551616-", std::nullopt},
        {"bytes=++1-", std::nullopt},        {"bytes=0-18446744073709551615", ByteRange{0, 1000}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(parseByteRange(QString::fromLatin1(c.header), 1000), c.expected) << c.header;
    EXPECT_EQ(parseByteRange(std::nullopt, 1000), (ByteRange{0, 1000}));
    EXPECT_EQ(parseByteRange(QStringLiteral("bytes=0-"), 0), std::nullopt);
}

TEST_F(LocalMediaServerTest, AnswersWithExactHeadsAndBodies)
{
    const Served s = serve(QStringLiteral("clip.webm"), pattern(1000));
    const QByteArray tail = "Cache-Control: no-store\r\nConnection: close\r\n\r\n";
    const auto media = [&](qsizetype length, const QByteArray& range = {}) {
        return "Content-Type: video/webm\r\nContent-Length: " + QByteArray::number(length) +
               "\r\nAccept-Ranges: bytes\r\nCache-Control: no-store\r\nConnection: close\r\n" +
               (range.isEmpty() ? QByteArray() : "Content-Range: bytes " + range + "\r\n") + "\r\n";
    };
    const QByteArray partial = "HTTP/1.1 206 Partial Content\r\n";
    const QByteArray page = "HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\n"
                            "Content-Length: " +
                            QByteArray::number(kPage.size()) + "\r\n" + tail;
    const QByteArray notFound =
        "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    const QByteArray unsatisfiable =
        "HTTP/1.1 416 Range Not Satisfiable\r\nContent-Range: bytes */1000\r\n"
        "Content-Length: 0\r\nConnection: close\r\n\r\n";
    const QByteArray token = s.token.toLatin1();
    struct Case {
        const char* name;
        QByteArray request;
        QByteArray head;
        qsizetype bodyStart, bodyCount; // bodyStart -1: the page
    };
    // The range grammar itself is covered by ByteRangeTest; these check what reaches the wire.
    const Case cases[] = {
        {"whole file", s.get("/media"), "HTTP/1.1 200 OK\r\n" + media(1000), 0, 1000},
        {"bytes=0-", s.get("/media", "Range: bytes=0-\r\n"), partial + media(1000, "0-999/1000"), 0,
         1000},
        {"suffix", s.get("/media", "RANGE: bytes=-200\r\n"), partial + media(200, "800-999/1000"),
         800, 200},
        {"clamped", s.get("/media", "range:  bytes=990-5000 \r\nX-Other: 1\r\n"),
         partial + media(10, "990-999/1000"), 990, 10},
        {"head media", "HEAD /" + token + "/media HTTP/1.1\r\nRange: bytes=0-9\r\n\r\n",
         partial + media(10, "0-9/1000"), 0, 0},
        {"page", s.get("/index.html"), page, -1, kPage.size()},
        {"head page", "HEAD  /" + token + "/index.html  HTTP/1.1\r\n\r\n", page, -1, 0},
        {"wrong token", "GET /wrong-token/media HTTP/1.1\r\n\r\n", notFound, 0, 0},
        {"query", s.get("/media?x=1"), notFound, 0, 0},
        {"lower-case token", "GET /" + s.token.toLower().toLatin1() + "/media HTTP/1.1\r\n\r\n",
         notFound, 0, 0},
        {"backwards", s.get("/media", "Range: bytes=500-100\r\n"), unsatisfiable, 0, 0},
        {"two ranges", s.get("/media", "Range: bytes=0-1,5-6\r\n"), unsatisfiable, 0, 0},
        {"capital unit", s.get("/media", "Range: Bytes=0-1\r\n"), unsatisfiable, 0, 0},
        {"utf-8 header", s.get("/media", "X-Name: \xe6\x97\xa5\r\nRange: bytes=1-2\r\n"),
         partial + media(2, "1-2/1000"), 1, 2},
        {"body ignored", s.get("/media", "Range: bytes=1-2\r\n") + "GET / HTTP/1.1\r\n\r\n",
         partial + media(2, "1-2/1000"), 1, 2},
    };
    for (const Case& c : cases) {
        const HttpReply reply = exchange(s.port, c.request);
        EXPECT_EQ(reply.head, c.head) << c.name;
        const QByteArray body =
            c.bodyStart < 0 ? kPage.left(c.bodyCount) : s.content.mid(c.bodyStart, c.bodyCount);
        EXPECT_EQ(reply.body, body) << c.name;
    }
    // Ogg is served as audio, whatever the case of its suffix.
    for (const char* name : {"a.ogg", "b.OGA"}) {
        const Served ogg = serve(QString::fromLatin1(name), pattern(10));
        EXPECT_TRUE(
            exchange(ogg.port, ogg.get("/media")).head.contains("Content-Type: audio/ogg\r\n"))
            << name;
    }
}

TEST_F(LocalMediaServerTest, ClosesUnacceptableRequestsWithoutAnswering)
{
    const Served s = serve(QStringLiteral("clip.webm"), pattern(1000));
    const QByteArray path = "/" + s.token.toLatin1() + "/media";
    const QByteArray cases[] = {
        "POST " + path + " HTTP/1.1\r\n\r\n",
        "GET " + path + " HTTP/1.0\r\n\r\n",
        "get " + path + " HTTP/1.1\r\n\r\n",
        "GET " + path + "\r\n\r\n",
        "GET " + path + " HTTP/1.1 extra\r\n\r\n",
        "GET\t" + path + " HTTP/1.1\r\n\r\n",
        "GET " + path + " HTTP/1.1\r\nNo colon here\r\n\r\n",
        "GET " + path + " HTTP/1.1\r\nRange: bytes=0-1\r\nrange: bytes=2-3\r\n\r\n",
        "GET " + path + " HTTP/1.1\r\nX-Name: \xff\xfe\r\n\r\n",
        "GET " + path + " HTTP/1.1\r\nX-Overlong: \xc0\xaf\r\n\r\n",
        "GET " + path + " HTTP/1.1\r\nX-Surrogate: \xed\xa0\x80\r\n\r\n",
        "GET " + path + " HTTP/1.1\r\nX-Cut: \xe6\x97\r\n\r\n",
        "GET " + path + " HTTP/1.1\r\nX-Pad: " + QByteArray(16384, 'a'),
        "GET " + path + " HTTP/1.1\r\n", // the client gives up before the blank line
    };
    for (const QByteArray& request : cases) {
        RawConnection connection(s.port);
        connection.send(request);
        if (request.endsWith("HTTP/1.1\r\n")) connection.finishSending();
        EXPECT_TRUE(connection.receiveAll().isEmpty()) << request.left(60).toStdString();
    }
    // The server still answers afterwards.
    EXPECT_TRUE(exchange(s.port, s.get("/media")).head.startsWith("HTTP/1.1 200 OK"));
}

TEST_F(LocalMediaServerTest, RefusesTheNinthConnectionAndDropsIdleOnesButNotStreamsAfterTenSeconds)
{
    const Served s = serve(QStringLiteral("clip.webm"), pattern(32 * 1024 * 1024));
    // One slow reader streams well past the ten-second check: it must not be cut off.
    auto slow = std::async(std::launch::async, [&] {
        RawConnection connection(s.port, 30, 64 * 1024);
        connection.send(s.get("/media"));
        QByteArray all;
        for (QByteArray piece = connection.receive(); !piece.isEmpty();
             piece = connection.receive()) {
            all += piece;
            QThread::usleep(quint64(piece.size()) / 3); // about 3 MB/s
        }
        return all.mid(all.indexOf("\r\n\r\n") + 4);
    });
    std::vector<std::unique_ptr<RawConnection>> idle;
    for (int i = 1; i < LocalMediaServer::kMaxConnections; ++i) {
        idle.push_back(std::make_unique<RawConnection>(s.port));
        idle.back()->send("GET /"); // a head that never completes
    }
    QThread::msleep(300);
    QDeadlineTimer refusedWithin(3000);
    EXPECT_TRUE(exchange(s.port, s.get("/media")).head.isEmpty());
    EXPECT_FALSE(refusedWithin.hasExpired());

    // The idle ones are closed by the server at the ten-second check, then service resumes.
    QDeadlineTimer closedWithin(20000);
    for (auto& connection : idle)
        EXPECT_TRUE(connection->receive().isEmpty());
    EXPECT_FALSE(closedWithin.hasExpired());
    EXPECT_EQ(exchange(s.port, s.get("/media", "Range: bytes=-10\r\n")).body, s.content.right(10));
    EXPECT_TRUE(slow.get() == s.content);
}

TEST_F(LocalMediaServerTest, EightStreamingClientsGetEveryByteAmongHostileOnes)
{
    const Served s = serve(QStringLiteral("big.webm"), pattern(6 * 1024 * 1024));
    std::atomic_bool done = false;
    std::atomic_int hostileRuns = 0;

    // Hostile clients: garbage, oversized heads, wrong tokens, ones that stop reading.
    std::vector<std::thread> hostile;
    for (int h = 0; h < 3; ++h) {
        hostile.emplace_back([&, h] {
            while (!done) {
                RawConnection connection(s.port, 2);
                if (h == 0) connection.send(QByteArray(20000, 'x'));
                if (h == 1) connection.send("\xff\xff\xff\r\n\r\n");
                if (h == 2) connection.send(s.get("/media")); // and never reads
                QThread::msleep(h == 2 ? 200 : 5);
                ++hostileRuns;
            }
        });
    }

    std::vector<std::future<bool>> good;
    for (int g = 0; g < LocalMediaServer::kMaxConnections; ++g) {
        good.push_back(std::async(std::launch::async, [&, g] {
            std::mt19937_64 random(g);
            for (int round = 0; round < 3; ++round) {
                const quint64 start = random() % quint64(s.content.size());
                const quint64 count = 1 + random() % (2 * 1024 * 1024);
                const quint64 end = std::min<quint64>(start + count, s.content.size()) - 1;
                const QByteArray request =
                    s.get("/media", "Range: bytes=" + QByteArray::number(start) + '-' +
                                        QByteArray::number(end) + "\r\n");
                // Refused while every slot is taken: try again, as a browser would.
                HttpReply reply;
                QDeadlineTimer deadline(60000);
                do {
                    reply = exchange(s.port, request);
                    if (reply.head.isEmpty()) QThread::msleep(20);
                } while (reply.head.isEmpty() && !deadline.hasExpired());
                if (reply.body != s.content.mid(qsizetype(start), qsizetype(end - start + 1)))
                    return false;
            }
            return true;
        }));
    }
    for (int g = 0; g < int(good.size()); ++g)
        EXPECT_TRUE(good[g].get()) << "client " << g;
    done = true;
    for (auto& thread : hostile)
        thread.join();
    EXPECT_GT(hostileRuns.load(), 0);
}

TEST_F(LocalMediaServerTest, LeavesNoDescriptorOpenAfterAThousandConnections)
{
    const Served s = serve(QStringLiteral("clip.webm"), pattern(100000));
    exchange(s.port, s.get("/media")); // warm up whatever the first request allocates
    QThread::msleep(200);
    const auto openDescriptors = [] {
        return QDir(QStringLiteral("/proc/self/fd"))
            .entryList(QDir::NoDotAndDotDot | QDir::System | QDir::Files | QDir::AllEntries)
            .size();
    };
    const qsizetype before = openDescriptors();
    // Full answers, 404s, dropped requests and clients that hang up without reading.
    for (int i = 0; i < 1000; ++i) {
        if (i % 4 == 3)
            RawConnection(s.port).send(s.get("/media"));
        else
            exchange(s.port, i % 4 == 0   ? s.get("/media", "Range: bytes=-70000\r\n")
                             : i % 4 == 1 ? s.get("/nothing")
                                          : QByteArray("POST / HTTP/1.1\r\n\r\n"));
    }
    QDeadlineTimer deadline(20000);
    while (openDescriptors() > before && !deadline.hasExpired())
        QThread::msleep(50);
    EXPECT_LE(openDescriptors(), before);
}

TEST_F(LocalMediaServerTest, EndsTheBodyShortWhenTheFileShrinks)
{
    const Served s = serve(QStringLiteral("clip.webm"), pattern(8 * 1024 * 1024));
    RawConnection connection(s.port);
    connection.send(s.get("/media"));
    QByteArray received = connection.receive();
    ASSERT_FALSE(received.isEmpty());
    ASSERT_TRUE(QFile::resize(m_dir.filePath(QStringLiteral("clip.webm")), 1024 * 1024));
    received += connection.receiveAll();
    const qsizetype bodyStart = received.indexOf("\r\n\r\n") + 4;
    EXPECT_TRUE(received.contains("Content-Length: 8388608\r\n"));
    EXPECT_LE(received.size() - bodyStart, 1024 * 1024 + 8 * LocalMediaServer::kChunkBytes);
    EXPECT_LT(received.size() - bodyStart, 8 * 1024 * 1024);
}

TEST_F(LocalMediaServerTest, StopsFromAnyThreadAndNeverStartsAgain)
{
    Served s = serve(QStringLiteral("clip.webm"), pattern(1000));
    EXPECT_EQ(s.server->thread()->objectName(), QStringLiteral("quorvane.media.loopback"));
    EXPECT_EQ(std::get<LocalMediaServerError>(startAndWait(*s.server)),
              LocalMediaServerError::Cancelled);
    std::thread([&] {
        s.server->stop();
        s.server->stop();
    }).join();
    QDeadlineTimer deadline(10000);
    while (RawConnection(s.port).connected() && !deadline.hasExpired())
        QThread::msleep(20);
    EXPECT_FALSE(RawConnection(s.port).connected());
    EXPECT_EQ(std::get<LocalMediaServerError>(startAndWait(*s.server)),
              LocalMediaServerError::Cancelled);
}

TEST_F(LocalMediaServerTest, RefusesWhatIsNotARegularNonEmptyFile)
{
    write(QStringLiteral("empty.webm"), {});
    const QUrl cases[] = {
        QUrl(QStringLiteral("https://example.com/a.webm")),
        QUrl::fromLocalFile(m_dir.filePath(QStringLiteral("missing.webm"))),
        QUrl::fromLocalFile(m_dir.path()),
        QUrl::fromLocalFile(m_dir.filePath(QStringLiteral("empty.webm"))),
    };
    for (const QUrl& url : cases) {
        const auto made = LocalMediaServer::create(url, kPage);
        ASSERT_TRUE(std::holds_alternative<LocalMediaServerError>(made))
            << url.toString().toStdString();
        EXPECT_EQ(std::get<LocalMediaServerError>(made), LocalMediaServerError::FileDoesNotExist);
    }
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
