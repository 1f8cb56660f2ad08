#include "TransportStreams.h"

#include "EngineCancel.h"
#include "engine/qv_media.h"

#include <QFile>
#include <QtConcurrent>

namespace quorvane {

TransportStreams TransportStreams::inspect(const QUrl& url, CancelFlag cancel)
{
    if (!url.isLocalFile()) throw ContainerError(ContainerError::Unsupported);
    return inspect(url.toLocalFile(), std::move(cancel));
}

TransportStreams TransportStreams::inspect(const QString& path, CancelFlag cancel)
{
    const QByteArray nativePath = QFile::encodeName(path);
    const int32_t result = qv_media_transport_presence(
        nativePath.constData(), engine::cancelCallback(cancel), engine::cancelContext(cancel));
    if (result == -QV_MEDIA_CANCELLED) throw ContainerCancelled();
    if (result < 0)
        throw ContainerError(result == INT32_MIN ? qint32(ContainerError::InputOutput) : -result);
    return {(result & QV_MEDIA_HAS_AUDIO) != 0, (result & QV_MEDIA_HAS_VIDEO) != 0};
}

QFuture<TransportStreams> TransportStreams::inspectAsync(const QUrl& url, CancelFlag cancel)
{
    return QtConcurrent::run([url, cancel = std::move(cancel)] { return inspect(url, cancel); });
}

} // namespace quorvane
