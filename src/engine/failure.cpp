#include "failure.h"

extern "C" const char* qv_media_error_text(uint32_t code)
{
    switch (code) {
    case QV_MEDIA_OK:
        return "no error";
    case QV_MEDIA_MALFORMED:
        return "malformed or out of range";
    case QV_MEDIA_UNSUPPORTED:
        return "unsupported";
    case QV_MEDIA_TOO_LARGE:
        return "too large or out of memory";
    case QV_MEDIA_CANCELLED:
        return "cancelled";
    case QV_MEDIA_INPUT_OUTPUT:
        return "input/output error";
    }
    return "unknown error";
}

namespace qv {

const char* Failure::what() const noexcept
{
    return qv_media_error_text(m_code);
}

} // namespace qv
