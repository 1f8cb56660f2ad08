#pragma once
// The engine's one bit reader: bounds-checked, most significant bit first, over a byte span. Every
// codec header parser reads through it; running past the end is kMalformed.
#include "failure.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace qv {

class BitCursor {
public:
    explicit BitCursor(std::span<const std::uint8_t> data) : m_data(data) {}

    // The next n bits (n at most 64) as an unsigned value; bits(0) is 0.
    std::uint64_t bits(unsigned n)
    {
        if (n > 64 || n > remaining()) fail(kMalformed);
        std::uint64_t value = 0;
        for (unsigned i = 0; i < n; ++i) {
            const std::uint8_t byte = m_data[m_position >> 3];
            value = (value << 1) | ((byte >> (7 - (m_position & 7))) & 1u);
            ++m_position;
        }
        return value;
    }

    bool flag() { return bits(1) != 0; }

    void skip(std::uint64_t n)
    {
        if (n > remaining()) fail(kMalformed);
        m_position += n;
    }

    // Unsigned Exp-Golomb code; more than 31 leading zeros cannot come from a valid stream.
    std::uint32_t ue()
    {
        unsigned zeros = 0;
        while (bits(1) == 0) {
            if (++zeros > 31) fail(kMalformed);
        }
        return static_cast<std::uint32_t>((std::uint64_t{1} << zeros) - 1 + bits(zeros));
    }

    // Signed Exp-Golomb code.
    std::int64_t se()
    {
        const std::uint64_t k = ue();
        return (k & 1) ? static_cast<std::int64_t>((k + 1) / 2) : -static_cast<std::int64_t>(k / 2);
    }

    std::uint64_t position() const { return m_position; }
    std::uint64_t remaining() const { return std::uint64_t{m_data.size()} * 8 - m_position; }

private:
    std::span<const std::uint8_t> m_data;
    std::uint64_t m_position = 0;
};

} // namespace qv
