#pragma once
// The engine's one error type. Every failure inside the engine, the codec parsers' included, is a
// Failure carrying one of the codes of qv_media.h; the flat C boundary catches everything and turns
// it into a return value.
#include "qv_media.h"

#include <cstdint>
#include <exception>

namespace qv {

// The codes of qv_media_error under the names the engine's code uses.
inline constexpr std::uint32_t kMalformed = QV_MEDIA_MALFORMED;
inline constexpr std::uint32_t kUnsupported = QV_MEDIA_UNSUPPORTED;
inline constexpr std::uint32_t kTooLarge = QV_MEDIA_TOO_LARGE;
inline constexpr std::uint32_t kCancelled = QV_MEDIA_CANCELLED;
inline constexpr std::uint32_t kInputOutput = QV_MEDIA_INPUT_OUTPUT;

class Failure : public std::exception {
public:
    explicit Failure(std::uint32_t code) noexcept : m_code(code) {}
    std::uint32_t code() const noexcept { return m_code; }
    // The code's text from qv_media_error_text.
    const char* what() const noexcept override;

private:
    std::uint32_t m_code;
};

[[noreturn]] inline void fail(std::uint32_t code)
{
    throw Failure(code);
}

// Throws kMalformed unless the condition holds: `require(n <= rest, kMalformed)`.
inline void require(bool condition, std::uint32_t code = kMalformed)
{
    if (!condition) fail(code);
}

} // namespace qv
