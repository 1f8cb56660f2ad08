#pragma once
// Remembers across launches that an update was found for the running build, so that the about
// page can say "A new version is available" until the user updates or skips that version. The
// notice persists as one settings value, "updateAvailableForBuild": the build that was running
// when the update was found. A newer build no longer matches it, which clears the notice.
#include "Updater.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

class QSettings;

namespace quorvane {

class UpdateNotice : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The application owns the update notice")
    Q_PROPERTY(bool available READ available NOTIFY availableChanged FINAL)

public:
    // `defaults` must outlive the notice. `build` is the running build number; the compiled one
    // when left out. An empty build never shows or stores a notice.
    explicit UpdateNotice(QSettings* defaults, QObject* parent = nullptr);
    UpdateNotice(QSettings* defaults, QString build, QObject* parent = nullptr);

    bool available() const { return m_available; }
    void setAvailable(bool available);
    QString build() const { return m_build; }

    // The updater's findings.
    void didFindValidUpdate();
    // No update, or the check failed: both clear the notice.
    void didNotFindUpdate();
    void userDidMakeChoice(UpdateChoice choice);

    static QString compiledBuild();

signals:
    void availableChanged();

private:
    void publish(bool available);

    QSettings* m_defaults;
    QString m_build;
    bool m_available = false;
};

} // namespace quorvane
