#pragma once
// The source-file reader. Every byte the engine takes from a file passes through here: each read
// polls the cancellation callback and is checked against the file's size.
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace qv {

using CancelFn = int (*)(void*);

class Reader {
public:
    // Opens a regular file; kInputOutput when it is missing, not regular or unreadable,
    // kMalformed when it is empty.
    Reader(const char* path, CancelFn cancel, void* context);
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    std::uint64_t size() const noexcept { return m_size; }

    // Copies n bytes at position into destination (no size cap: callers bound n themselves).
    void copy(std::uint64_t position, std::uint8_t* destination, std::uint64_t n);
    // A fresh buffer of n bytes, n at most limits::kMaxRead.
    std::vector<std::uint8_t> bytes(std::uint64_t position, std::uint64_t n);
    // Text of n bytes; more than limit bytes is malformed.
    std::string text(std::uint64_t position, std::uint64_t n, std::uint64_t limit);
    // Polls the cancellation callback alone.
    void check();
    // One byte through the read-ahead window.
    std::uint8_t byte(std::uint64_t position);
    // Big-endian unsigned integer of 1 to 8 bytes.
    std::uint64_t uintBE(std::uint64_t position, std::uint64_t n);
    // Forgets the read-ahead window (after opening, only whole slices are read).
    void dropCache();

private:
    std::ifstream m_stream;
    std::uint64_t m_size = 0;
    std::uint64_t m_cacheStart = ~std::uint64_t(0);
    std::vector<std::uint8_t> m_cache;
    std::uint64_t m_window = 0; // length of the next refill
    CancelFn m_cancel;
    void* m_context;
};

} // namespace qv
