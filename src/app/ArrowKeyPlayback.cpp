#include "ArrowKeyPlayback.h"

#include "Player.h"

namespace quorvane {

ArrowKeyPlayback::ArrowKeyPlayback(Player* player, QObject* parent)
    : QObject(parent), m_player(player)
{
    m_timer.setInterval(kTickMs);
    // Key timestamps come from the window system's clock, so the time since key down is
    // measured here and added to the key's own timestamp.
    connect(&m_timer, &QTimer::timeout, this,
            [this] { tick(m_started + m_heldFor.nsecsElapsed() / 1e9); });
}

bool ArrowKeyPlayback::keyDown(int code, double time)
{
    switch (code) {
    case kUpArrow:
        if (m_player) m_player->adjustVolume(kVolumeStep);
        return true;
    case kDownArrow:
        if (m_player) m_player->adjustVolume(-kVolumeStep);
        return true;
    case kReturn:
    case kKeypadEnter:
        if (m_player) m_player->toggle();
        return true;
    case kLeftArrow:
    case kRightArrow:
        // Auto-repeat of the held key, or a second arrow while one is held, starts nothing.
        if (!m_key) {
            m_key = quint16(code);
            m_started = time;
            m_heldFor.start();
            m_timer.start();
        }
        return true;
    default:
        return false;
    }
}

void ArrowKeyPlayback::tick(double time)
{
    if (!m_key) {
        m_timer.stop();
        return;
    }
    if (isHold(time - m_started) && m_player) m_player->beginBoost();
}

std::optional<double> ArrowKeyPlayback::release(quint16 code, double time)
{
    if (!m_key || *m_key != code) return std::nullopt;
    std::optional<double> step;
    if (!isHold(time - m_started)) {
        step = *m_key == kLeftArrow ? -kSeekStep : kSeekStep;
        if (m_player) m_player->seek(m_player->position() + *step);
    }
    cancel();
    return step;
}

bool ArrowKeyPlayback::keyUp(int code, double time)
{
    if (code < 0 || code > 0xFFFF || !m_key || *m_key != code) return false;
    release(quint16(code), time);
    return true;
}

void ArrowKeyPlayback::cancel()
{
    m_key.reset();
    m_timer.stop();
    if (m_player) m_player->endBoost();
}

} // namespace quorvane
