// The player's side of the playback history: resume points and watched progress of the open
// item, and forgetting everything.
#include "PlaybackHistory.h"
#include "Player.h"

#include <QSettings>

#include <algorithm>
#include <cmath>

namespace quorvane {

void Player::savePosition()
{
    if (m_currentURL.isEmpty()) return;
    const QString path = history::historyKey(m_currentURL);
    history::storeResumePoint(*m_defaults, path, history::resumePoint(m_position, m_duration));
    setWatchedProgress(history::storeWatchedProgress(*m_defaults, m_watchedProgress, path,
                                                     playbackProgress(m_currentURL)));
    m_lastSavedAt = now();
}

double Player::savedPosition(const QUrl& url) const
{
    return history::savedResumePoint(*m_defaults, history::historyKey(url));
}

double Player::playbackProgress(const QUrl& url) const
{
    const QString path = history::historyKey(url);
    if (path.isEmpty()) return 0;
    if (!m_currentURL.isEmpty() && path == history::historyKey(m_currentURL)) {
        if (!(m_duration > 0) || !std::isfinite(m_position)) return 0;
        return std::clamp(m_position / m_duration, 0.0, 1.0);
    }
    return m_watchedProgress.value(path, 0.0).toDouble();
}

void Player::clearHistory()
{
    history::clear(*m_defaults);
    setRecentFiles({});
    setWatchedProgress({});
}

} // namespace quorvane
