#pragma once
// Puts the catalog behind qsTr(): views write their English texts with qsTr(), this translator
// answers from the catalog for the interface language, and a change of language followed by the
// QML engine's retranslate() re-labels every visible text at run time.
#include <QTranslator>

namespace quorvane {

class CatalogTranslator : public QTranslator {
    Q_OBJECT
public:
    explicit CatalogTranslator(QString language, QObject* parent = nullptr);

    void setLanguage(const QString& language) { m_language = language; }
    QString language() const { return m_language; }

    QString translate(const char* context, const char* sourceText, const char* disambiguation,
                      int n) const override;
    bool isEmpty() const override { return false; }

private:
    QString m_language;
};

} // namespace quorvane
