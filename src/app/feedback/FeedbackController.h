#pragma once
// The state of the feedback form: the message and reply address the user types, the submission
// in flight and its outcome, and the outcome of copying the diagnostic report. The form's texts
// are catalog keys; the view translates them when it shows them.
#include "FeedbackService.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <functional>

namespace quorvane {

class Player;

class FeedbackController : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The settings own the feedback form")
    Q_PROPERTY(QString message READ message WRITE setMessage NOTIFY messageChanged FINAL)
    Q_PROPERTY(QString email READ email WRITE setEmail NOTIFY emailChanged FINAL)
    Q_PROPERTY(bool sending READ sending NOTIFY sendingChanged FINAL)
    // The catalog key of the last submission's failure, empty when there is none, and the
    // untranslated detail shown after it.
    Q_PROPERTY(QString failure READ failure NOTIFY failureChanged FINAL)
    Q_PROPERTY(QString failureDetail READ failureDetail NOTIFY failureChanged FINAL)
    Q_PROPERTY(bool succeeded READ succeeded NOTIFY succeededChanged FINAL)
    Q_PROPERTY(CopyOutcome copyOutcome READ copyOutcome NOTIFY copyOutcomeChanged FINAL)
    // False when the build has no feedback endpoint; copying the report still works.
    Q_PROPERTY(bool sendingAvailable READ sendingAvailable CONSTANT FINAL)
    Q_PROPERTY(bool canSend READ canSend NOTIFY canSendChanged FINAL)

public:
    enum class CopyOutcome { None, Copied, Refused };
    Q_ENUM(CopyOutcome)

    // Puts the text on the clipboard and says whether the clipboard took it.
    using ClipboardWriter = std::function<bool(const QString&)>;

    // `player` records its state before a report is copied; it may be null.
    FeedbackController(Player* player, const QUrl& endpoint, QObject* parent = nullptr);

    QString message() const { return m_message; }
    void setMessage(const QString& message);
    QString email() const { return m_email; }
    void setEmail(const QString& email);
    bool sending() const { return m_sending; }
    QString failure() const { return m_failure.key; }
    QString failureDetail() const { return m_failure.detail; }
    bool succeeded() const { return m_succeeded; }
    CopyOutcome copyOutcome() const { return m_copyOutcome; }
    bool sendingAvailable() const { return m_service.available(); }
    // Not while a submission is in flight, and not for a message of only blanks.
    bool canSend() const;

    // Submits the trimmed message and address. Ignored while canSend is false.
    Q_INVOKABLE void send();
    // Records the player's state, then puts the diagnostic report on the clipboard.
    Q_INVOKABLE void copyDiagnosticLog();

    FeedbackService& service() { return m_service; }
    void setClipboardWriter(ClipboardWriter writer) { m_clipboard = std::move(writer); }
    // The clipboard of the running GUI application; refuses when there is none.
    static bool writeSystemClipboard(const QString& text);

signals:
    void messageChanged();
    void emailChanged();
    void sendingChanged();
    void failureChanged();
    void succeededChanged();
    void copyOutcomeChanged();
    void canSendChanged();

private:
    void finishSending(const std::optional<FeedbackFailure>& failure);
    void setSending(bool sending);
    void setFailure(const FeedbackFailure& failure);
    void setSucceeded(bool succeeded);
    void updateCanSend();

    QPointer<Player> m_player;
    FeedbackService m_service;
    ClipboardWriter m_clipboard = &FeedbackController::writeSystemClipboard;
    QString m_message;
    QString m_email;
    bool m_sending = false;
    FeedbackFailure m_failure;
    bool m_succeeded = false;
    CopyOutcome m_copyOutcome = CopyOutcome::None;
    bool m_canSend = false;
};

} // namespace quorvane
