#pragma once
// Errors of the container engine as the rest of the player sees them. Both derive from QException
// so that they cross QFuture boundaries intact: a future's result() rethrows the same type.
#include "engine/qv_media.h"

#include <QByteArray>
#include <QException>
#include <QString>

namespace quorvane {

// An engine failure with the engine's code (qv_media_error; cancellation is ContainerCancelled
// instead). Two errors are equal when their codes are.
class ContainerError : public QException {
public:
    // The engine's codes under Qt-style names; their meanings are documented in qv_media.h.
    enum Code : qint32 {
        Malformed = QV_MEDIA_MALFORMED,
        Unsupported = QV_MEDIA_UNSUPPORTED,
        TooLarge = QV_MEDIA_TOO_LARGE,
        InputOutput = QV_MEDIA_INPUT_OUTPUT,
    };

    explicit ContainerError(qint32 code);

    qint32 code() const noexcept { return m_code; }
    // The error domain reported next to the code wherever errors are shown or logged.
    static QString domain() { return QStringLiteral("Quorvane.MediaContainers"); }

    // "Quorvane.MediaContainers N: <the engine's text for N>".
    const char* what() const noexcept override { return m_what.constData(); }
    void raise() const override { throw *this; }
    ContainerError* clone() const override { return new ContainerError(*this); }

    bool operator==(const ContainerError& other) const noexcept { return m_code == other.m_code; }

private:
    qint32 m_code;
    QByteArray m_what;
};

// The work was cancelled through its cancel flag. Deliberately not a ContainerError: a cancelled
// open is the caller's own decision, never a failure to report.
class ContainerCancelled : public QException {
public:
    const char* what() const noexcept override { return "container work cancelled"; }
    void raise() const override { throw *this; }
    ContainerCancelled* clone() const override { return new ContainerCancelled(*this); }
};

} // namespace quorvane
