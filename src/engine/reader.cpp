#include "reader.h"

#include "engine_limits.h"
#include "failure.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <thread>

namespace qv {

FileSource::FileSource(const char* path) : m_path(path)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error) || error) fail(kInputOutput);
    // Unbuffered: every read already asks for what it needs, so a stream buffer would only add a
    // copy and read more than asked after each seek.
    m_stream.rdbuf()->pubsetbuf(nullptr, 0);
    m_stream.open(path, std::ios::in | std::ios::binary);
    if (!m_stream) fail(kInputOutput);
    m_stream.seekg(0, std::ios::end);
    const auto end = m_stream.tellg();
    if (end < 0) fail(kInputOutput);
    m_size = static_cast<std::uint64_t>(end);
    m_stream.seekg(0, std::ios::beg);
    if (!m_stream) fail(kInputOutput);
}

std::uint64_t FileSource::read(std::uint64_t position, std::uint8_t* destination, std::uint64_t n)
{
    // A failed read leaves the stream in error; the next read starts afresh.
    m_stream.clear();
    m_stream.seekg(static_cast<std::streamoff>(position), std::ios::beg);
    if (!m_stream) fail(kInputOutput);
    m_stream.read(reinterpret_cast<char*>(destination), static_cast<std::streamsize>(n));
    const auto got = static_cast<std::uint64_t>(m_stream.gcount());
    // The file's size was taken at opening; a file that shrank since comes up short.
    if (got == 0) fail(kInputOutput);
    return got;
}

std::unique_ptr<Source> FileSource::another() const
{
    auto source = std::make_unique<FileSource>(m_path.c_str());
    // A file replaced since would give other bytes.
    if (source->size() != m_size) fail(kInputOutput);
    return source;
}

std::unique_ptr<Source> MemorySource::another() const
{
    return std::make_unique<MemorySource>(m_bytes);
}

std::uint64_t MemorySource::read(std::uint64_t position, std::uint8_t* destination, std::uint64_t n)
{
    std::memcpy(destination, m_bytes.data() + position, n);
    return n;
}

Reader::Reader(std::unique_ptr<Source> source, CancelFn cancel, void* context)
    : m_source(std::move(source)), m_size(m_source->size()), m_cancel(cancel), m_context(context)
{
    require(m_size >= 1);
}

Reader::Reader(const char* path, CancelFn cancel, void* context)
    : Reader(std::make_unique<FileSource>(path), cancel, context)
{
}

std::unique_ptr<Reader> Reader::another() const
{
    auto source = m_source->another();
    if (!source) return nullptr;
    return std::make_unique<Reader>(std::move(source), m_cancel, m_context);
}

void Reader::check()
{
    if (m_cancel && m_cancel(m_context) != 0) fail(kCancelled);
}

namespace {

void readAll(Source& source, std::uint64_t position, std::uint8_t* destination, std::uint64_t n)
{
    for (std::uint64_t done = 0; done < n;) {
        const auto got = source.read(position + done, destination + done, n - done);
        if (got == 0 || got > n - done) fail(kInputOutput);
        done += got;
    }
}

} // namespace

void Reader::copy(std::uint64_t position, std::uint8_t* destination, std::uint64_t n)
{
    check();
    require(position <= m_size && n <= m_size - position);
    for (const auto& [start, bytes] : m_preloaded) {
        if (position >= start && position - start <= bytes.size() &&
            n <= bytes.size() - (position - start)) {
            std::memcpy(destination, bytes.data() + (position - start), n);
            return;
        }
    }
    readAll(*m_source, position, destination, n);
}

std::vector<std::uint8_t> Reader::bytes(std::uint64_t position, std::uint64_t n)
{
    require(n <= limits::kMaxRead, kTooLarge);
    require(position <= m_size && n <= m_size - position);
    std::vector<std::uint8_t> buffer(n);
    copy(position, buffer.data(), n);
    return buffer;
}

std::string Reader::text(std::uint64_t position, std::uint64_t n, std::uint64_t limit)
{
    require(n <= limit);
    const auto raw = bytes(position, n);
    std::string result(raw.begin(), raw.end());
    // Matroska strings may be padded with zero bytes.
    if (const auto zero = result.find('\0'); zero != std::string::npos) result.resize(zero);
    return result;
}

std::uint8_t Reader::byte(std::uint64_t position)
{
    require(position < m_size);
    const bool cached = m_cacheStart != ~std::uint64_t(0);
    if (cached && position >= m_cacheStart && position - m_cacheStart < m_cache.size())
        return m_cache[position - m_cacheStart];
    // Reading on just past the window means a sequential scan: widen the window. A jump (the
    // demuxer skipping a frame's payload) goes back to a small window, so that indexing a file of
    // large frames reads their headers, not the whole file.
    for (const auto& [start, bytes] : m_preloaded)
        if (position >= start && position - start < bytes.size()) return bytes[position - start];
    const bool sequential =
        cached && position >= m_cacheStart && position - m_cacheStart < 2 * m_cache.size();
    m_window =
        sequential ? std::min(m_window * 2, limits::kReadAheadWindow) : limits::kReadAheadMinimum;
    const auto length = std::min(m_size - position, m_window);
    m_cacheStart = ~std::uint64_t(0);
    m_cache.resize(length);
    copy(position, m_cache.data(), length);
    m_cacheStart = position;
    return m_cache[0];
}

std::uint64_t Reader::uintBE(std::uint64_t position, std::uint64_t n)
{
    require(n >= 1 && n <= 8 && position <= m_size && n <= m_size - position);
    std::uint64_t value = 0;
    for (std::uint64_t i = 0; i < n; ++i)
        value = (value << 8) | byte(position + i);
    return value;
}

void Reader::preload(std::span<const std::pair<std::uint64_t, std::uint64_t>> ranges)
{
    check();
    std::vector<std::vector<std::uint8_t>> loaded(ranges.size());
    std::vector<char> ok(ranges.size(), 0);
    const auto load = [&](Source& source, std::size_t i) {
        const auto [start, length] = ranges[i];
        if (start > m_size || length > m_size - start || length == 0) return;
        try {
            loaded[i].resize(length);
            readAll(source, start, loaded[i].data(), length);
            ok[i] = 1;
        } catch (...) {
            // Left to the reads that need it, which fail with their own code.
        }
    };
    // Ranges are dealt out in turn to a few threads: the first ones (the large ones, by the
    // callers' order) each get a thread of their own, the many small ones share.
    const std::size_t count = std::min<std::size_t>(ranges.size(), limits::kPreloadThreads);
    const auto share = [&](Source& source, std::size_t first) {
        for (auto i = first; i < ranges.size(); i += count)
            load(source, i);
    };
    // Nothing may throw while a thread runs: both lists have their room before the first starts.
    std::vector<std::thread> threads;
    threads.reserve(count);
    std::vector<std::size_t> here{0};
    here.reserve(count);
    for (std::size_t k = 1; k < count; ++k) {
        try {
            if (auto other = m_source->another()) {
                threads.emplace_back([&share, k, source = std::move(other)] { share(*source, k); });
                continue;
            }
        } catch (...) {
            // No second handle or no thread to be had: these ranges are read here.
        }
        here.push_back(k);
    }
    for (const auto k : here)
        share(*m_source, k);
    for (auto& thread : threads)
        thread.join();
    for (std::size_t i = 0; i < ranges.size(); ++i)
        if (ok[i]) m_preloaded.emplace_back(ranges[i].first, std::move(loaded[i]));
    check();
}

void Reader::dropCache()
{
    std::vector<std::pair<std::uint64_t, std::vector<std::uint8_t>>>().swap(m_preloaded);
    m_cacheStart = ~std::uint64_t(0);
    m_cache.clear();
    m_cache.shrink_to_fit();
}

} // namespace qv
