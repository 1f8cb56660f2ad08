#pragma once
// The lists the views show, as models over the player's published lists: the recent files and
// the playlist with their watched progress, and the audio or subtitle tracks of the open file.
// Each resets when the lists it reads change.
#include "Player.h"

#include <QAbstractListModel>
#include <QPointer>
#include <QtQml/qqmlregistration.h>

namespace quorvane {

// Rows of files: the recent files or the playlist.
class FileListModel : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(quorvane::Player* player READ player WRITE setPlayer NOTIFY playerChanged FINAL)
    Q_PROPERTY(int count READ count NOTIFY countChanged FINAL)

public:
    enum Roles {
        UrlRole = Qt::UserRole + 1,
        NameRole,   // the file name
        FolderRole, // the folder's path, home shown as "~"
        CurrentRole,
        ProgressRole, // watched fraction, 0...1
    };

    using QAbstractListModel::QAbstractListModel;

    Player* player() const { return m_player; }
    void setPlayer(Player* player);
    int count() const { return int(m_urls.size()); }

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

signals:
    void playerChanged();
    void countChanged();

protected:
    virtual QList<QUrl> urls(const Player& player) const = 0;
    // Connects the player's change signals that affect the rows to reload().
    virtual QList<QMetaObject::Connection> watch(Player* player) = 0;
    void reload();

private:
    QPointer<Player> m_player;
    QList<QUrl> m_urls;
    QList<QMetaObject::Connection> m_connections;
};

class RecentFilesModel : public FileListModel {
    Q_OBJECT
    QML_ELEMENT
public:
    using FileListModel::FileListModel;

protected:
    QList<QUrl> urls(const Player& player) const override { return player.recentFiles(); }
    QList<QMetaObject::Connection> watch(Player* player) override;
};

class PlaylistModel : public FileListModel {
    Q_OBJECT
    QML_ELEMENT
public:
    using FileListModel::FileListModel;

protected:
    QList<QUrl> urls(const Player& player) const override { return player.playlist(); }
    QList<QMetaObject::Connection> watch(Player* player) override;
};

// The open file's tracks of one kind ("audio" or "subtitle").
class TrackListModel : public QAbstractListModel {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(quorvane::Player* player READ player WRITE setPlayer NOTIFY playerChanged FINAL)
    Q_PROPERTY(QString kind READ kind WRITE setKind NOTIFY kindChanged FINAL)
    Q_PROPERTY(int count READ count NOTIFY countChanged FINAL)

public:
    enum Roles { IdRole = Qt::UserRole + 1, LabelRole, SelectedRole };

    using QAbstractListModel::QAbstractListModel;

    Player* player() const { return m_player; }
    void setPlayer(Player* player);
    QString kind() const { return m_kind; }
    void setKind(const QString& kind);
    int count() const { return int(m_tracks.size()); }

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

signals:
    void playerChanged();
    void kindChanged();
    void countChanged();

private:
    void reload();

    QPointer<Player> m_player;
    QString m_kind = QStringLiteral("audio");
    QList<MediaTrack> m_tracks;
    QList<QMetaObject::Connection> m_connections;
};

} // namespace quorvane
