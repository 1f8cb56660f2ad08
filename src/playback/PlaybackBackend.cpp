#include "PlaybackBackend.h"

#include <cmath>

namespace quorvane {

QString rawValue(PlaybackTrackKind kind)
{
    switch (kind) {
    case PlaybackTrackKind::Audio:
        return QStringLiteral("audio");
    case PlaybackTrackKind::Subtitle:
        return QStringLiteral("subtitle");
    }
    return {};
}

std::optional<PlaybackTrackKind> playbackTrackKind(const QString& rawValue)
{
    if (rawValue == QLatin1String("audio")) return PlaybackTrackKind::Audio;
    if (rawValue == QLatin1String("subtitle")) return PlaybackTrackKind::Subtitle;
    return std::nullopt;
}

QString timestamp(double seconds)
{
    if (!std::isfinite(seconds) || seconds <= 0) return QStringLiteral("00:00");
    // Truncation toward zero after the clamp keeps the conversion defined for any huge value.
    const qint64 total = static_cast<qint64>(std::min(seconds, 2147483647.0));
    const auto two = [](qint64 v) { return QStringLiteral("%1").arg(v, 2, 10, QLatin1Char('0')); };
    if (total < 3600) return two(total / 60) + QLatin1Char(':') + two(total % 60);
    return QString::number(total / 3600) + QLatin1Char(':') + two((total / 60) % 60) +
           QLatin1Char(':') + two(total % 60);
}

QSizeF fittedVideoSize(const QSizeF& size, const QSizeF& within)
{
    const QSizeF unknown(640, 480);
    if (!std::isfinite(size.width())) return unknown;
    if (!(size.width() > 0 && std::isfinite(size.height()) && size.height() > 0)) return unknown;

    const double sx = within.width() / size.width();
    const double sy = within.height() / size.height();
    if (sx >= 1 && sy >= 1) return {std::max(size.width(), 640.0), std::max(size.height(), 360.0)};

    const double scale = std::min(sx, sy);
    double width = size.width() * scale;
    double height = size.height() * scale;
    // Written as negated comparisons so that a NaN (from a NaN area) also takes the floor.
    if (!(width >= 640)) width = 640;
    if (!(height >= 360)) height = 360;
    return {width, height};
}

} // namespace quorvane
