#include "FeedbackController.h"

#include "DiagnosticLog.h"
#include "Player.h"

#include <QClipboard>
#include <QGuiApplication>

namespace quorvane {

FeedbackController::FeedbackController(Player* player, const QUrl& endpoint, QObject* parent)
    : QObject(parent), m_player(player), m_service(endpoint)
{
}

void FeedbackController::setMessage(const QString& message)
{
    if (m_message == message) return;
    m_message = message;
    emit messageChanged();
    updateCanSend();
}

void FeedbackController::setEmail(const QString& email)
{
    if (m_email == email) return;
    m_email = email;
    emit emailChanged();
}

bool FeedbackController::canSend() const
{
    return m_service.available() && !m_sending && !m_message.trimmed().isEmpty();
}

void FeedbackController::send()
{
    if (!canSend()) return;
    setSending(true);
    // A new attempt replaces the outcome of the last one.
    setSucceeded(false);
    setFailure({});
    const auto metadata = SupportDiagnostics::metadata();
    m_service.submit({m_message.trimmed(), m_email.trimmed(),
                      metadata.value(QStringLiteral("version")),
                      metadata.value(QStringLiteral("build"))},
                     [self = QPointer(this)](const std::optional<FeedbackFailure>& failure) {
                         if (self) self->finishSending(failure);
                     });
}

void FeedbackController::finishSending(const std::optional<FeedbackFailure>& failure)
{
    if (failure) {
        // The message and address stay, so the user can try again.
        setFailure(*failure);
        setSending(false);
        return;
    }
    setMessage({});
    setEmail({});
    setFailure({});
    setSucceeded(true);
    setSending(false);
}

void FeedbackController::copyDiagnosticLog()
{
    // The report should end with the situation the user is writing about.
    if (m_player) m_player->captureDiagnostics();
    const CopyOutcome outcome =
        m_clipboard(SupportDiagnostics::report()) ? CopyOutcome::Copied : CopyOutcome::Refused;
    if (m_copyOutcome == outcome) return;
    m_copyOutcome = outcome;
    emit copyOutcomeChanged();
}

bool FeedbackController::writeSystemClipboard(const QString& text)
{
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance())) return false;
    QClipboard* clipboard = QGuiApplication::clipboard();
    // Cleared first, so that a refused text leaves nothing stale behind.
    clipboard->clear();
    clipboard->setText(text);
    return clipboard->text() == text;
}

void FeedbackController::setSending(bool sending)
{
    if (m_sending == sending) return;
    m_sending = sending;
    emit sendingChanged();
    updateCanSend();
}

void FeedbackController::setFailure(const FeedbackFailure& failure)
{
    if (m_failure == failure) return;
    m_failure = failure;
    emit failureChanged();
}

void FeedbackController::setSucceeded(bool succeeded)
{
    if (m_succeeded == succeeded) return;
    m_succeeded = succeeded;
    emit succeededChanged();
}

void FeedbackController::updateCanSend()
{
    const bool can = canSend();
    if (m_canSend == can) return;
    m_canSend = can;
    emit canSendChanged();
}

} // namespace quorvane
