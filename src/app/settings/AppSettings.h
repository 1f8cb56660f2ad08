#pragma once
// The model behind the settings window: the interface language, the feedback form, the update
// notice and the about page's facts. It decides nothing itself; each control writes to the
// model it shows. Texts go through the catalog with the current language, and a language chosen
// here re-labels every window at once (see Localizer).
#include "FeedbackController.h"
#include "Localizer.h"
#include "UpdateNotice.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

namespace quorvane {

class Player;

class AppSettings : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The application owns its settings")
    Q_PROPERTY(QString language READ language WRITE setLanguage NOTIFY languageChanged FINAL)
    Q_PROPERTY(QStringList supportedLanguages READ supportedLanguages CONSTANT FINAL)
    // Where `language` stands in `supportedLanguages`, for the picker.
    Q_PROPERTY(int languageIndex READ languageIndex NOTIFY languageChanged FINAL)
    Q_PROPERTY(QString version READ version CONSTANT FINAL)
    // False when the program has no updater (always on Linux).
    Q_PROPERTY(bool hasUpdater READ hasUpdater CONSTANT FINAL)
    Q_PROPERTY(quorvane::UpdateNotice* updateNotice READ updateNotice CONSTANT FINAL)
    Q_PROPERTY(quorvane::FeedbackController* feedback READ feedback CONSTANT FINAL)
    // The third-party notices shipped with the program, in the current language (Markdown).
    Q_PROPERTY(QString thirdPartyNotices READ thirdPartyNotices NOTIFY languageChanged FINAL)

public:
    // `notice` and `updater` (null when there is none) must outlive the settings. The feedback
    // form sends to the configured endpoint.
    AppSettings(Player* player, UpdateNotice* notice, Updater* updater = nullptr,
                QObject* parent = nullptr);
    ~AppSettings() override;

    QString language() const { return m_localizer.language(); }
    // Stores the choice through the language preference; unsupported codes are ignored.
    void setLanguage(const QString& language) { m_localizer.setLanguage(language); }
    QStringList supportedLanguages() const { return m_localizer.supportedLanguages(); }
    int languageIndex() const { return supportedLanguages().indexOf(language()); }
    QString version() const;
    bool hasUpdater() const { return m_updater != nullptr; }
    UpdateNotice* updateNotice() const { return m_notice; }
    FeedbackController* feedback() const { return m_feedback; }
    QString thirdPartyNotices() const;

    // The text for an English key in the current language. Bind it together with `language`.
    Q_INVOKABLE QString text(const QString& key) const { return m_localizer.text(key); }
    // A language's name in that language itself, as the picker lists it.
    Q_INVOKABLE static QString languageName(const QString& language);
    // Does nothing without an updater.
    Q_INVOKABLE void checkForUpdates();

signals:
    void languageChanged();

private:
    Localizer m_localizer;
    UpdateNotice* m_notice;
    Updater* m_updater;
    FeedbackController* m_feedback;
};

} // namespace quorvane
