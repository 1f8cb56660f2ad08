#pragma once
// The makers' feedback endpoint. A submission is one HTTP POST of a JSON object with the keys
// "message", "email", "version" and "build"; any 2xx answer whose body is empty or a JSON object
// counts as received. The endpoint is a build setting (QV_FEEDBACK_URL) that the environment
// variable QUORVANE_FEEDBACK_URL overrides; without one, sending is unavailable.
#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>
#include <optional>

class QNetworkReply;

namespace quorvane {

struct FeedbackSubmission {
    QString message;
    QString email;
    QString version;
    QString build;
};

// Why a submission failed: a catalog key, translated at display time, and a detail appended to
// it untranslated (the HTTP status), often empty.
struct FeedbackFailure {
    QString key;
    QString detail;
    bool operator==(const FeedbackFailure&) const = default;
};

namespace FeedbackTexts {
// Any failure to get an HTTP answer: refused, unreachable, timed out, broken off, not HTTP.
inline const QString unreachable = QStringLiteral(
    "The feedback service could not be reached. Check your connection and try again.");
// The service refused the content (400, 422).
inline const QString rejected =
    QStringLiteral("Check your message and reply email, then try again.");
// Any other HTTP error; the detail is "HTTP <status>".
inline const QString httpError = QStringLiteral("The feedback service answered with an error: ");
// A success whose body is neither empty nor a JSON object.
inline const QString unreadable =
    QStringLiteral("The feedback service sent an answer that could not be read.");
inline const QString unavailable = QStringLiteral("Sending feedback is unavailable in this build.");
} // namespace FeedbackTexts

class FeedbackService : public QObject {
    Q_OBJECT

public:
    using Completion = std::function<void(std::optional<FeedbackFailure>)>;

    // An endpoint that is not an absolute http or https URL makes the service unavailable.
    explicit FeedbackService(const QUrl& endpoint, QObject* parent = nullptr);
    ~FeedbackService() override;

    // QUORVANE_FEEDBACK_URL when set and not empty, else the compiled build setting.
    static QUrl configuredEndpoint();

    bool available() const { return m_endpoint.isValid(); }
    QUrl endpoint() const { return m_endpoint; }
    // How long a submission may go without progress before it counts as unreachable.
    void setTimeout(std::chrono::milliseconds timeout) { m_timeout = timeout; }

    // Posts the submission; `done` runs once on this thread, with no failure on success. An
    // unavailable service fails at once with FeedbackTexts::unavailable.
    void submit(const FeedbackSubmission& submission, Completion done);

private:
    static std::optional<FeedbackFailure> outcome(QNetworkReply* reply);

    QNetworkAccessManager m_network;
    QUrl m_endpoint;
    std::chrono::milliseconds m_timeout{15000};
    QPointer<QNetworkReply> m_reply;
};

} // namespace quorvane
