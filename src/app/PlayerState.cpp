// Setters of the published state: each writes and notifies only when the value changes, so that
// the 0.2 s refresh does not wake observers on every tick.
#include "Player.h"

namespace quorvane {

void Player::setRecentFiles(const QList<QUrl>& value)
{
    if (m_recentFiles == value) return;
    m_recentFiles = value;
    emit recentFilesChanged();
}

void Player::setWatchedProgress(const QVariantMap& value)
{
    if (m_watchedProgress == value) return;
    m_watchedProgress = value;
    emit watchedProgressChanged();
}

void Player::setTitle(const QString& value)
{
    if (m_title == value) return;
    m_title = value;
    emit titleChanged();
}

void Player::setLoaded(bool value)
{
    if (m_loaded == value) return;
    m_loaded = value;
    emit loadedChanged();
}

void Player::setPaused(bool value)
{
    if (m_paused == value) return;
    m_paused = value;
    emit pausedChanged();
}

void Player::setPosition(double value)
{
    if (m_position == value) return;
    m_position = value;
    emit positionChanged();
}

void Player::setDuration(double value)
{
    if (m_duration == value) return;
    m_duration = value;
    emit durationChanged();
}

void Player::setVideoSize(const QSizeF& value)
{
    if (m_videoSize == value) return;
    m_videoSize = value;
    emit videoSizeChanged();
}

void Player::setVolume(double value)
{
    if (m_volume == value) return;
    m_volume = value;
    emit volumeChanged();
}

void Player::setShowingVolume(bool value)
{
    if (m_showingVolume == value) return;
    m_showingVolume = value;
    emit showingVolumeChanged();
}

void Player::setError(const QString& value)
{
    if (m_error == value) return;
    m_error = value;
    emit errorChanged();
}

void Player::setPlaylist(const QList<QUrl>& value)
{
    if (m_playlist == value) return;
    m_playlist = value;
    emit playlistChanged();
}

void Player::setCurrentURL(const QUrl& value)
{
    if (m_currentURL == value) return;
    m_currentURL = value;
    emit currentURLChanged();
}

void Player::setTracks(const QList<MediaTrack>& value)
{
    if (m_tracks == value) return;
    m_tracks = value;
    emit tracksChanged();
}

void Player::setSubtitleID(qint64 value)
{
    if (m_subtitleID == value) return;
    m_subtitleID = value;
    emit subtitleIDChanged();
}

void Player::setAudioID(qint64 value)
{
    if (m_audioID == value) return;
    m_audioID = value;
    emit audioIDChanged();
}

void Player::setHdrContent(bool value)
{
    if (m_hdrContent == value) return;
    m_hdrContent = value;
    emit hdrContentChanged();
}

void Player::setHdrOutput(bool value)
{
    if (m_hdrOutput == value) return;
    m_hdrOutput = value;
    emit hdrOutputChanged();
}

void Player::setVideoFPS(double value)
{
    if (m_videoFPS == value) return;
    m_videoFPS = value;
    emit videoFPSChanged();
}

void Player::setDroppedFrames(double value)
{
    if (m_droppedFrames == value) return;
    m_droppedFrames = value;
    emit droppedFramesChanged();
}

void Player::setSpeed(double value)
{
    if (m_speed == value) return;
    m_speed = value;
    emit speedChanged();
}

void Player::setIsBoosting(bool value)
{
    if (m_isBoosting == value) return;
    m_isBoosting = value;
    emit isBoostingChanged();
}

void Player::setShowingBoost(bool value)
{
    if (m_showingBoost == value) return;
    m_showingBoost = value;
    emit showingBoostChanged();
}

} // namespace quorvane
