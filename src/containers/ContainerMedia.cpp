#include "ContainerMedia.h"

#include "EngineCancel.h"
#include "engine/qv_media.h"

#include <QFile>
#include <QtConcurrent>

namespace quorvane {

std::shared_ptr<ContainerMedia> ContainerMedia::open(const QUrl& url, CancelFlag cancel)
{
    if (!url.isLocalFile()) throw ContainerError(ContainerError::Unsupported);
    return open(url.toLocalFile(), std::move(cancel));
}

std::shared_ptr<ContainerMedia> ContainerMedia::open(const QString& path, CancelFlag cancel)
{
    const QByteArray nativePath = QFile::encodeName(path);
    uint32_t code = 0;
    QVMedia* handle = qv_media_open(nativePath.constData(), engine::cancelCallback(cancel),
                                    engine::cancelContext(cancel), &code);
    if (!handle) {
        if (code == QV_MEDIA_CANCELLED) throw ContainerCancelled();
        throw ContainerError(qint32(code));
    }
    std::shared_ptr<QVMedia> shared(
        handle, [cancel = std::move(cancel)](QVMedia* media) { qv_media_close(media); });
    return std::shared_ptr<ContainerMedia>(new ContainerMedia(std::move(shared)));
}

QFuture<std::shared_ptr<ContainerMedia>> ContainerMedia::openAsync(const QUrl& url,
                                                                   CancelFlag cancel)
{
    return QtConcurrent::run([url, cancel = std::move(cancel)] { return open(url, cancel); });
}

ContainerMedia::ContainerMedia(std::shared_ptr<QVMedia> shared)
    : m_handle(std::move(shared)), m_length(qv_media_size(m_handle.get())),
      m_sampleCount(qv_media_sample_count(m_handle.get())),
      m_videoTracks(qv_media_video_tracks(m_handle.get())),
      m_audioTracks(qv_media_audio_tracks(m_handle.get())),
      m_format(qv_media_format(m_handle.get()) == QV_MEDIA_FORMAT_MATROSKA
                   ? QStringLiteral("matroska")
                   : QStringLiteral("flv")),
      m_subtitles(readContainerSubtitles(m_handle))
{
    QVMedia* handle = m_handle.get();
    for (uint32_t i = 0; i < qv_media_track_count(handle); ++i)
        m_tracks.append({qv_media_track_kind(handle, i) == QV_MEDIA_TRACK_VIDEO,
                         QString::fromUtf8(qv_media_track_codec(handle, i)),
                         QString::fromUtf8(qv_media_track_language(handle, i)),
                         QString::fromUtf8(qv_media_track_name(handle, i))});
}

ContainerMedia::~ContainerMedia() = default;

QByteArray ContainerMedia::read(quint64 offset, quint64 count) const
{
    if (count > kMaxRead) throw ContainerError(ContainerError::Malformed);
    QByteArray buffer(qsizetype(count), Qt::Uninitialized);
    const int64_t copied =
        qv_media_read(m_handle.get(), offset, reinterpret_cast<uint8_t*>(buffer.data()), count);
    if (copied == -QV_MEDIA_CANCELLED) throw ContainerCancelled();
    if (copied < 0) throw ContainerError(ContainerError::InputOutput);
    buffer.truncate(qsizetype(copied));
    return buffer;
}

} // namespace quorvane
