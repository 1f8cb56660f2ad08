#include "Localizer.h"

#include "TranslationCatalog.h"

#include <QList>
#include <QPointer>
#include <QStringList>

namespace quorvane {

namespace {

// The live Localizers, so that a language chosen in one window re-labels every other window too.
QList<Localizer*>& liveLocalizers()
{
    static QList<Localizer*> localizers;
    return localizers;
}

} // namespace

Localizer::Localizer(QObject* parent) : QObject(parent)
{
    liveLocalizers().append(this);
}

Localizer::~Localizer()
{
    liveLocalizers().removeOne(this);
}

QString Localizer::language() const
{
    return playerLanguage().language();
}

void Localizer::setLanguage(const QString& language)
{
    const QString before = playerLanguage().language();
    playerLanguage().setLanguage(language);
    if (playerLanguage().language() == before) return;
    // Guarded copies: a handler may create or destroy a Localizer while the change is announced.
    QList<QPointer<Localizer>> localizers;
    for (Localizer* localizer : liveLocalizers())
        localizers.append(localizer);
    for (const auto& localizer : localizers) {
        if (localizer) emit localizer->languageChanged();
    }
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
