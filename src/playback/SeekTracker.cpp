#include "SeekTracker.h"

#include <QtGlobal>

#include <utility>

namespace quorvane {

void SeekTracker::begin(const QUuid& id, qint64 targetMs, qint64 frameMs)
{
    m_id = id;
    m_targetMs = targetMs;
    // A frame-exact seek lands on the frame that covers the target, which can start up to one
    // frame before it. Its timestamp can also read up to two frames late: GStreamer stamps the
    // pictures of an MP4 with an edit list (the B-frame delay, as ffmpeg writes it) in the
    // media's time, the position in the edited time. Players that only reach key frames are
    // caught by expire().
    m_toleranceMs = qMax<qint64>(frameMs, 1) + 1;
    m_lateToleranceMs = 2 * qMax<qint64>(frameMs, 1) + 1;
    ++m_serial;
}

std::optional<QUuid> SeekTracker::arrived(qint64 timeMs)
{
    if (!m_id || timeMs < m_targetMs - m_toleranceMs || timeMs > m_targetMs + m_lateToleranceMs)
        return std::nullopt;
    return std::exchange(m_id, std::nullopt);
}

std::optional<QUuid> SeekTracker::expire(quint64 serial)
{
    if (serial != m_serial) return std::nullopt;
    return std::exchange(m_id, std::nullopt);
}

void SeekTracker::clear()
{
    m_id.reset();
    ++m_serial;
}

} // namespace quorvane
