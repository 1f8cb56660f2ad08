#pragma once
// The interface is written in English, and the English text is the lookup key. Only Simplified
// Chinese has a table; every other language, and every missing key, shows the key itself.
#include <QHash>
#include <QSet>
#include <QString>

class QSettings;

namespace quorvane {

class TranslationCatalog {
public:
    using Table = QHash<QString, QString>;
    explicit TranslationCatalog(QHash<QString, Table> translations);

    QString text(const QString& key, const QString& language) const;
    const QHash<QString, Table>& translations() const { return m_translations; }

private:
    QHash<QString, Table> m_translations;
};

// The built-in English -> Simplified Chinese table, in table order (duplicates are a fault).
const QList<QPair<QString, QString>>& chineseTranslationTable();
const TranslationCatalog::Table& chineseTranslations();
const TranslationCatalog& playerCatalog();

class LanguagePreferences {
public:
    // `key` must be non-empty and `defaultLanguage` one of `supportedLanguages`.
    LanguagePreferences(QString key, QSet<QString> supportedLanguages, QString defaultLanguage,
                        QSettings* defaults);

    // The stored choice when it is supported, else the default. Never cached.
    QString language() const;
    // Stores only supported languages; anything else is ignored.
    void setLanguage(const QString& language);

    const QString& key() const { return m_key; }
    const QString& defaultLanguage() const { return m_defaultLanguage; }
    const QSet<QString>& supportedLanguages() const { return m_supportedLanguages; }

private:
    QString m_key;
    QSet<QString> m_supportedLanguages;
    QString m_defaultLanguage;
    QSettings* m_defaults;
};

// "interfaceLanguage", {"en", "zh-Hans"}, "en", over the application's settings. The settings
// object defaults to a QSettings() of the application, made on first use (after the application
// object has its organisation and name); tests may point it elsewhere first, and nullptr goes back
// to the default. GUI thread only.
LanguagePreferences& playerLanguage();
void setPlayerLanguageSettings(QSettings* settings);

// The text to show for an English key in the current interface language.
QString translate(const QString& key);

} // namespace quorvane
