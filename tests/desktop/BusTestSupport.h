#pragma once
// What the bus tests share: a real Player (router, GStreamer) over settings in a temporary folder,
// with copies of generated media in folders of their own (each folder is a playlist).
#include "DiagnosticLog.h"
#include "Player.h"
#include "TranslationCatalog.h"

#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

namespace quorvane::testing {

struct PlayerUnderTest {
    QTemporaryDir dir;
    QSettings settings{dir.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat};
    DiagnosticLog log;
    Player player{&settings};

    PlayerUnderTest()
    {
        setPlayerLanguageSettings(&settings);
        player.setDiagnosticLog(&log);
    }
    ~PlayerUnderTest() { setPlayerLanguageSettings(nullptr); }

    // A copy of the generated fixture `name` at `relativePath` in the temporary folder.
    QUrl media(const QString& name, const QString& relativePath)
    {
        const QString target = dir.filePath(relativePath);
        QDir().mkpath(QFileInfo(target).absolutePath());
        QFile::copy(QStringLiteral(QV_DESKTOP_FIXTURE_DIR "/") + name, target);
        return QUrl::fromLocalFile(QFileInfo(target).canonicalFilePath());
    }

    bool waitPlaying(const QUrl& url)
    {
        return QTest::qWaitFor(
            [&] { return player.currentURL() == url && player.loaded() && !player.paused(); },
            30000);
    }
};

} // namespace quorvane::testing
