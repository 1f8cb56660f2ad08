#include "StandardSlots.h"

namespace quorvane {

std::vector<PlaybackSlot> standardSlots()
{
    // The native backend ("native", every file URL) and the web backend ("webm-system": webm,
    // ogg, oga) join this list as they are built. Until then no slot accepts a file and the
    // router answers every open with the file-format-not-recognized failure.
    return {};
}

} // namespace quorvane
