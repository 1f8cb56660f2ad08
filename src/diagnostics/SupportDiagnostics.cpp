#include "DiagnosticLog.h"

#include <QOperatingSystemVersion>
#include <QStandardPaths>
#include <QSysInfo>
#include <QVersionNumber>

namespace quorvane::SupportDiagnostics {

namespace {

QString compiledOrDevelopment(const char* value)
{
    const QString text = QString::fromUtf8(value);
    return text.isEmpty() ? QStringLiteral("development") : text;
}

QString osVersion()
{
#ifdef Q_OS_MACOS
    const auto current = QOperatingSystemVersion::current();
    const QVersionNumber version(current.majorVersion(), std::max(0, current.minorVersion()),
                                 std::max(0, current.microVersion()));
#else
    // Kernel versions carry a distribution suffix ("6.1.0-18-amd64"); keep the numeric triple.
    const QVersionNumber parsed = QVersionNumber::fromString(QSysInfo::kernelVersion());
    const QVersionNumber version(parsed.majorVersion(), std::max(0, parsed.minorVersion()),
                                 std::max(0, parsed.microVersion()));
#endif
    return version.toString();
}

} // namespace

DiagnosticLog& log()
{
    static DiagnosticLog shared([] {
        const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
        return base.isEmpty() ? QString()
                              : base + QStringLiteral("/Quorvane Player/Logs/diagnostics.json");
    }());
    return shared;
}

DiagnosticLog::Fields metadata()
{
    return {
        {QStringLiteral("app"), QStringLiteral("QuorvanePlayer")},
        {QStringLiteral("version"), compiledOrDevelopment(QV_VERSION)},
        {QStringLiteral("build"), compiledOrDevelopment(QV_BUILD_NUMBER)},
        {QStringLiteral("os"), osVersion()},
        {QStringLiteral("arch"), QSysInfo::currentCpuArchitecture()},
    };
}

QString report()
{
    return log().report(metadata());
}

} // namespace quorvane::SupportDiagnostics
