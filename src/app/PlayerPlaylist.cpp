// The player's play queue: building it from added files and from the folder of an opened file,
// keeping it sorted, and stepping through it.
#include "PlaybackHistory.h"
#include "Player.h"
#include "TranslationCatalog.h"

#include <QFileInfo>
#include <QSettings>
#include <QtConcurrent/QtConcurrentRun>

namespace quorvane {

bool Player::isMediaFile(const QUrl& url, bool videoOnly)
{
    return quorvane::isMediaFile(url, videoOnly);
}

void Player::addFiles(bool openFirst, const QList<QUrl>& urls)
{
    QList<QUrl> accepted;
    for (const QUrl& url : urls) {
        if (!url.isLocalFile()) continue;
        if (QFileInfo(url.toLocalFile()).isDir() || quorvane::isMediaFile(url, false))
            accepted.append(url);
    }
    if (accepted.isEmpty()) {
        setError(translate(QStringLiteral("Choose a readable video or audio file")));
        return;
    }
    startPlaylistScan(accepted, false, openFirst);
}

void Player::startPlaylistScan(const QList<QUrl>& urls, bool replace, bool openFirst)
{
    const int generation = ++m_playlistGeneration;
    // Finished scans are forgotten here so that the list only holds what may still be running.
    m_scans.removeIf([](const QFuture<void>& scan) { return scan.isFinished(); });

    QPointer<Player> self(this);
    m_scans.append(QtConcurrent::run([self, this, urls, generation, replace, openFirst] {
        QList<QUrl> files = scanPlaylistFiles(urls);
        // The destructor waits for running scans, so `this` is alive for the post; the queued
        // call itself is dropped if the player is gone by the time it would run.
        QMetaObject::invokeMethod(
            this,
            [self, generation, files = std::move(files), replace, openFirst] {
                if (self) self->finishPlaylistScan(generation, files, replace, openFirst);
            },
            Qt::QueuedConnection);
    }));
}

void Player::finishPlaylistScan(int generation, const QList<QUrl>& files, bool replace,
                                bool openFirst)
{
    if (generation != m_playlistGeneration) return;

    QList<QUrl> playlist = replace ? QList<QUrl>() : m_playlist;
    // The open file stays in a rebuilt list even when its folder listing skipped it.
    if (replace && !m_currentURL.isEmpty() && !files.contains(m_currentURL))
        playlist.append(m_currentURL);
    for (const QUrl& file : files) {
        if (!playlist.contains(file)) playlist.append(file);
    }
    setPlaylist(sortedPlaylist(playlist, m_playlistSortOrder, m_creationDate));

    if (openFirst && !files.isEmpty())
        open(sortedPlaylist(files, m_playlistSortOrder, m_creationDate).constFirst());
}

void Player::chooseFile()
{
    emit chooseFileRequested();
}

void Player::removeFile(const QUrl& url)
{
    QList<QUrl> playlist = m_playlist;
    const QUrl canonical = canonicalFileUrl(url);
    playlist.removeAll(url);
    if (!canonical.isEmpty()) playlist.removeAll(canonical);
    setPlaylist(playlist);
}

void Player::next(int step)
{
    const qsizetype index = m_playlist.indexOf(m_currentURL);
    if (m_currentURL.isEmpty() || index < 0) return;
    const qint64 target = qint64(index) + step;
    if (target < 0 || target >= m_playlist.size()) return;
    open(m_playlist.at(target));
}

void Player::sortPlaylist()
{
    setPlaylist(sortedPlaylist(m_playlist, m_playlistSortOrder, m_creationDate));
}

void Player::setPlaylistSortOrder(PlaylistSortOrder order)
{
    m_defaults->setValue(QLatin1String(history::kPlaylistSortOrderKey), rawValue(order));
    if (m_playlistSortOrder != order) {
        m_playlistSortOrder = order;
        emit playlistSortOrderChanged();
    }
    sortPlaylist();
}

void Player::setPlaylistSortOrderName(const QString& order)
{
    if (const auto parsed = quorvane::playlistSortOrder(order)) setPlaylistSortOrder(*parsed);
}

void Player::setCreationDateSource(CreationDateSource source)
{
    m_creationDate = source ? std::move(source) : CreationDateSource(fileCreationDate);
}

} // namespace quorvane
