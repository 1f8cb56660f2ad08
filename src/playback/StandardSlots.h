#pragma once
#include "PlaybackRouter.h"

namespace quorvane {

// Whether the "webm-system" slot takes a file: a local file ending in webm, ogg or oga, in any
// letter case.
bool isWebPlaybackFile(const QUrl& url);

// The slots a router uses when it is given none, in the order they are tried.
std::vector<PlaybackSlot> standardSlots();

} // namespace quorvane
