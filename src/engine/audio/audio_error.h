#pragma once
// Error of the audio configuration parsers (AAC, FLAC, AC-3/E-AC-3, MPEG audio, Opus). It carries
// an engine code (1 malformed, 2 unsupported, ...) and reaches callers through the same channel as
// qv::Failure.
#include <cstdint>
#include <exception>

namespace qv_audio {

class Error : public std::exception {
public:
    explicit Error(std::uint32_t code) noexcept : m_code(code) {}
    std::uint32_t code() const noexcept { return m_code; }
    const char* what() const noexcept override { return "audio configuration error"; }

private:
    std::uint32_t m_code;
};

[[noreturn]] inline void fail(std::uint32_t code) { throw Error(code); }

} // namespace qv_audio
