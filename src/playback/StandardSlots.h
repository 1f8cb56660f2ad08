#pragma once
#include "PlaybackRouter.h"

namespace quorvane {

// The slots a router uses when it is given none, in the order they are tried.
std::vector<PlaybackSlot> standardSlots();

} // namespace quorvane
