#pragma once
// Whether an MPEG transport stream holds audio and/or video, judged from its first mebibyte by the
// container engine. Blocks for the scan; run it off the GUI thread (inspectAsync).
#include "ContainerMedia.h"

namespace quorvane {

struct TransportStreams {
    bool hasAudio = false;
    bool hasVideo = false;

    // A URL that is not a file URL is ContainerError 2; an engine failure is ContainerError with
    // its code; a set cancel flag is ContainerCancelled.
    static TransportStreams inspect(const QUrl& url, CancelFlag cancel = {});
    static TransportStreams inspect(const QString& path, CancelFlag cancel = {});
    // inspect() on the global thread pool; result() rethrows its exceptions.
    static QFuture<TransportStreams> inspectAsync(const QUrl& url, CancelFlag cancel);

    bool operator==(const TransportStreams&) const = default;
};

} // namespace quorvane
