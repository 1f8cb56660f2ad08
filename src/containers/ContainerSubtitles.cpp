#include "ContainerSubtitles.h"

#include "engine/qv_media.h"

namespace quorvane {
namespace {

bool isFont(const QByteArray& mime, const QByteArray& name)
{
    const QByteArray lower = name.toLower();
    return mime.startsWith("font/") || mime.contains("truetype") || mime.contains("opentype") ||
           mime == "application/x-font-ttf" || lower.endsWith(".ttf") || lower.endsWith(".otf") ||
           lower.endsWith(".ttc");
}

} // namespace

std::shared_ptr<const ContainerSubtitles> readContainerSubtitles(QVMedia* media)
{
    const quint32 trackCount = qv_media_subtitle_tracks(media);
    if (trackCount == 0) return nullptr;
    auto result = std::make_shared<ContainerSubtitles>();
    for (quint32 t = 0; t < trackCount; ++t) {
        QVMediaSubtitleTrack info{};
        if (qv_media_subtitle_track(media, t, &info) != 0) continue;
        ContainerSubtitleTrack track;
        track.codecId = info.codec_id;
        if (info.codec_private)
            track.codecPrivate = QByteArray(reinterpret_cast<const char*>(info.codec_private),
                                            qsizetype(info.codec_private_size));
        track.language = QString::fromUtf8(info.language);
        track.name = QString::fromUtf8(info.name);
        track.isDefault = info.is_default != 0;
        track.forced = info.forced != 0;
        track.cutEvents = info.cut_events;
        track.events.reserve(qsizetype(info.event_count));
        for (quint64 e = 0; e < info.event_count; ++e) {
            QVMediaSubtitleEvent event{};
            if (qv_media_subtitle_event(media, t, e, &event) != 0) break;
            track.events.append({event.start / 1'000'000, event.duration / 1'000'000,
                                 QByteArray(event.text, qsizetype(event.text_size))});
        }
        result->tracks.append(std::move(track));
    }
    qint64 budget = kMaxContainerFontBytes;
    for (quint32 a = 0; a < qv_media_attachments(media); ++a) {
        QVMediaAttachment attachment{};
        if (qv_media_attachment(media, a, &attachment) != 0) continue;
        if (!isFont(attachment.mime_type, attachment.name) || qint64(attachment.size) > budget)
            continue;
        QByteArray data(qsizetype(attachment.size), Qt::Uninitialized);
        quint64 at = 0;
        while (at < attachment.size) {
            const qint64 got = qv_media_attachment_read(
                media, a, at, reinterpret_cast<uint8_t*>(data.data()) + at,
                std::min<quint64>(attachment.size - at, QV_MEDIA_MAX_READ));
            if (got <= 0) break;
            at += quint64(got);
        }
        if (at != attachment.size) continue;
        budget -= qint64(attachment.size);
        result->fonts.append({attachment.name, std::move(data)});
    }
    return result;
}

} // namespace quorvane
