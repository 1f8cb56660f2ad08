#pragma once
// Exposes the interface language to QML. Views bind to `text(key)` together with `language`, so a
// change of language re-evaluates every visible text at run time. Every window may hold its own
// Localizer: a change made through any of them is announced by all of them. GUI thread only.
#include <QObject>
#include <QString>

namespace quorvane {

class Localizer : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString language READ language WRITE setLanguage NOTIFY languageChanged FINAL)
    Q_PROPERTY(QStringList supportedLanguages READ supportedLanguages CONSTANT FINAL)

public:
    explicit Localizer(QObject* parent = nullptr);
    ~Localizer() override;

    QString language() const;
    void setLanguage(const QString& language);
    QStringList supportedLanguages() const;

    // The text for `key` in the current language.
    Q_INVOKABLE QString text(const QString& key) const;

signals:
    void languageChanged();
};

} // namespace quorvane
