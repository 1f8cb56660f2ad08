#pragma once
// Errors of the container engine as the rest of the player sees them. Both derive from QException
// so that they cross QFuture boundaries intact: a future's result() rethrows the same type.
#include <QException>
#include <QString>

namespace quorvane {

// An engine failure with the engine's code. Two errors are equal when their codes are.
class ContainerError : public QException {
public:
    enum Code : qint32 {
        Malformed = 1,   // a bounds check failed, the file is empty, a value overflowed
        Unsupported = 2, // not a container the engine reads, no usable track, a refused codec
        TooLarge = 3,    // a read above the cap, out of memory
        InputOutput = 5, // not a regular file, cannot be opened, a short read
    };

    explicit ContainerError(qint32 code) noexcept : m_code(code) {}

    qint32 code() const noexcept { return m_code; }
    // The error domain reported next to the code wherever errors are shown or logged.
    static QString domain() { return QStringLiteral("Quorvane.MediaContainers"); }

    const char* what() const noexcept override;
    void raise() const override { throw *this; }
    ContainerError* clone() const override { return new ContainerError(*this); }

    bool operator==(const ContainerError& other) const noexcept { return m_code == other.m_code; }

private:
    qint32 m_code;
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
