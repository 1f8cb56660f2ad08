#pragma once
// The bridge between a CancelFlag and the engine's C cancellation callback.
#include "ContainerMedia.h"
#include "engine/qv_media.h"

namespace quorvane::engine {

inline int cancelRequested(void* context)
{
    return static_cast<const std::atomic_bool*>(context)->load(std::memory_order_relaxed) ? 1 : 0;
}

// The callback for a flag; none at all without one, so the engine skips polling.
inline qv_media_cancel_fn cancelCallback(const CancelFlag& flag)
{
    return flag ? &cancelRequested : nullptr;
}

inline void* cancelContext(const CancelFlag& flag)
{
    return flag ? static_cast<void*>(flag.get()) : nullptr;
}

} // namespace quorvane::engine
