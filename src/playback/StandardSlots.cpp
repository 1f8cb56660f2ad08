#include "StandardSlots.h"

#include "NativePlayback.h"
#ifdef QV_HAVE_WEB_PLAYBACK
#include "WebMediaPlayback.h"
#endif

#include <QFileInfo>

namespace quorvane {

bool isWebPlaybackFile(const QUrl& url)
{
    if (!url.isLocalFile()) return false;
    const QString suffix = QFileInfo(url.toLocalFile()).suffix().toLower();
    return suffix == QLatin1String("webm") || suffix == QLatin1String("ogg") ||
           suffix == QLatin1String("oga");
}

std::vector<PlaybackSlot> standardSlots()
{
    std::vector<PlaybackSlot> list;
    list.push_back({QStringLiteral("native"), [](const QUrl& url) { return url.isLocalFile(); },
                    [] { return std::make_unique<NativePlayback>(); }});
#ifdef QV_HAVE_WEB_PLAYBACK
    // A second chance in the web view for the WebM and Ogg files the native path refuses.
    list.push_back({QStringLiteral("webm-system"), &isWebPlaybackFile,
                    [] { return std::make_unique<WebMediaPlayback>(); }});
#endif
    return list;
}

} // namespace quorvane
