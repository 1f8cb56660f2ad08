#pragma once
// Big-endian writer of ISO base media boxes. A box is opened, its payload written, and its size
// fixed when the scope closes, so no caller ever computes a box size by hand.
#include <cstdint>
#include <string_view>
#include <vector>

namespace qv {

class BoxWriter {
public:
    class Scope {
    public:
        Scope(BoxWriter& writer, std::size_t start) : m_writer(&writer), m_start(start) {}
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        Scope(Scope&& other) noexcept : m_writer(other.m_writer), m_start(other.m_start)
        {
            other.m_writer = nullptr;
        }
        ~Scope() { close(); }
        // Fixes the box's size now; later calls do nothing.
        void close();

    private:
        BoxWriter* m_writer;
        std::size_t m_start;
    };

    // A plain box: 32-bit size, four-character type.
    [[nodiscard]] Scope box(std::string_view type);
    // A full box: a plain box followed by a version byte and 24 bits of flags.
    [[nodiscard]] Scope full(std::string_view type, std::uint8_t version, std::uint32_t flags);

    void u8(std::uint32_t v) { m_data.push_back(static_cast<std::uint8_t>(v)); }
    void u16(std::uint32_t v) { put(v, 2); }
    void u24(std::uint32_t v) { put(v, 3); }
    void u32(std::uint32_t v) { put(v, 4); }
    void u64(std::uint64_t v) { put(v, 8); }
    // Room for n more bytes, to spare reallocations in large tables.
    void reserve(std::size_t n) { m_data.reserve(m_data.size() + n); }
    void fourcc(std::string_view type);
    void zeros(std::size_t n) { m_data.insert(m_data.end(), n, 0); }
    void bytes(const std::vector<std::uint8_t>& data)
    {
        m_data.insert(m_data.end(), data.begin(), data.end());
    }
    // Text as its bytes, without a terminator.
    void text(std::string_view text) { m_data.insert(m_data.end(), text.begin(), text.end()); }
    // The unity transformation matrix of movie and track headers.
    void matrix();

    std::size_t size() const noexcept { return m_data.size(); }
    const std::vector<std::uint8_t>& data() const noexcept { return m_data; }
    // The finished bytes; kTooLarge when a box outgrew its 32-bit size.
    std::vector<std::uint8_t> take();

private:
    void put(std::uint64_t v, unsigned bytes)
    {
        const auto at = m_data.size();
        m_data.resize(at + bytes);
        for (unsigned i = 0; i < bytes; ++i)
            m_data[at + i] = static_cast<std::uint8_t>(v >> (8 * (bytes - 1 - i)));
    }

    std::vector<std::uint8_t> m_data;
    std::vector<std::size_t> m_open; // starts of the boxes not yet closed, innermost last
    bool m_overflow = false;
};

} // namespace qv
