#include "ContainerSubtitles.h"

#include "EngineCancel.h"
#include "engine/qv_media.h"

#include <QFile>

namespace quorvane {
namespace {

bool isFont(const QByteArray& mime, const QByteArray& name)
{
    const QByteArray lower = name.toLower();
    return mime.startsWith("font/") || mime.contains("truetype") || mime.contains("opentype") ||
           mime == "application/x-font-ttf" || lower.endsWith(".ttf") || lower.endsWith(".otf") ||
           lower.endsWith(".ttc");
}

// The fonts among the attachments, within the budget, by index.
QList<quint32> fontAttachments(QVMedia* media)
{
    QList<quint32> fonts;
    qint64 budget = kMaxContainerFontBytes;
    for (quint32 a = 0; a < qv_media_attachments(media); ++a) {
        QVMediaAttachment attachment{};
        if (qv_media_attachment(media, a, &attachment) != 0) continue;
        if (!isFont(attachment.mime_type, attachment.name) || qint64(attachment.size) > budget)
            continue;
        budget -= qint64(attachment.size);
        fonts.append(a);
    }
    return fonts;
}

} // namespace

void ContainerSubtitles::want(qsizetype track, qint64 fromMs) const
{
    qv_media_subtitle_want(m_engine.get(), quint32(track), fromMs * 1'000'000);
}

QList<ContainerSubtitleEvent> ContainerSubtitles::eventsFrom(qsizetype track, qsizetype known,
                                                             bool* complete) const
{
    QList<ContainerSubtitleEvent> events;
    QVMediaSubtitleTrack info{};
    if (qv_media_subtitle_track(m_engine.get(), quint32(track), &info) != 0) {
        if (complete) *complete = true;
        return events;
    }
    // The count and the flag are one snapshot: once complete, the count is the last.
    if (complete) *complete = info.complete != 0;
    for (quint64 e = quint64(known); e < info.event_count; ++e) {
        QVMediaSubtitleEvent event{};
        if (qv_media_subtitle_event(m_engine.get(), quint32(track), e, &event) != 0) break;
        events.append({event.start / 1'000'000, event.duration / 1'000'000,
                       QByteArray(event.text, qsizetype(event.text_size))});
    }
    return events;
}

qint64 ContainerSubtitles::fontBytes() const
{
    qint64 total = 0;
    for (const quint32 a : fontAttachments(m_engine.get())) {
        QVMediaAttachment attachment{};
        if (qv_media_attachment(m_engine.get(), a, &attachment) == 0)
            total += qint64(attachment.size);
    }
    return total;
}

QList<ContainerFont> ContainerSubtitles::readFonts() const
{
    QVMedia* media = m_engine.get();
    QList<ContainerFont> fonts;
    for (const quint32 a : fontAttachments(media)) {
        QVMediaAttachment attachment{};
        if (qv_media_attachment(media, a, &attachment) != 0) continue;
        QByteArray data(qsizetype(attachment.size), Qt::Uninitialized);
        quint64 at = 0;
        while (at < attachment.size) {
            const qint64 got = qv_media_attachment_read(
                media, a, at, reinterpret_cast<uint8_t*>(data.data()) + at,
                std::min<quint64>(attachment.size - at, QV_MEDIA_MAX_READ));
            if (got <= 0) break;
            at += quint64(got);
        }
        if (at == attachment.size) fonts.append({attachment.name, std::move(data)});
    }
    return fonts;
}

std::shared_ptr<const ContainerSubtitles> readContainerSubtitles(std::shared_ptr<QVMedia> engine)
{
    QVMedia* media = engine.get();
    const quint32 trackCount = qv_media_subtitle_tracks(media);
    if (trackCount == 0) return nullptr;
    auto result = std::make_shared<ContainerSubtitles>(std::move(engine));
    for (quint32 t = 0; t < trackCount; ++t) {
        QVMediaSubtitleTrack info{};
        if (qv_media_subtitle_track(media, t, &info) != 0) break;
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
        track.events = result->eventsFrom(t, 0, &track.complete);
        result->tracks.append(std::move(track));
    }
    return result;
}

std::shared_ptr<const ContainerSubtitles>
readTextSubtitles(const QString& path, std::shared_ptr<std::atomic_bool> cancel)
{
    const QByteArray nativePath = QFile::encodeName(path);
    uint32_t code = 0;
    QVMedia* handle =
        qv_media_open_text_tracks(nativePath.constData(), engine::cancelCallback(cancel),
                                  engine::cancelContext(cancel), &code);
    if (!handle) return nullptr;
    // Kept like a container's handle: it holds the events, all read by now, and reads the fonts.
    std::shared_ptr<QVMedia> shared(
        handle, [cancel = std::move(cancel)](QVMedia* media) { qv_media_close(media); });
    return readContainerSubtitles(std::move(shared));
}

} // namespace quorvane
