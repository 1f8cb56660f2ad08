#pragma once
// The player's persisted state in the settings store: recent files, resume points, watched
// progress, the playlist order and the hold multiplier. A missing or wrongly typed value always
// reads as its default; nothing here fails loudly.
#include "Playlist.h"

#include <QList>
#include <QUrl>
#include <QVariantMap>

class QSettings;

namespace quorvane::history {

inline constexpr auto kRecentFilesKey = "recentFiles";
inline constexpr auto kResumePositionsKey = "resumePositions";
inline constexpr auto kWatchedProgressKey = "watchedProgress";
inline constexpr auto kPlaylistSortOrderKey = "playlistSortOrder";
inline constexpr auto kHoldMultiplierKey = "holdMultiplier";

inline constexpr qsizetype kMaxRecentFiles = 12;
inline constexpr qsizetype kMaxResumePositions = 200;
inline constexpr double kResumeMargin = 5.0;

inline constexpr double kDefaultHoldMultiplier = 2.0;
inline constexpr double kMinHoldMultiplier = 1.25;
inline constexpr double kMaxHoldMultiplier = 20.0;

// The resume point worth keeping for position p in an item of duration d: p itself when it lies
// at least 5 s past the start and more than 5 s before the end, otherwise 0 (start over).
double resumePoint(double position, double duration);

// The key under which a file's history is kept: its canonical path.
QString historyKey(const QUrl& url);

QList<QUrl> readRecentFiles(QSettings& settings);
// The list after opening `url`: every copy removed, `url` in front, at most 12 entries.
QList<QUrl> withRecentFile(QList<QUrl> recent, const QUrl& url);
void writeRecentFiles(QSettings& settings, const QList<QUrl>& recent);

// A string -> finite double dictionary; entries of another type are skipped.
QVariantMap readNumberMap(QSettings& settings, const char* key);

double savedResumePoint(QSettings& settings, const QString& path);
// Stores one resume point; when the dictionary then exceeds 200 entries the entry whose path
// sorts first is removed (one per save), which may be the one just stored.
void storeResumePoint(QSettings& settings, const QString& path, double seconds);

// Sets the progress of `path` and keeps only entries above 0; returns what was stored.
QVariantMap storeWatchedProgress(QSettings& settings, QVariantMap progress, const QString& path,
                                 double fraction);

PlaylistSortOrder readPlaylistSortOrder(QSettings& settings);
double readHoldMultiplier(QSettings& settings);
bool isValidHoldMultiplier(double value);

void clear(QSettings& settings);

} // namespace quorvane::history
