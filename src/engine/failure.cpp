#include "failure.h"

namespace qv {

const char* Failure::what() const noexcept
{
    return qv_media_error_text(m_code);
}

} // namespace qv
