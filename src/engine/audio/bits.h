#pragma once
// Most-significant-bit-first reader over a byte vector, shared by the audio configuration parsers.
#include "audio_error.h"

#include <cstdint>
#include <vector>

namespace qv_audio {

class Bits {
public:
    explicit Bits(const std::vector<std::uint8_t>& data) : m_data(data) {}

    // The next n bits (n at most 32); get(0) is 0. Running past the end throws Error(1).
    std::uint32_t get(unsigned n);
    void skip(std::uint64_t n);
    std::uint64_t remaining() const noexcept { return m_data.size() * 8 - m_position; }
    std::uint64_t position() const noexcept { return m_position; }

private:
    const std::vector<std::uint8_t>& m_data;
    std::uint64_t m_position = 0;
};

} // namespace qv_audio
