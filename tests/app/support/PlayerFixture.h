#pragma once
// A player over a scripted backend, settings in a temporary INI file, an in-memory diagnostic log
// and a clock the test moves by hand.
#include "DiagnosticLog.h"
#include "Player.h"
#include "TranslationCatalog.h"
#include "support/ScriptedBackend.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <memory>

namespace quorvane::testing {

struct PlayerFixture {
    QTemporaryDir dir;
    std::unique_ptr<QSettings> settings;
    DiagnosticLog log;
    double clock = 1000;
    ScriptedBackend* backend = nullptr;
    std::unique_ptr<Player> player;

    PlayerFixture() { reopenSettings(); }
    ~PlayerFixture() { setPlayerLanguageSettings(nullptr); }

    // Writes the settings file and reads it back from disk, as a new launch would. Translations
    // stay hermetic: English, from the test's own settings.
    void reopenSettings()
    {
        player.reset();
        if (settings) settings->sync();
        settings = std::make_unique<QSettings>(dir.filePath("settings.ini"), QSettings::IniFormat);
        setPlayerLanguageSettings(settings.get());
        makePlayer();
    }

    // A new player over the same settings, as after a restart.
    void makePlayer(bool muted = false)
    {
        player.reset();
        auto scripted = std::make_unique<ScriptedBackend>();
        backend = scripted.get();
        player = std::make_unique<Player>(settings.get(), std::move(scripted), muted);
        player->setClock([this] { return clock; });
        player->setDiagnosticLog(&log);
        // Tests drive refresh() themselves.
        player->refreshTimer()->stop();
    }

    // Moves the clock on and lets the player take a snapshot, as its timer would.
    void advance(double seconds)
    {
        clock += seconds;
        player->refresh();
    }

    // An empty file in the temporary folder (or a subfolder), returned as its canonical URL.
    QUrl file(const QString& relativePath)
    {
        const QString path = dir.filePath(relativePath);
        QDir().mkpath(QFileInfo(path).absolutePath());
        if (QFile f(path); !f.exists()) f.open(QIODevice::WriteOnly);
        return QUrl::fromLocalFile(QFileInfo(path).canonicalFilePath());
    }

    // Opens `url` and lets the backend report it ready with the given duration.
    void load(const QUrl& url, double duration, QList<PlaybackTrack> tracks = {})
    {
        player->open(url);
        backend->emitEvent(PlaybackEvents::Ready{{duration, 1920, 1080, 24, false, tracks}});
    }

    QList<DiagnosticLog::Entry> records(const QString& event) const
    {
        QList<DiagnosticLog::Entry> found = log.entries();
        found.removeIf([&](const DiagnosticLog::Entry& entry) { return entry.event != event; });
        return found;
    }
};

} // namespace quorvane::testing
