#pragma once
// The source reader. Every byte the engine takes from a file passes through here: each read polls
// the cancellation callback and is checked against the source's size. The bytes themselves come
// from a Source: the file, or memory for tests and fuzzers.
#include <cstdint>
#include <fstream>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace qv {

using CancelFn = int (*)(void*);

// Where the bytes come from. The Reader checks every range against size() before asking.
class Source {
public:
    virtual ~Source() = default;
    virtual std::uint64_t size() const = 0;
    // Copies between 1 and n bytes (n >= 1, the range inside the source) from position into
    // destination and returns how many; the Reader asks again for the rest. Throws kInputOutput
    // when the bytes cannot be had.
    virtual std::uint64_t read(std::uint64_t position, std::uint8_t* destination,
                               std::uint64_t n) = 0;
    // An independent handle on the same bytes, for reading on another thread; null when the
    // source has none (its ranges are then read one after another).
    virtual std::unique_ptr<Source> another() const { return nullptr; }
};

// A regular file, opened for byte-exact input.
class FileSource : public Source {
public:
    // kInputOutput when the path is missing, not a regular file or unreadable.
    explicit FileSource(const char* path);
    std::uint64_t size() const override { return m_size; }
    std::uint64_t read(std::uint64_t position, std::uint8_t* destination, std::uint64_t n) override;
    std::unique_ptr<Source> another() const override;

private:
    std::string m_path;
    std::ifstream m_stream;
    std::uint64_t m_size = 0;
};

// Bytes in memory, which must outlive the source.
class MemorySource : public Source {
public:
    explicit MemorySource(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}
    std::uint64_t size() const override { return m_bytes.size(); }
    std::uint64_t read(std::uint64_t position, std::uint8_t* destination, std::uint64_t n) override;
    std::unique_ptr<Source> another() const override;

private:
    std::span<const std::uint8_t> m_bytes;
};

class Reader {
public:
    // Reads the source; kMalformed when it is empty.
    Reader(std::unique_ptr<Source> source, CancelFn cancel, void* context);
    // Reads a file (FileSource).
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
    // Reads the ranges (start, length) at once, each on its own thread when the source has
    // independent handles, and keeps them until dropCache: a walk through them then costs no
    // round trip to the disk each, which is what opening a file not in the page cache waits on.
    // A range that cannot be read is left out; reading it later fails as it would have.
    void preload(std::span<const std::pair<std::uint64_t, std::uint64_t>> ranges);
    // A reader of its own on the same bytes, polling the same cancellation, for another thread;
    // null when the source has no second handle.
    std::unique_ptr<Reader> another() const;
    // Forgets the read-ahead window and the preloaded ranges (after opening, only whole slices
    // are read).
    void dropCache();

private:
    std::unique_ptr<Source> m_source;
    std::uint64_t m_size = 0;
    std::uint64_t m_cacheStart = ~std::uint64_t(0);
    std::vector<std::uint8_t> m_cache;
    std::uint64_t m_window = 0; // length of the next refill
    std::vector<std::pair<std::uint64_t, std::vector<std::uint8_t>>> m_preloaded;
    CancelFn m_cancel;
    void* m_context;
};

} // namespace qv
