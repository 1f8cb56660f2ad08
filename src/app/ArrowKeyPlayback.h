#pragma once
// Arrow keys on the video: up/down change the volume, a tap of left/right seeks 5 s, and holding
// left/right plays faster (the player's boost) until the key is released. Times are the key
// events' own timestamps in seconds.
#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <optional>

namespace quorvane {

class Player;

class ArrowKeyPlayback : public QObject {
    Q_OBJECT
public:
    // Virtual key codes as delivered by the video surface.
    static constexpr quint16 kLeftArrow = 123;
    static constexpr quint16 kRightArrow = 124;
    static constexpr quint16 kDownArrow = 125;
    static constexpr quint16 kUpArrow = 126;
    static constexpr quint16 kReturn = 36;
    static constexpr quint16 kKeypadEnter = 76;

    // A key held at least this long is a hold, not a tap.
    static constexpr double kHoldThreshold = 0.35;
    // Event times are differences of large doubles (5.35 - 5.0 < 0.35): a press that lasted the
    // threshold up to this rounding error is a hold.
    static constexpr double kTimeTolerance = 1e-9;
    static constexpr double kSeekStep = 5.0;
    static constexpr double kVolumeStep = 5.0;
    static constexpr int kTickMs = 50;

    explicit ArrowKeyPlayback(Player* player, QObject* parent = nullptr);

    // Returns whether the key is one of ours. Return and keypad Enter play or pause. Codes come
    // as int so that QML can pass plain numbers.
    Q_INVOKABLE bool keyDown(int code, double time);
    // The seek step applied for a tap, or nothing (a hold, or a key that is not the held one).
    std::optional<double> release(quint16 code, double time);
    // Whether the release was one of ours (a tap that seeked or the end of a hold).
    Q_INVOKABLE bool keyUp(int code, double time);
    // Forgets the held key and ends any boost.
    Q_INVOKABLE void cancel();

    // One poll of the held key at `time` (the timer does this every 0.05 s).
    void tick(double time);

    std::optional<quint16> key() const { return m_key; }
    double started() const { return m_started; }
    bool isTimerActive() const { return m_timer.isActive(); }

private:
    static bool isHold(double held) { return held >= kHoldThreshold - kTimeTolerance; }

    QPointer<Player> m_player;
    std::optional<quint16> m_key;
    double m_started = 0;
    QElapsedTimer m_heldFor;
    QTimer m_timer;
};

} // namespace quorvane
