#include "AppSettings.h"

#include "DiagnosticLog.h"
#include "FeedbackController.h"
#include "UpdateNotice.h"

#include <QFile>

namespace quorvane {

AppSettings::AppSettings(Player* player, UpdateNotice* notice, Updater* updater, QObject* parent)
    : QObject(parent), m_notice(notice), m_updater(updater),
      m_feedback(new FeedbackController(player, FeedbackService::configuredEndpoint(), this))
{
    connect(&m_localizer, &Localizer::languageChanged, this, &AppSettings::languageChanged);
}

AppSettings::~AppSettings() = default;

QString AppSettings::version() const
{
    return SupportDiagnostics::metadata().value(QStringLiteral("version"));
}

QString AppSettings::thirdPartyNotices() const
{
    // One page per supported language, compiled into the program.
    QFile page(QStringLiteral(":/notices/third-party-notices.%1.md").arg(language()));
    if (!page.open(QIODevice::ReadOnly)) return {};
    return QString::fromUtf8(page.readAll());
}

QString AppSettings::languageName(const QString& language)
{
    if (language == QLatin1String("en")) return QStringLiteral("English");
    if (language == QLatin1String("zh-Hans")) return QStringLiteral("简体中文");
    return language;
}

void AppSettings::checkForUpdates()
{
    if (m_updater) m_updater->checkForUpdates();
}

} // namespace quorvane
