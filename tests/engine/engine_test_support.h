#pragma once
// Helpers for engine tests: sources over inline bytes (one byte per read in the trickle run, and
// failing at every offset where a helper says so), failure codes, bit packing and a tiny
// EBML/Matroska builder.
#include "engine/failure.h"
#include "engine/media.h"
#include "engine/qv_media.h"
#include "engine/reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace qv_test {

using Bytes = std::vector<std::uint8_t>;

// A file for the few tests of the file itself (missing, a directory, a path).
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

// The code a call fails with, or 0 when it returns.
inline std::uint32_t codeOf(auto&& call)
{
    try {
        call();
    } catch (const qv::Failure& f) {
        return f.code();
    }
    return 0;
}

// Serves the bytes, one per call in the trickle run (QV_TEST_SOURCE=trickle) so that every
// boundary of every parser lies between two reads, and fails (kInputOutput) from `failAt` on.
class TestSource : public qv::Source {
public:
    TestSource(const Bytes& bytes, std::uint64_t failAt = ~0ull)
        : m_bytes(bytes), m_failAt(failAt),
          m_trickle(std::getenv("QV_TEST_SOURCE") &&
                    std::getenv("QV_TEST_SOURCE") == std::string("trickle"))
    {
    }
    std::uint64_t size() const override { return m_bytes.size(); }
    std::uint64_t read(std::uint64_t position, std::uint8_t* destination, std::uint64_t n) override
    {
        if (position >= m_failAt) qv::fail(qv::kInputOutput);
        const auto take = std::min({n, m_failAt - position, m_trickle ? std::uint64_t{1} : n});
        std::memcpy(destination, m_bytes.data() + position, take);
        return take;
    }

private:
    const Bytes& m_bytes;
    std::uint64_t m_failAt;
    bool m_trickle;
};

// The run's source over bytes, which must outlive it.
inline std::unique_ptr<qv::Source> sourceOf(const Bytes& bytes, std::uint64_t failAt = ~0ull)
{
    return std::make_unique<TestSource>(bytes, failAt);
}

// Runs `run(failAt)`, which returns a code, for real and then with a source failing at every
// offset: each of those must end with the real run's code or kInputOutput, and nothing else.
template <typename Run> std::uint32_t swept(const Bytes& bytes, Run&& run)
{
    const std::uint32_t expected = run(~0ull);
    for (std::uint64_t at = 0; at < bytes.size(); ++at) {
        const std::uint32_t code = run(at);
        EXPECT_TRUE(code == expected || code == qv::kInputOutput)
            << "a source failing at " << at << " gave " << code << " instead of " << expected;
    }
    return expected;
}

// Runs parse on a reader of bytes, swept, then for real; returns the real run's result.
template <typename Parse> auto parsed(const Bytes& bytes, Parse&& parse)
{
    swept(bytes, [&](std::uint64_t failAt) {
        return codeOf([&] {
            qv::Reader reader(sourceOf(bytes, failAt), nullptr, nullptr);
            parse(reader);
        });
    });
    qv::Reader reader(sourceOf(bytes), nullptr, nullptr);
    return parse(reader);
}

// An open handle on bytes (which must outlive it), or null with the code in `code`.
inline QVMedia* openBytes(const Bytes& bytes, std::uint32_t& code, std::uint64_t failAt = ~0ull)
{
    return qv::openMedia([&] { return sourceOf(bytes, failAt); }, nullptr, nullptr, &code);
}

// The code qv_media_open gives for these bytes (0 when it opens), swept.
inline std::uint32_t openCode(const Bytes& bytes)
{
    return swept(bytes, [&](std::uint64_t failAt) {
        std::uint32_t code = 99;
        qv_media_close(openBytes(bytes, code, failAt));
        return code;
    });
}

inline Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const auto& p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

inline Bytes text(const std::string& s)
{
    return Bytes(s.begin(), s.end());
}

inline std::uint32_t be32(const Bytes& b, std::size_t at)
{
    return std::uint32_t(b[at]) << 24 | std::uint32_t(b[at + 1]) << 16 |
           std::uint32_t(b[at + 2]) << 8 | b[at + 3];
}

inline Bytes be(std::uint64_t value, int bytes)
{
    Bytes out;
    for (int i = bytes - 1; i >= 0; --i)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    return out;
}

// Packs (value, bits) fields most significant bit first, zero-padded to at least `size` bytes.
inline Bytes pack(std::initializer_list<std::pair<std::uint64_t, unsigned>> fields,
                  std::size_t size = 0)
{
    Bytes out;
    unsigned used = 0;
    for (const auto& [value, bits] : fields)
        for (unsigned i = bits; i-- > 0; ++used) {
            if (used % 8 == 0) out.push_back(0);
            out.back() |= static_cast<std::uint8_t>(((value >> i) & 1u) << (7 - used % 8));
        }
    if (out.size() < size) out.resize(size, 0);
    return out;
}

// A FLAC encoder's STREAMINFO: 44.1 kHz stereo 16-bit, 4608-sample blocks, 8820 samples.
inline const Bytes kStreamInfo{0x12, 0x00, 0x12, 0x00, 0x00, 0x04, 0xa3, 0x00, 0x05,
                               0x08, 0x0a, 0xc4, 0x42, 0xf0, 0x00, 0x00, 0x22, 0x74,
                               0x5d, 0x10, 0x5c, 0xeb, 0x21, 0x2a, 0xd5, 0xd3, 0x6e,
                               0x4f, 0x56, 0x08, 0xde, 0xf3, 0xd8, 0xb7};

// An element with an 8-byte size field (valid EBML, and simple to build).
inline Bytes el(std::uint64_t id, const Bytes& payload)
{
    Bytes out;
    for (int shift = 24; shift >= 0; shift -= 8)
        if ((id >> shift) != 0 || shift == 0) out.push_back(static_cast<std::uint8_t>(id >> shift));
    return cat({out, {0x01}, be(payload.size(), 7), payload});
}

inline Bytes uintEl(std::uint64_t id, std::uint64_t value, int width = 4)
{
    return el(id, be(value, width));
}

inline Bytes textEl(std::uint64_t id, const std::string& text)
{
    return el(id, qv_test::text(text));
}

inline Bytes ebmlHeader(const std::string& docType = "webm")
{
    return el(0x1A45DFA3, textEl(0x4282, docType));
}

// A SimpleBlock of track 1 (no lacing) holding payload.
inline Bytes simpleBlock(std::int16_t relative, bool key, const Bytes& payload)
{
    return el(0xA3, cat({{0x81},
                         be(static_cast<std::uint16_t>(relative), 2),
                         {static_cast<std::uint8_t>(key ? 0x80 : 0)},
                         payload}));
}

// An audio track entry numbered number; the default is AAC-LC, 48 kHz stereo.
inline Bytes audioTrack(const std::string& codec, const Bytes& extra, std::uint64_t number = 1)
{
    return el(0xAE, cat({uintEl(0xD7, number, 1), uintEl(0x83, 2, 1), textEl(0x86, codec), extra}));
}

inline Bytes aacTrack(std::uint64_t number = 1, const Bytes& extra = {})
{
    return audioTrack("A_AAC", cat({el(0x63A2, {0x11, 0x90}), extra}), number);
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
