#pragma once
// EBML, the binary syntax of Matroska: variable-length integers, elements and typed payloads.
#include "reader.h"

#include <cstdint>

namespace qv::ebml {

struct Element {
    std::uint64_t id = 0;    // raw ID, length marker bits included
    std::uint64_t start = 0; // first payload byte
    std::uint64_t end = 0;   // just past the payload
    bool unknownSize = false;

    std::uint64_t size() const noexcept { return end - start; }
};

struct Vint {
    std::uint64_t value = 0;
    std::uint64_t length = 0;
    bool unknown = false;
};

// A variable-length integer at position that must not pass end. IDs keep their marker bits;
// a size whose data bits are all ones is flagged unknown.
Vint vint(Reader& reader, std::uint64_t position, std::uint64_t end, bool isId);

// An element header at position; the element must end by end, except that an unknown size
// extends exactly to end.
Element element(Reader& reader, std::uint64_t position, std::uint64_t end);

// Unsigned integer payload of 1 to 8 bytes (an empty payload is malformed on purpose).
std::uint64_t unsignedInteger(Reader& reader, const Element& e);
// Two's-complement payload of 0 to 8 bytes.
std::int64_t signedInteger(Reader& reader, const Element& e);
// 4- or 8-byte IEEE float.
double floating(Reader& reader, const Element& e);

} // namespace qv::ebml
