#include "box_writer.h"

#include "failure.h"

#include <cassert>

namespace qv {

void BoxWriter::Scope::close()
{
    if (!m_writer) return;
    auto& w = *m_writer;
    m_writer = nullptr;
    // Boxes close innermost first; anything else is a bug in the caller.
    assert(!w.m_open.empty() && w.m_open.back() == m_start);
    w.m_open.pop_back();
    const auto size = w.m_data.size() - m_start;
    if (size > 0xFFFFFFFFu) w.m_overflow = true; // reported by take(); destructors must not throw
    for (int i = 0; i < 4; ++i)
        w.m_data[m_start + i] = static_cast<std::uint8_t>(size >> (24 - 8 * i));
}

BoxWriter::Scope BoxWriter::box(std::string_view type)
{
    const auto start = m_data.size();
    m_open.push_back(start);
    u32(0);
    fourcc(type);
    return Scope(*this, start);
}

BoxWriter::Scope BoxWriter::full(std::string_view type, std::uint8_t version, std::uint32_t flags)
{
    auto scope = box(type);
    u8(version);
    u24(flags);
    return scope;
}

void BoxWriter::fourcc(std::string_view type)
{
    assert(type.size() == 4);
    for (std::size_t i = 0; i < 4; ++i)
        u8(i < type.size() ? static_cast<std::uint8_t>(type[i]) : ' ');
}

void BoxWriter::matrix()
{
    for (const std::uint32_t v : {0x00010000u, 0u, 0u, 0u, 0x00010000u, 0u, 0u, 0u, 0x40000000u})
        u32(v);
}

} // namespace qv

namespace qv {

std::vector<std::uint8_t> BoxWriter::take()
{
    require(!m_overflow, kTooLarge);
    return std::move(m_data);
}

} // namespace qv
