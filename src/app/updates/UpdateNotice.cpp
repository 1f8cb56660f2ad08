#include "UpdateNotice.h"

#include <QSettings>

namespace quorvane {

namespace {
const QString storedBuildKey = QStringLiteral("updateAvailableForBuild");
}

UpdateNotice::UpdateNotice(QSettings* defaults, QObject* parent)
    : UpdateNotice(defaults, compiledBuild(), parent)
{
}

UpdateNotice::UpdateNotice(QSettings* defaults, QString build, QObject* parent)
    : QObject(parent), m_defaults(defaults), m_build(std::move(build))
{
    if (m_build.isEmpty()) return;
    // Only a string equal to this build counts; a number stored by an older build means the
    // program has been updated since.
    const QVariant stored = m_defaults->value(storedBuildKey);
    m_available = stored.typeId() == QMetaType::QString && stored.toString() == m_build;
}

QString UpdateNotice::compiledBuild()
{
    return QStringLiteral(QV_BUILD_NUMBER);
}

void UpdateNotice::setAvailable(bool available)
{
    publish(available);
    if (available && !m_build.isEmpty())
        m_defaults->setValue(storedBuildKey, m_build);
    else
        m_defaults->remove(storedBuildKey);
}

void UpdateNotice::didFindValidUpdate()
{
    setAvailable(true);
}

void UpdateNotice::didNotFindUpdate()
{
    setAvailable(false);
}

void UpdateNotice::userDidMakeChoice(UpdateChoice choice)
{
    // Installing or dismissing leaves the notice up: the update is still there.
    if (choice == UpdateChoice::Skip) setAvailable(false);
}

void UpdateNotice::publish(bool available)
{
    if (m_available == available) return;
    m_available = available;
    emit availableChanged();
}

} // namespace quorvane
