#include "TranslationCatalog.h"

#include <QSettings>

#include <memory>

namespace quorvane {

TranslationCatalog::TranslationCatalog(QHash<QString, Table> translations)
    : m_translations(std::move(translations))
{
}

QString TranslationCatalog::text(const QString& key, const QString& language) const
{
    const auto table = m_translations.constFind(language);
    if (table == m_translations.cend()) return key;
    return table->value(key, key);
}

const TranslationCatalog::Table& chineseTranslations()
{
    static const TranslationCatalog::Table translations = [] {
        const auto& rows = chineseTranslationTable();
        TranslationCatalog::Table table;
        table.reserve(rows.size());
        for (const auto& [english, chinese] : rows) {
            // A repeated key would silently hide one of its translations.
            if (table.contains(english))
                qFatal("Duplicate key in the Chinese translation table: %s", qPrintable(english));
            table.insert(english, chinese);
        }
        return table;
    }();
    return translations;
}

const TranslationCatalog& playerCatalog()
{
    static const TranslationCatalog catalog({{QStringLiteral("zh-Hans"), chineseTranslations()}});
    return catalog;
}

LanguagePreferences::LanguagePreferences(QString key, QSet<QString> supportedLanguages,
                                         QString defaultLanguage, QSettings* defaults)
    : m_key(std::move(key)), m_supportedLanguages(std::move(supportedLanguages)),
      m_defaultLanguage(std::move(defaultLanguage)), m_defaults(defaults)
{
    if (m_key.isEmpty()) qFatal("LanguagePreferences needs a settings key");
    if (!m_supportedLanguages.contains(m_defaultLanguage))
        qFatal("LanguagePreferences: default language %s is not supported",
               qPrintable(m_defaultLanguage));
    if (!m_defaults) qFatal("LanguagePreferences needs a settings store");
}

QString LanguagePreferences::language() const
{
    const QVariant stored = m_defaults->value(m_key);
    if (stored.typeId() != QMetaType::QString) return m_defaultLanguage;
    const QString language = stored.toString();
    return m_supportedLanguages.contains(language) ? language : m_defaultLanguage;
}

void LanguagePreferences::setLanguage(const QString& language)
{
    if (m_supportedLanguages.contains(language)) m_defaults->setValue(m_key, language);
}

namespace {

struct SharedLanguage {
    std::unique_ptr<QSettings> ownSettings;
    std::unique_ptr<LanguagePreferences> preferences;
};

SharedLanguage& sharedLanguage()
{
    static SharedLanguage shared;
    return shared;
}

LanguagePreferences makePlayerLanguage(QSettings* settings)
{
    return LanguagePreferences(QStringLiteral("interfaceLanguage"),
                               {QStringLiteral("en"), QStringLiteral("zh-Hans")},
                               QStringLiteral("en"), settings);
}

} // namespace

LanguagePreferences& playerLanguage()
{
    auto& shared = sharedLanguage();
    if (!shared.preferences) {
        // The application's own settings, created on first use after the application object
        // has named the organisation and application.
        shared.ownSettings = std::make_unique<QSettings>();
        shared.preferences =
            std::make_unique<LanguagePreferences>(makePlayerLanguage(shared.ownSettings.get()));
    }
    return *shared.preferences;
}

void setPlayerLanguageSettings(QSettings* settings)
{
    auto& shared = sharedLanguage();
    if (!settings) {
        shared.preferences.reset();
        return;
    }
    shared.preferences = std::make_unique<LanguagePreferences>(makePlayerLanguage(settings));
}

QString translate(const QString& key)
{
    return playerCatalog().text(key, playerLanguage().language());
}

} // namespace quorvane
