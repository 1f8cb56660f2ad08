#pragma once
// The application around the player model: the QML engine with the player window, the interface
// language behind every qsTr() text, the icon theme and the controls style. main() and the window
// tests build the same shell.
#include "AppSettings.h"
#include "CatalogTranslator.h"
#include "Localizer.h"
#include "UpdateNotice.h"

#include <QObject>
#include <QQmlApplicationEngine>
#include <QSettings>

class QQuickWindow;

namespace quorvane {

class Player;

class PlayerShell : public QObject {
    Q_OBJECT
public:
    // Call before the application object exists: the web engine, the controls style and its
    // settings.
    static void prepareApplication();

    explicit PlayerShell(Player& player, QObject* parent = nullptr);
    ~PlayerShell() override;

    // Creates the window; false when the QML failed to load.
    bool load();
    QQuickWindow* window() const;
    QQmlApplicationEngine& engine() { return m_engine; }
    Localizer& localizer() { return m_localizer; }
    AppSettings& appSettings() { return m_appSettings; }

private:
    void applyLanguage();

    Player& m_player;
    Localizer m_localizer;
    CatalogTranslator m_translator;
    QSettings m_defaults; // the application's own store, for the update notice
    UpdateNotice m_updateNotice{&m_defaults};
    // No updater on Linux: the distribution's packages update the program.
    AppSettings m_appSettings{&m_player, &m_updateNotice};
    QQmlApplicationEngine m_engine;
};

} // namespace quorvane
