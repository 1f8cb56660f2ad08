#include "PlayerListModels.h"

#include <QDir>
#include <QFileInfo>

namespace quorvane {

void FileListModel::setPlayer(Player* player)
{
    if (m_player == player) return;
    for (const auto& connection : std::as_const(m_connections))
        disconnect(connection);
    m_player = player;
    m_connections = player ? watch(player) : QList<QMetaObject::Connection>{};
    reload();
    emit playerChanged();
}

void FileListModel::reload()
{
    const int before = count();
    beginResetModel();
    m_urls = m_player ? urls(*m_player) : QList<QUrl>{};
    endResetModel();
    if (count() != before) emit countChanged();
}

int FileListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : count();
}

QVariant FileListModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= count()) return {};
    const QUrl& url = m_urls.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return QFileInfo(url.toLocalFile()).fileName();
    case UrlRole:
        return url;
    case FolderRole: {
        QString folder = QFileInfo(url.toLocalFile()).absolutePath();
        const QString home = QDir::homePath();
        if (home != QLatin1String("/") && folder.startsWith(home))
            folder.replace(0, home.size(), QStringLiteral("~"));
        return QDir::toNativeSeparators(folder);
    }
    case CurrentRole:
        return m_player && m_player->currentURL() == url;
    case ProgressRole:
        return m_player ? m_player->playbackProgress(url) : 0.0;
    default:
        return {};
    }
}

QHash<int, QByteArray> FileListModel::roleNames() const
{
    return {{UrlRole, "url"},
            {NameRole, "name"},
            {FolderRole, "folder"},
            {CurrentRole, "current"},
            {ProgressRole, "progress"}};
}

QList<QMetaObject::Connection> RecentFilesModel::watch(Player* player)
{
    return {connect(player, &Player::recentFilesChanged, this, &RecentFilesModel::reload),
            connect(player, &Player::watchedProgressChanged, this, &RecentFilesModel::reload)};
}

QList<QMetaObject::Connection> PlaylistModel::watch(Player* player)
{
    return {connect(player, &Player::playlistChanged, this, &PlaylistModel::reload),
            connect(player, &Player::currentURLChanged, this, &PlaylistModel::reload),
            connect(player, &Player::watchedProgressChanged, this, &PlaylistModel::reload)};
}

void TrackListModel::setPlayer(Player* player)
{
    if (m_player == player) return;
    for (const auto& connection : std::as_const(m_connections))
        disconnect(connection);
    m_player = player;
    m_connections.clear();
    if (player) {
        for (auto changed :
             {&Player::tracksChanged, &Player::audioIDChanged, &Player::subtitleIDChanged})
            m_connections.append(connect(player, changed, this, &TrackListModel::reload));
    }
    reload();
    emit playerChanged();
}

void TrackListModel::setKind(const QString& kind)
{
    if (m_kind == kind) return;
    m_kind = kind;
    reload();
    emit kindChanged();
}

void TrackListModel::reload()
{
    const int before = count();
    beginResetModel();
    m_tracks.clear();
    if (m_player) {
        for (const MediaTrack& track : m_player->tracks()) {
            if (track.type == m_kind) m_tracks.append(track);
        }
    }
    endResetModel();
    if (count() != before) emit countChanged();
}

int TrackListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : count();
}

QVariant TrackListModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= count()) return {};
    const MediaTrack& track = m_tracks.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case LabelRole:
        return track.label;
    case IdRole:
        return track.id;
    case SelectedRole:
        if (!m_player) return false;
        return track.id ==
               (m_kind == QLatin1String("audio") ? m_player->audioID() : m_player->subtitleID());
    default:
        return {};
    }
}

QHash<int, QByteArray> TrackListModel::roleNames() const
{
    return {{IdRole, "trackId"}, {LabelRole, "label"}, {SelectedRole, "selected"}};
}

} // namespace quorvane
