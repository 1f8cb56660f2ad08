#include "ContainerError.h"

namespace quorvane {

const char* ContainerError::what() const noexcept
{
    switch (m_code) {
    case Malformed:
        return "Quorvane.MediaContainers 1: malformed or out of range";
    case Unsupported:
        return "Quorvane.MediaContainers 2: unsupported";
    case TooLarge:
        return "Quorvane.MediaContainers 3: too large or out of memory";
    case InputOutput:
        return "Quorvane.MediaContainers 5: input/output error";
    default:
        return "Quorvane.MediaContainers: engine error";
    }
}

} // namespace quorvane
