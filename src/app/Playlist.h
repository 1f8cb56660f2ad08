#pragma once
// What counts as a media file, how a batch of added files and folders becomes a list of files,
// and the two playlist orders. Everything here is free of player state so that the folder scan
// can run on a worker thread.
#include <QDateTime>
#include <QList>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

namespace quorvane {

enum class PlaylistSortOrder { Name, CreationDate };

// "name" / "creationDate"; anything else is no order.
QString rawValue(PlaylistSortOrder order);
std::optional<PlaylistSortOrder> playlistSortOrder(const QString& rawValue);

// The container extensions always accepted, lower case, in a fixed order.
const QStringList& mediaFileExtensions();

// A file URL whose extension is in the list above, or whose MIME type (by extension) is a video
// type, or, unless `videoOnly`, an audio type.
bool isMediaFile(const QUrl& url, bool videoOnly);

// The standardised file URL with symbolic links resolved; an empty URL for anything that is not
// an existing local file or folder.
QUrl canonicalFileUrl(const QUrl& url);

// Expands folders into their readable, regular media files (one level) and keeps readable plain
// files. Blocking file-system work: call it off the GUI thread.
QList<QUrl> scanPlaylistFiles(const QList<QUrl>& urls);

// The creation date of a file; an invalid date counts as the distant past.
using CreationDateSource = std::function<QDateTime(const QUrl&)>;
QDateTime fileCreationDate(const QUrl& url);

// Newest first for CreationDate (ties fall through to the name order); ascending natural,
// case-insensitive file-name order for Name, ties broken by the full path. Dates are read once
// per entry before sorting.
QList<QUrl> sortedPlaylist(QList<QUrl> urls, PlaylistSortOrder order,
                           const CreationDateSource& creationDate = fileCreationDate);

} // namespace quorvane
