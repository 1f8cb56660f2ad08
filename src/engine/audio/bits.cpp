#include "bits.h"

namespace qv_audio {

std::uint32_t Bits::get(unsigned n)
{
    if (n > 32 || n > remaining()) fail(1);
    std::uint32_t value = 0;
    for (unsigned i = 0; i < n; ++i, ++m_position) {
        const unsigned bit = (m_data[m_position / 8] >> (7 - m_position % 8)) & 1u;
        value = (value << 1) | bit;
    }
    return value;
}

void Bits::skip(std::uint64_t n)
{
    if (n > remaining()) fail(1);
    m_position += n;
}

} // namespace qv_audio
