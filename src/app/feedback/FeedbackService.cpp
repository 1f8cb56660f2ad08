#include "FeedbackService.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QNetworkReply>
#include <QNetworkRequest>

Q_LOGGING_CATEGORY(lcFeedback, "quorvane.feedback")

namespace quorvane {

namespace {

QUrl usableEndpoint(const QUrl& url)
{
    const bool web =
        url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
    return url.isValid() && web && !url.host().isEmpty() ? url : QUrl();
}

} // namespace

FeedbackService::FeedbackService(const QUrl& endpoint, QObject* parent)
    : QObject(parent), m_endpoint(usableEndpoint(endpoint))
{
}

FeedbackService::~FeedbackService()
{
    // A reply finishing after the service is gone must not call back into a dead form.
    if (m_reply) {
        m_reply->disconnect(this);
        m_reply->abort();
    }
}

QUrl FeedbackService::configuredEndpoint()
{
    const QString override = qEnvironmentVariable("QUORVANE_FEEDBACK_URL");
    const QString address = override.isEmpty() ? QStringLiteral(QV_FEEDBACK_URL) : override;
    return usableEndpoint(QUrl(address, QUrl::StrictMode));
}

void FeedbackService::submit(const FeedbackSubmission& submission, Completion done)
{
    if (!available()) {
        done(FeedbackFailure{FeedbackTexts::unavailable, {}});
        return;
    }
    const QJsonObject body{{QStringLiteral("message"), submission.message},
                           {QStringLiteral("email"), submission.email},
                           {QStringLiteral("version"), submission.version},
                           {QStringLiteral("build"), submission.build}};
    QNetworkRequest request(m_endpoint);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    request.setRawHeader("Accept", "application/json");
    request.setTransferTimeout(int(m_timeout.count()));

    QNetworkReply* reply =
        m_network.post(request, QJsonDocument(body).toJson(QJsonDocument::Compact));
    m_reply = reply;
    connect(reply, &QNetworkReply::finished, this, [reply, done = std::move(done)] {
        reply->deleteLater();
        const auto failure = outcome(reply);
        if (failure)
            qCInfo(lcFeedback) << "feedback not sent:" << reply->error() << failure->detail;
        done(failure);
    });
}

std::optional<FeedbackFailure> FeedbackService::outcome(QNetworkReply* reply)
{
    const QVariant statusAttribute = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    // No HTTP answer at all: refused, unreachable, timed out, or a peer that does not speak
    // HTTP and hangs up. To the user these are one thing: the service could not be reached.
    if (!statusAttribute.isValid()) return FeedbackFailure{FeedbackTexts::unreachable, {}};
    const int status = statusAttribute.toInt();
    if (status == 400 || status == 422) return FeedbackFailure{FeedbackTexts::rejected, {}};
    if (status < 200 || status > 299)
        return FeedbackFailure{FeedbackTexts::httpError, QStringLiteral("HTTP %1").arg(status)};
    if (reply->error() != QNetworkReply::NoError)
        return FeedbackFailure{FeedbackTexts::unreachable, {}};

    const QByteArray answer = reply->readAll();
    if (answer.trimmed().isEmpty()) return std::nullopt;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(answer, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return FeedbackFailure{FeedbackTexts::unreadable, {}};
    return std::nullopt;
}

} // namespace quorvane
