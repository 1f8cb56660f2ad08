#pragma once
// The bookkeeping of id-matched seeks for a player that reports no completion of its own. Only the
// latest seek can complete: a newer one silently replaces the pending one, so the owner hears about
// each seek target at most once and never about a target the user already moved away from.
#include <QUuid>

#include <optional>

namespace quorvane {

class SeekTracker {
public:
    // Starts tracking a seek to `targetMs` (milliseconds), replacing any pending one.
    void begin(const QUuid& id, qint64 targetMs, qint64 frameMs);

    // A picture (or, without video, a position) at `timeMs` arrived. Returns the id of the seek it
    // completes, if any, and stops tracking it.
    std::optional<QUuid> arrived(qint64 timeMs);
    // Completes the pending seek regardless of where the player is, when its serial still
    // matches: the fallback for seeks that produce no picture near the target (at the very end).
    std::optional<QUuid> expire(quint64 serial);

    void clear();
    bool pending() const { return m_id.has_value(); }
    std::optional<QUuid> pendingId() const { return m_id; }
    qint64 targetMs() const { return m_targetMs; }
    quint64 serial() const { return m_serial; }

private:
    std::optional<QUuid> m_id;
    qint64 m_targetMs = 0;
    qint64 m_toleranceMs = 0;     // before the target
    qint64 m_lateToleranceMs = 0; // after it
    quint64 m_serial = 0;
};

} // namespace quorvane
