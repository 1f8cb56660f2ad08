#include "Localizer.h"

#include "TranslationCatalog.h"

#include <QStringList>

namespace quorvane {

Localizer::Localizer(QObject* parent) : QObject(parent) {}

QString Localizer::language() const
{
    return playerLanguage().language();
}

void Localizer::setLanguage(const QString& language)
{
    const QString before = playerLanguage().language();
    playerLanguage().setLanguage(language);
    if (playerLanguage().language() != before) emit languageChanged();
}

QStringList Localizer::supportedLanguages() const
{
    // English first: it is the language the interface is written in.
    QStringList languages = playerLanguage().supportedLanguages().values();
    std::sort(languages.begin(), languages.end(), [](const QString& a, const QString& b) {
        if (a == QLatin1String("en") || b == QLatin1String("en"))
            return a == QLatin1String("en") && b != QLatin1String("en");
        return a < b;
    });
    return languages;
}

QString Localizer::text(const QString& key) const
{
    return playerCatalog().text(key, language());
}

} // namespace quorvane
