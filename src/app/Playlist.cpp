#include "Playlist.h"

#include <QCollator>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QLocale>
#include <QMimeDatabase>

#include <algorithm>

namespace quorvane {

QString rawValue(PlaylistSortOrder order)
{
    return order == PlaylistSortOrder::CreationDate ? QStringLiteral("creationDate")
                                                    : QStringLiteral("name");
}

std::optional<PlaylistSortOrder> playlistSortOrder(const QString& rawValue)
{
    if (rawValue == QLatin1String("name")) return PlaylistSortOrder::Name;
    if (rawValue == QLatin1String("creationDate")) return PlaylistSortOrder::CreationDate;
    return std::nullopt;
}

const QStringList& mediaFileExtensions()
{
    static const QStringList extensions = {
        QStringLiteral("mp4"), QStringLiteral("m4v"),  QStringLiteral("mkv"),
        QStringLiteral("mov"), QStringLiteral("avi"),  QStringLiteral("webm"),
        QStringLiteral("ts"),  QStringLiteral("mts"),  QStringLiteral("m2ts"),
        QStringLiteral("mpg"), QStringLiteral("mpeg"), QStringLiteral("wmv"),
        QStringLiteral("flv"), QStringLiteral("vob"),  QStringLiteral("ogv")};
    return extensions;
}

namespace {

bool mimeIsA(const QMimeType& type, QLatin1String prefix)
{
    if (type.name().startsWith(prefix)) return true;
    const QStringList ancestors = type.allAncestors();
    return std::any_of(ancestors.begin(), ancestors.end(),
                       [prefix](const QString& name) { return name.startsWith(prefix); });
}

} // namespace

bool isMediaFile(const QUrl& url, bool videoOnly)
{
    if (!url.isLocalFile()) return false;
    const QString path = url.toLocalFile();
    const QString extension = QFileInfo(path).suffix().toLower();
    if (mediaFileExtensions().contains(extension)) return true;
    if (extension.isEmpty()) return false;

    // QMimeDatabase is documented as thread-safe, so this also runs inside the folder scan.
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path, QMimeDatabase::MatchExtension);
    if (mimeIsA(type, QLatin1String("video/"))) return true;
    return !videoOnly && mimeIsA(type, QLatin1String("audio/"));
}

QUrl canonicalFileUrl(const QUrl& url)
{
    if (!url.isLocalFile()) return {};
    const QString canonical = QFileInfo(url.toLocalFile()).canonicalFilePath();
    return canonical.isEmpty() ? QUrl() : QUrl::fromLocalFile(canonical);
}

QList<QUrl> scanPlaylistFiles(const QList<QUrl>& urls)
{
    QList<QUrl> files;
    const auto add = [&files](const QFileInfo& info) {
        const QUrl url = QUrl::fromLocalFile(info.canonicalFilePath());
        if (!info.canonicalFilePath().isEmpty() && !files.contains(url)) files.append(url);
    };
    for (const QUrl& url : urls) {
        if (!url.isLocalFile()) continue;
        const QFileInfo info(url.toLocalFile());
        if (info.isDir()) {
            // Hidden files are skipped: they are rarely meant to be played and often are
            // resource forks or partial downloads.
            const QFileInfoList children =
                QDir(info.absoluteFilePath())
                    .entryInfoList(QDir::Files | QDir::Readable, QDir::NoSort);
            for (const QFileInfo& child : children) {
                if (child.isFile() && child.isReadable() &&
                    isMediaFile(QUrl::fromLocalFile(child.absoluteFilePath()), false))
                    add(child);
            }
        } else if (info.isFile() && info.isReadable()) {
            add(info);
        }
    }
    return files;
}

QDateTime fileCreationDate(const QUrl& url)
{
    return QFileInfo(url.toLocalFile()).birthTime();
}

QList<QUrl> sortedPlaylist(QList<QUrl> urls, PlaylistSortOrder order,
                           const CreationDateSource& creationDate)
{
    QHash<QUrl, qint64> dates;
    if (order == PlaylistSortOrder::CreationDate) {
        for (const QUrl& url : urls) {
            const QDateTime date = creationDate ? creationDate(url) : QDateTime();
            dates.insert(url, date.isValid() ? date.toMSecsSinceEpoch()
                                             : std::numeric_limits<qint64>::min());
        }
    }

    // The C locale's collation ignores numeric mode, so a machine without a locale sorts as in
    // English: "Episode 2" still comes before "Episode 10".
    QLocale locale;
    if (locale.language() == QLocale::C) locale = QLocale(QLocale::English, QLocale::UnitedStates);
    QCollator collator(locale);
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);

    std::stable_sort(urls.begin(), urls.end(), [&](const QUrl& a, const QUrl& b) {
        if (order == PlaylistSortOrder::CreationDate) {
            const qint64 da = dates.value(a), db = dates.value(b);
            if (da != db) return da > db;
        }
        const int byName = collator.compare(a.fileName(), b.fileName());
        if (byName != 0) return byName < 0;
        return a.toLocalFile() < b.toLocalFile();
    });
    return urls;
}

} // namespace quorvane
