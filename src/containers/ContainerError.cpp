#include "ContainerError.h"

namespace quorvane {

ContainerError::ContainerError(qint32 code)
    : m_code(code), m_what(domain().toLatin1() + ' ' + QByteArray::number(code) + ": " +
                           qv_media_error_text(quint32(code)))
{
}

} // namespace quorvane
