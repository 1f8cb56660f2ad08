#include "PlaybackHistory.h"

#include <QFileInfo>
#include <QSettings>

#include <cmath>

namespace quorvane::history {

namespace {

std::optional<double> finiteNumber(const QVariant& value)
{
    // Strings count too: the INI format stores every number as text.
    switch (value.typeId()) {
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::QString:
        break;
    default:
        return std::nullopt;
    }
    bool ok = false;
    const double number = value.toDouble(&ok);
    if (!ok || !std::isfinite(number)) return std::nullopt;
    return number;
}

} // namespace

double resumePoint(double position, double duration)
{
    if (!std::isfinite(position) || !std::isfinite(duration) || duration <= 0) return 0;
    if (position >= kResumeMargin && position < duration - kResumeMargin) return position;
    return 0;
}

QString historyKey(const QUrl& url)
{
    if (!url.isLocalFile()) return {};
    const QString path = url.toLocalFile();
    const QString canonical = QFileInfo(path).canonicalFilePath();
    return canonical.isEmpty() ? path : canonical;
}

QList<QUrl> readRecentFiles(QSettings& settings)
{
    const QVariant value = settings.value(QLatin1String(kRecentFilesKey));
    QStringList paths;
    if (value.typeId() == QMetaType::QStringList) {
        paths = value.toStringList();
    } else if (value.typeId() == QMetaType::QVariantList) {
        for (const QVariant& item : value.toList()) {
            if (item.typeId() == QMetaType::QString) paths.append(item.toString());
        }
    } else if (value.typeId() == QMetaType::QString) {
        // The INI format writes a one-element list as a plain string.
        paths.append(value.toString());
    }

    QList<QUrl> recent;
    for (const QString& path : paths) {
        if (path.isEmpty()) continue;
        const QUrl url = QUrl::fromLocalFile(path);
        if (!recent.contains(url)) recent.append(url);
        if (recent.size() == kMaxRecentFiles) break;
    }
    return recent;
}

QList<QUrl> withRecentFile(QList<QUrl> recent, const QUrl& url)
{
    recent.removeAll(url);
    recent.prepend(url);
    if (recent.size() > kMaxRecentFiles) recent.resize(kMaxRecentFiles);
    return recent;
}

void writeRecentFiles(QSettings& settings, const QList<QUrl>& recent)
{
    QStringList paths;
    for (const QUrl& url : recent)
        paths.append(url.toLocalFile());
    settings.setValue(QLatin1String(kRecentFilesKey), paths);
}

QVariantMap readNumberMap(QSettings& settings, const char* key)
{
    const QVariant value = settings.value(QLatin1String(key));
    if (value.typeId() != QMetaType::QVariantMap) return {};
    QVariantMap numbers;
    const QVariantMap stored = value.toMap();
    for (auto it = stored.cbegin(); it != stored.cend(); ++it) {
        if (const auto number = finiteNumber(it.value())) numbers.insert(it.key(), *number);
    }
    return numbers;
}

double savedResumePoint(QSettings& settings, const QString& path)
{
    if (path.isEmpty()) return 0;
    return readNumberMap(settings, kResumePositionsKey).value(path, 0.0).toDouble();
}

void storeResumePoint(QSettings& settings, const QString& path, double seconds)
{
    if (path.isEmpty()) return;
    QVariantMap positions = readNumberMap(settings, kResumePositionsKey);
    positions.insert(path, seconds);
    // Deliberately by path order rather than age: cheap, and bounded to one removal per save.
    if (positions.size() > kMaxResumePositions) positions.erase(positions.begin());
    settings.setValue(QLatin1String(kResumePositionsKey), positions);
}

QVariantMap storeWatchedProgress(QSettings& settings, QVariantMap progress, const QString& path,
                                 double fraction)
{
    if (!path.isEmpty()) progress.insert(path, fraction);
    for (auto it = progress.begin(); it != progress.end();) {
        const auto number = finiteNumber(it.value());
        if (number && *number > 0)
            ++it;
        else
            it = progress.erase(it);
    }
    settings.setValue(QLatin1String(kWatchedProgressKey), progress);
    return progress;
}

PlaylistSortOrder readPlaylistSortOrder(QSettings& settings)
{
    const QVariant value = settings.value(QLatin1String(kPlaylistSortOrderKey));
    if (value.typeId() != QMetaType::QString) return PlaylistSortOrder::Name;
    return playlistSortOrder(value.toString()).value_or(PlaylistSortOrder::Name);
}

bool isValidHoldMultiplier(double value)
{
    return std::isfinite(value) && value >= kMinHoldMultiplier && value <= kMaxHoldMultiplier;
}

double readHoldMultiplier(QSettings& settings)
{
    const auto number = finiteNumber(settings.value(QLatin1String(kHoldMultiplierKey)));
    return number && isValidHoldMultiplier(*number) ? *number : kDefaultHoldMultiplier;
}

void clear(QSettings& settings)
{
    settings.remove(QLatin1String(kRecentFilesKey));
    settings.remove(QLatin1String(kResumePositionsKey));
    settings.remove(QLatin1String(kWatchedProgressKey));
}

} // namespace quorvane::history
