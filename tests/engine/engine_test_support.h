#pragma once
// Helpers for engine tests: temporary files from inline bytes and a tiny EBML/Matroska builder.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

#include <unistd.h>

namespace qv_test {

using Bytes = std::vector<std::uint8_t>;

class TempFile {
public:
    explicit TempFile(const Bytes& bytes)
    {
        static int counter = 0;
        m_path = std::filesystem::temp_directory_path() /
                 ("qv_engine_test_" + std::to_string(::getpid()) + "_" + std::to_string(counter++));
        std::ofstream out(m_path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
    }
    ~TempFile() { std::filesystem::remove(m_path); }
    std::string path() const { return m_path.string(); }

private:
    std::filesystem::path m_path;
};

inline Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const auto& p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

inline Bytes idBytes(std::uint64_t id)
{
    Bytes out;
    for (int shift = 24; shift >= 0; shift -= 8)
        if ((id >> shift) != 0 || shift == 0) out.push_back(static_cast<std::uint8_t>(id >> shift));
    return out;
}

// An element with an 8-byte size field (valid EBML, and simple to build).
inline Bytes el(std::uint64_t id, const Bytes& payload)
{
    Bytes out = idBytes(id);
    out.push_back(0x01);
    for (int shift = 48; shift >= 0; shift -= 8)
        out.push_back(static_cast<std::uint8_t>(payload.size() >> shift));
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

// An element whose size is "unknown" (all ones, one byte).
inline Bytes unknownSized(std::uint64_t id, const Bytes& payload)
{
    Bytes out = idBytes(id);
    out.push_back(0xFF);
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

inline Bytes uintEl(std::uint64_t id, std::uint64_t value, int width = 4)
{
    Bytes payload;
    for (int i = width - 1; i >= 0; --i)
        payload.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    return el(id, payload);
}

inline Bytes textEl(std::uint64_t id, const std::string& text)
{
    return el(id, Bytes(text.begin(), text.end()));
}

inline Bytes ebmlHeader(const std::string& docType = "webm")
{
    return el(0x1A45DFA3, textEl(0x4282, docType));
}

// A SimpleBlock of track 1 (no lacing) holding payload.
inline Bytes simpleBlock(std::int16_t relative, bool key, const Bytes& payload,
                         std::uint8_t track = 1)
{
    Bytes body = {static_cast<std::uint8_t>(0x80 | track), static_cast<std::uint8_t>(relative >> 8),
                  static_cast<std::uint8_t>(relative), static_cast<std::uint8_t>(key ? 0x80 : 0)};
    body.insert(body.end(), payload.begin(), payload.end());
    return el(0xA3, body);
}

// A valid AAC-LC track entry (48 kHz stereo) numbered number.
inline Bytes aacTrack(std::uint64_t number = 1, const Bytes& extra = {})
{
    return el(0xAE, cat({uintEl(0xD7, number, 1), uintEl(0x83, 2, 1), textEl(0x86, "A_AAC"),
                         el(0x63A2, {0x11, 0x90}), extra}));
}

// A whole audio-only Matroska file: the given tracks and clusters in one Segment.
inline Bytes matroskaFile(const Bytes& tracks, const Bytes& clusters, const Bytes& info = {})
{
    return cat({ebmlHeader(), el(0x18538067, cat({info, el(0x1654AE6B, tracks), clusters}))});
}

inline Bytes cluster(std::uint64_t timecode, const Bytes& blocks)
{
    return el(0x1F43B675, cat({uintEl(0xE7, timecode, 2), blocks}));
}

} // namespace qv_test
