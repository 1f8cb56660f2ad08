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
    return std::shared_ptr<ContainerMedia>(new ContainerMedia(handle, std::move(cancel)));
}

QFuture<std::shared_ptr<ContainerMedia>> ContainerMedia::openAsync(const QUrl& url,
                                                                   CancelFlag cancel)
{
    return QtConcurrent::run([url, cancel = std::move(cancel)] { return open(url, cancel); });
}

ContainerMedia::ContainerMedia(QVMedia* handle, CancelFlag cancel)
    : m_handle(handle), m_cancel(std::move(cancel)), m_length(qv_media_size(handle)),
      m_sampleCount(qv_media_sample_count(handle)), m_videoTracks(qv_media_video_tracks(handle)),
      m_audioTracks(qv_media_audio_tracks(handle)),
      m_format(qv_media_format(handle) == QV_MEDIA_FORMAT_MATROSKA ? QStringLiteral("matroska")
                                                                   : QStringLiteral("flv")),
      m_subtitles(readContainerSubtitles(handle))
{
    for (uint32_t i = 0; i < qv_media_track_count(handle); ++i)
        m_tracks.append({qv_media_track_kind(handle, i) == QV_MEDIA_TRACK_VIDEO,
                         QString::fromUtf8(qv_media_track_codec(handle, i)),
                         QString::fromUtf8(qv_media_track_language(handle, i)),
                         QString::fromUtf8(qv_media_track_name(handle, i))});
}

ContainerMedia::~ContainerMedia()
{
    qv_media_close(m_handle);
}

QByteArray ContainerMedia::read(quint64 offset, quint64 count) const
{
    if (count > kMaxRead) throw ContainerError(ContainerError::Malformed);
    QByteArray buffer(qsizetype(count), Qt::Uninitialized);
    const int64_t copied =
        qv_media_read(m_handle, offset, reinterpret_cast<uint8_t*>(buffer.data()), count);
    if (copied == -QV_MEDIA_CANCELLED) throw ContainerCancelled();
    if (copied < 0) throw ContainerError(ContainerError::InputOutput);
    buffer.truncate(qsizetype(copied));
    return buffer;
}

} // namespace quorvane
