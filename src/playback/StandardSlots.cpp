#include "StandardSlots.h"

#include "NativeMediaInfo.h"
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
#if !defined(Q_OS_DARWIN)
    // GStreamer (and the other frameworks Qt Multimedia uses off Apple's platforms) opens Matroska
    // and FLV by itself, so what the engine refuses by design (truncated files, Vorbis, MP3 in
    // FLV, …) gets a last chance there. Last, so the engine stays the first path for everything
    // it accepts. AVFoundation opens neither container: there is no such slot on Apple platforms.
    list.push_back(
        {QStringLiteral("platform"),
         [](const QUrl& url) { return url.isLocalFile() && nativemedia::usesContainerPath(url); },
         [] { return std::make_unique<NativePlayback>(NativePlayback::Route::Platform); }});
#endif
    return list;
}

} // namespace quorvane
