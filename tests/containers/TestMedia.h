#pragma once
// Generated container files, the engine tool's view of their virtual MP4 files (the reference
// every read through the wrapper and the device must match), and how a piece of work ended.
#include "ContainerError.h"

#include <QByteArray>
#include <QDir>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

namespace quorvane::testing {

inline QString fixtureDir()
{
    return qEnvironmentVariable("QV_FIXTURE_DIR", QStringLiteral(QV_TEST_FIXTURE_DIR));
}

// Matroska, WebM and FLV fixtures: the shared set, then the large file of these tests.
inline QStringList containerFixtures()
{
    QStringList paths;
    for (const QDir& dir : {QDir(fixtureDir()), QDir(fixtureDir() + QStringLiteral("/containers"))})
        for (const auto& name : dir.entryList({"*.mkv", "*.mka", "*.webm", "*.flv"}, QDir::Files))
            paths.append(dir.filePath(name));
    return paths;
}

// The whole virtual file as `qvmedia cat` writes it; empty when the tool fails.
inline QByteArray virtualFileByTool(const QString& path)
{
    QTemporaryDir dir;
    const QString out = dir.filePath(QStringLiteral("virtual.mp4"));
    QProcess tool;
    tool.start(QStringLiteral(QV_TEST_QVMEDIA), {QStringLiteral("cat"), path, out});
    if (!tool.waitForFinished(60000) || tool.exitStatus() != QProcess::NormalExit ||
        tool.exitCode() != 0)
        return {};
    QFile file(out);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// How `work` ended: 0 when it returned, the ContainerError's code, kCancelled for a cancellation.
inline constexpr qint32 kCancelled = -QV_MEDIA_CANCELLED;
template <typename Work> qint32 outcome(Work work)
{
    try {
        work();
    } catch (const ContainerError& error) {
        return error.code();
    } catch (const ContainerCancelled&) {
        return kCancelled;
    }
    return 0;
}

} // namespace quorvane::testing
