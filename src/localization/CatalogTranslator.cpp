#include "CatalogTranslator.h"

#include "TranslationCatalog.h"

namespace quorvane {

CatalogTranslator::CatalogTranslator(QString language, QObject* parent)
    : QTranslator(parent), m_language(std::move(language))
{
}

QString CatalogTranslator::translate(const char*, const char* sourceText, const char*, int) const
{
    if (!sourceText) return {};
    const QString key = QString::fromUtf8(sourceText);
    const QString text = playerCatalog().text(key, m_language);
    // An empty answer tells Qt to show the source text itself.
    return text == key ? QString() : text;
}

} // namespace quorvane
