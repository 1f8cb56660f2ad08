#include "failure.h"

namespace qv {

const char* describe(std::uint32_t code) noexcept
{
    switch (code) {
    case kMalformed: return "malformed or out of range";
    case kUnsupported: return "unsupported";
    case kTooLarge: return "too large or out of memory";
    case kCancelled: return "cancelled";
    case kInputOutput: return "input/output error";
    default: return "unknown error";
    }
}

const char* Failure::what() const noexcept { return describe(m_code); }

} // namespace qv
