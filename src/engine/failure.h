#pragma once
// The engine's one error type. Every failure inside the engine is a Failure with one of the codes
// below; the flat C boundary (qv_media.h) catches everything and turns it into a return value.
#include <cstdint>
#include <exception>

namespace qv {

enum Code : std::uint32_t {
    kMalformed = 1,   // a bounds check failed, a value is out of range, the file is empty
    kUnsupported = 2, // no demuxer, no usable track, a codec or feature we refuse
    kTooLarge = 3,    // a read above the cap, out of memory, a virtual file too large
    kCancelled = 4,   // the cancellation callback returned non-zero
    kInputOutput = 5, // not a regular file, open/seek/read failed or came up short
};

class Failure : public std::exception {
public:
    explicit Failure(std::uint32_t code) noexcept : m_code(code) {}
    std::uint32_t code() const noexcept { return m_code; }
    const char* what() const noexcept override;

private:
    std::uint32_t m_code;
};

// Text for a code, as printed by the tools ("malformed", "unsupported", ...).
const char* describe(std::uint32_t code) noexcept;

[[noreturn]] inline void fail(std::uint32_t code) { throw Failure(code); }

// Throws kMalformed unless the condition holds: `require(n <= rest, kMalformed)`.
inline void require(bool condition, std::uint32_t code = kMalformed)
{
    if (!condition) fail(code);
}

} // namespace qv
