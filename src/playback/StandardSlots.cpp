#include "StandardSlots.h"

#include "NativeMediaInfo.h"
#include "NativePlayback.h"

namespace quorvane {

std::vector<PlaybackSlot> standardSlots()
{
    std::vector<PlaybackSlot> list;
    list.push_back({QStringLiteral("native"), [](const QUrl& url) { return url.isLocalFile(); },
                    [] { return std::make_unique<NativePlayback>(); }});
    // The web backend ("webm-system": webm, ogg, oga) comes here, after the native one.
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
