#pragma once
// Runs a test with the interface in one language, on settings of its own that vanish afterwards.
#include "TranslationCatalog.h"

#include <QSettings>
#include <QTemporaryDir>

namespace quorvane::testing {

class InterfaceLanguage {
public:
    explicit InterfaceLanguage(const QString& language)
        : m_settings(m_dir.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat)
    {
        setPlayerLanguageSettings(&m_settings);
        playerLanguage().setLanguage(language);
    }
    ~InterfaceLanguage() { setPlayerLanguageSettings(nullptr); }
    InterfaceLanguage(const InterfaceLanguage&) = delete;
    InterfaceLanguage& operator=(const InterfaceLanguage&) = delete;

private:
    QTemporaryDir m_dir;
    QSettings m_settings;
};

} // namespace quorvane::testing
