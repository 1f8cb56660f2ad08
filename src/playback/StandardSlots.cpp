#include "StandardSlots.h"

#include "NativePlayback.h"

namespace quorvane {

std::vector<PlaybackSlot> standardSlots()
{
    // The web backend ("webm-system": webm, ogg, oga) joins this list after the native one.
    std::vector<PlaybackSlot> list;
    list.push_back({QStringLiteral("native"), [](const QUrl& url) { return url.isLocalFile(); },
                    [] { return std::make_unique<NativePlayback>(); }});
    return list;
}

} // namespace quorvane
