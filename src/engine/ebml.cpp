#include "ebml.h"

#include "failure.h"

#include <bit>
#include <cstring>

namespace qv::ebml {

Vint vint(Reader& reader, std::uint64_t position, std::uint64_t end, bool isId)
{
    require(position < end);
    const std::uint8_t first = reader.byte(position);
    require(first != 0); // lengths above 8 bytes do not exist
    const auto length = static_cast<std::uint64_t>(std::countl_zero(first)) + 1;
    require(length <= end - position);
    if (isId) require(length <= 4);
    std::uint64_t value = isId ? first : (first & (0xFFu >> length));
    bool allOnes = value == (0xFFu >> length);
    for (std::uint64_t i = 1; i < length; ++i) {
        const std::uint8_t b = reader.byte(position + i);
        allOnes = allOnes && b == 0xFF;
        value = (value << 8) | b;
    }
    return {value, length, !isId && allOnes};
}

Element element(Reader& reader, std::uint64_t position, std::uint64_t end)
{
    const Vint id = vint(reader, position, end, true);
    const Vint size = vint(reader, position + id.length, end, false);
    Element e;
    e.id = id.value;
    e.start = position + id.length + size.length;
    if (size.unknown) {
        e.end = end;
        e.unknownSize = true;
    } else {
        require(size.value <= end - e.start);
        e.end = e.start + size.value;
    }
    return e;
}

std::uint64_t unsignedInteger(Reader& reader, const Element& e)
{
    return reader.uintBE(e.start, e.size());
}

std::int64_t signedInteger(Reader& reader, const Element& e)
{
    const auto n = e.size();
    require(n <= 8);
    if (n == 0) return 0;
    std::uint64_t value = reader.uintBE(e.start, n);
    if (n < 8 && (value >> (8 * n - 1)) != 0) value |= ~std::uint64_t(0) << (8 * n);
    return static_cast<std::int64_t>(value);
}

double floating(Reader& reader, const Element& e)
{
    if (e.size() == 4) {
        const auto bits = static_cast<std::uint32_t>(reader.uintBE(e.start, 4));
        return static_cast<double>(std::bit_cast<float>(bits));
    }
    require(e.size() == 8);
    return std::bit_cast<double>(reader.uintBE(e.start, 8));
}

} // namespace qv::ebml
