#include "NativeMediaInfo.h"

#include "TranslationCatalog.h"

#include <QFileInfo>
#include <QLocale>

namespace quorvane::nativemedia {

namespace {
QString lowerSuffix(const QUrl& url)
{
    return QFileInfo(url.path()).suffix().toLower();
}
} // namespace

bool isMatroska(const QUrl& url)
{
    const QString suffix = lowerSuffix(url);
    return suffix == QLatin1String("mkv") || suffix == QLatin1String("mka") ||
           suffix == QLatin1String("webm");
}

bool usesContainerPath(const QUrl& url)
{
    return isMatroska(url) || lowerSuffix(url) == QLatin1String("flv");
}

bool hasIsoTimedText(const QUrl& url)
{
    const QString suffix = lowerSuffix(url);
    return suffix == QLatin1String("mp4") || suffix == QLatin1String("m4v") ||
           suffix == QLatin1String("mov");
}

bool isTransportStream(const QUrl& url)
{
    const QString suffix = lowerSuffix(url);
    return suffix == QLatin1String("ts") || suffix == QLatin1String("mts") ||
           suffix == QLatin1String("m2ts");
}

QSizeF displaySize(const QSize& resolution, int rotationDegrees)
{
    if (!resolution.isValid()) return {};
    const int quarterTurns = ((rotationDegrees % 360) + 360) % 360 / 90;
    if (quarterTurns % 2 == 1) return QSizeF(resolution.height(), resolution.width());
    return QSizeF(resolution);
}

int rotationDegrees(const QVariant& orientation)
{
    bool ok = false;
    const int degrees = orientation.toInt(&ok);
    if (ok) return degrees;
    const QString text = orientation.toString();
    const qsizetype dash = text.lastIndexOf(QLatin1Char('-'));
    if (!text.contains(QLatin1String("rotate")) || dash < 0) return 0;
    const int parsed = text.mid(dash + 1).toInt(&ok);
    return ok ? parsed : 0;
}

bool isHdrTransfer(QVideoFrameFormat::ColorTransfer transfer)
{
    return transfer == QVideoFrameFormat::ColorTransfer_ST2084 ||
           transfer == QVideoFrameFormat::ColorTransfer_STD_B67;
}

QString trackLabel(const QMediaMetaData& track, int position)
{
    const QString title = track.stringValue(QMediaMetaData::Title).trimmed();
    if (!title.isEmpty()) return title;
    const QVariant language = track.value(QMediaMetaData::Language);
    if (language.isValid()) {
        const auto code = language.value<QLocale::Language>();
        if (code != QLocale::AnyLanguage && code != QLocale::C)
            return QLocale::languageToString(code);
    }
    return translate(QStringLiteral("Track %1")).arg(position);
}

QList<PlaybackTrack> playbackTracks(const QList<QMediaMetaData>& audio,
                                    const QList<QMediaMetaData>& subtitles)
{
    QList<PlaybackTrack> tracks;
    tracks.reserve(audio.size() + subtitles.size());
    for (qsizetype i = 0; i < audio.size(); ++i)
        tracks.append({i + 1, PlaybackTrackKind::Audio, trackLabel(audio[i], int(i + 1))});
    for (qsizetype i = 0; i < subtitles.size(); ++i)
        tracks.append({i + 1, PlaybackTrackKind::Subtitle, trackLabel(subtitles[i], int(i + 1))});
    return tracks;
}

double durationSeconds(qint64 milliseconds)
{
    return milliseconds > 0 ? double(milliseconds) / 1000.0 : 0.0;
}

} // namespace quorvane::nativemedia
