// The settings module's services: the feedback form against a real HTTP server on the loopback
// interface, and the update notice over the stored build.
#include "DiagnosticLog.h"
#include "FeedbackController.h"
#include "Player.h"
#include "TranslationCatalog.h"
#include "UpdateNotice.h"
#include "support/ScriptedBackend.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkProxy>
#include <QSettings>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <optional>

using namespace quorvane;
using namespace Qt::StringLiterals;

namespace {

// Just enough HTTP/1.1 to receive one POST per connection and answer it as told.
class FeedbackEndpoint : public QObject {
public:
    static constexpr int kSilence = -1, kGarbage = -2;
    struct Request {
        QByteArray head, body; // head: the request line and headers, lower case
    };
    int status = 200; // or one of the answers above
    QByteArray body;
    QList<Request> requests;

    FeedbackEndpoint()
    {
        QVERIFY(m_server.listen(QHostAddress::LocalHost, 0));
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection())
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
        });
    }
    QUrl url() const { return QUrl(u"http://127.0.0.1:%1/feedback"_s.arg(m_server.serverPort())); }

private:
    void read(QTcpSocket* socket)
    {
        QByteArray& buffer = m_buffers[socket];
        buffer += socket->readAll();
        const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
        if (headerEnd < 0) return;
        const QByteArray head = buffer.left(headerEnd).toLower();
        const qsizetype at = head.indexOf("\r\ncontent-length:");
        const qsizetype length =
            at < 0 ? 0 : head.mid(at + 17).split('\r').first().trimmed().toLongLong();
        if (buffer.size() < headerEnd + 4 + length) return;
        requests.append({head, buffer.mid(headerEnd + 4, length)});
        m_buffers.remove(socket);
        if (status == kSilence) return;
        socket->write(status == kGarbage ? QByteArray("\x01\x02 not a web server\r\n\r\n")
                                         : "HTTP/1.1 " + QByteArray::number(status) +
                                               " Status\r\nContent-Type: application/json\r\n"
                                               "Connection: close\r\nContent-Length: " +
                                               QByteArray::number(body.size()) + "\r\n\r\n" + body);
        socket->disconnectFromHost();
    }

    QTcpServer m_server;
    QHash<QTcpSocket*, QByteArray> m_buffers;
};

} // namespace

class FeedbackTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<QSettings> m_settings;
    std::unique_ptr<Player> m_player;

private slots:
    void initTestCase()
    {
        // The shared diagnostic log lands in this test's own data directory.
        qputenv("XDG_DATA_HOME", m_dir.filePath(u"data"_s).toUtf8());
        // The endpoint is on this machine, whatever proxy the environment names.
        QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
        m_settings =
            std::make_unique<QSettings>(m_dir.filePath(u"settings.ini"_s), QSettings::IniFormat);
        setPlayerLanguageSettings(m_settings.get());
        m_player = std::make_unique<Player>(m_settings.get(),
                                            std::make_unique<testing::ScriptedBackend>());
    }

    void cleanupTestCase()
    {
        m_player.reset();
        setPlayerLanguageSettings(nullptr);
    }

    void successPostsTheTrimmedFormAsJsonAndClearsIt()
    {
        FeedbackEndpoint endpoint;
        endpoint.body = R"({"ok":true})";
        FeedbackController form(m_player.get(), endpoint.url());
        form.setMessage(u" \n\t\r\n "_s); // a blank message is never sent
        form.send();
        QVERIFY(!form.canSend());
        form.setMessage(u"  The picture froze.\n\n"_s);
        form.setEmail(u" someone@example.org \t"_s);
        form.send();
        QVERIFY(form.sending() && !form.canSend());
        form.send(); // ignored while in flight
        QTRY_VERIFY_WITH_TIMEOUT(!form.sending(), 20000);

        QCOMPARE(endpoint.requests.size(), 1);
        const auto& request = endpoint.requests.first();
        QVERIFY2(request.head.startsWith("post /feedback ") &&
                     request.head.contains("\r\ncontent-type: application/json\r\n"),
                 request.head);
        const auto metadata = SupportDiagnostics::metadata();
        QCOMPARE(QJsonDocument::fromJson(request.body).object().toVariantMap(),
                 (QVariantMap{{"message", u"The picture froze."_s},
                              {"email", u"someone@example.org"_s},
                              {"version", metadata["version"]},
                              {"build", metadata["build"]}}));
        QVERIFY(form.succeeded());
        QVERIFY(form.message().isEmpty() && form.email().isEmpty() && form.failure().isEmpty());
    }

    void failuresKeepTheFormAndSayWhy()
    {
        const struct {
            const char* name;
            int status; // 0: nothing listens on the port
            QByteArray body;
            FeedbackFailure failure;
        } rows[] = {
            {"server error", 500, "{}", {FeedbackTexts::httpError, u"HTTP 500"_s}},
            {"rejected content", 422, "{}", {FeedbackTexts::rejected, {}}},
            {"success with garbage", 200, "<html>", {FeedbackTexts::unreadable, {}}},
            {"not HTTP", FeedbackEndpoint::kGarbage, {}, {FeedbackTexts::unreachable, {}}},
            {"time-out", FeedbackEndpoint::kSilence, {}, {FeedbackTexts::unreachable, {}}},
            {"refused", 0, {}, {FeedbackTexts::unreachable, {}}},
        };
        for (const auto& row : rows) {
            FeedbackEndpoint endpoint;
            endpoint.status = row.status;
            endpoint.body = row.body;
            QUrl url = endpoint.url();
            if (row.status == 0) {
                QTcpServer closed; // a port that was free a moment ago refuses the connection
                closed.listen(QHostAddress::LocalHost, 0);
                url.setPort(closed.serverPort());
            }
            FeedbackController form(m_player.get(), url);
            form.service().setTimeout(std::chrono::milliseconds(1500));
            form.setMessage(u"It stopped."_s);
            form.send();
            QTRY_VERIFY_WITH_TIMEOUT(!form.sending(), 20000);
            QVERIFY2(form.failure() == row.failure.key &&
                         form.failureDetail() == row.failure.detail,
                     row.name);
            QVERIFY2(!form.succeeded() && form.canSend(), row.name);
            QVERIFY2(form.message() == u"It stopped."_s, row.name);
        }
        for (const QString& address : {u""_s, u"ftp://example.org/"_s, u"not a url"_s}) {
            FeedbackController unavailable(m_player.get(), QUrl(address));
            unavailable.setMessage(u"Hello"_s);
            QVERIFY(!unavailable.sendingAvailable() && !unavailable.canSend());
        }
    }

    // What a launch shows for what an earlier launch stored, then what the updater's answer
    // changes (a row without an action only checks the start).
    void noticeFollowsTheStoredBuildAndTheUpdater()
    {
        using Action = std::function<void(UpdateNotice&)>;
        const Action found = [](UpdateNotice& n) { n.didFindValidUpdate(); };
        const Action notFound = [](UpdateNotice& n) { n.didNotFindUpdate(); };
        const auto choice = [](UpdateChoice c) {
            return Action([c](UpdateNotice& n) { n.userDidMakeChoice(c); });
        };
        using Stored = std::optional<QString>;
        const struct {
            const char* name;
            Stored stored;
            QString build;
            Action action;
            bool available;
            Stored storedAfter;
        } rows[] = {
            {"nothing stored", {}, u"42"_s, {}, false, {}},
            {"found in this build", u"42"_s, u"42"_s, {}, true, u"42"_s},
            {"found in an older build", u"42"_s, u"43"_s, {}, false, u"42"_s},
            {"empty build", u""_s, u""_s, {}, false, u""_s},
            {"empty build, key of another", u"42"_s, u""_s, {}, false, u"42"_s},
            {"found", {}, u"42"_s, found, true, u"42"_s},
            {"found, empty build", {}, u""_s, found, true, {}},
            {"not found", u"42"_s, u"42"_s, notFound, false, {}},
            {"skipped", u"42"_s, u"42"_s, choice(UpdateChoice::Skip), false, {}},
            {"raw choice 0 is skip", u"42"_s, u"42"_s, choice(UpdateChoice(0)), false, {}},
            {"install", u"42"_s, u"42"_s, choice(UpdateChoice::Install), true, u"42"_s},
            {"dismissed", u"42"_s, u"42"_s, choice(UpdateChoice::Dismiss), true, u"42"_s},
        };
        for (const auto& row : rows) {
            QSettings settings(m_dir.filePath(u"notice.ini"_s), QSettings::IniFormat);
            settings.clear();
            if (row.stored) settings.setValue(u"updateAvailableForBuild"_s, *row.stored);
            UpdateNotice notice(&settings, row.build);
            const bool before = notice.available();
            QSignalSpy changed(&notice, &UpdateNotice::availableChanged);
            if (row.action) row.action(notice);
            const QVariant after = settings.value(u"updateAvailableForBuild"_s);
            QVERIFY2(notice.available() == row.available, row.name);
            QVERIFY2(changed.size() == (before != row.available ? 1 : 0), row.name);
            QVERIFY2((after.isValid() ? Stored(after.toString()) : Stored()) == row.storedAfter,
                     row.name);
        }
    }
};

QTEST_MAIN(FeedbackTest)
#include "tst_feedback.moc"
