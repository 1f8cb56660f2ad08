// Engine benchmark: for each file given, the open time against ffmpeg's full demux of the same
// file, a full sequential read of the virtual MP4 against a raw read of the source, and the memory
// the open media keeps per sample. Run through scripts/bench.
#include "engine/matroska.h"
#include "engine/media.h"
#include "engine/qv_media.h"
#include "engine/reader.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <malloc.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Resident memory in bytes, from /proc.
long long residentBytes()
{
    std::ifstream statm("/proc/self/statm");
    long long pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

double rawRead(const char* path)
{
    std::vector<char> buffer(QV_MEDIA_MAX_READ);
    const auto start = Clock::now();
    std::FILE* f = std::fopen(path, "rb");
    if (!f) return -1;
    while (std::fread(buffer.data(), 1, buffer.size(), f) == buffer.size()) {
    }
    std::fclose(f);
    return secondsSince(start);
}

double ffmpegDemux(const char* path)
{
    const std::string command =
        std::string("ffmpeg -v error -nostdin -i '") + path + "' -c copy -f null - >/dev/null 2>&1";
    const auto start = Clock::now();
    if (std::system(command.c_str()) != 0) return -1;
    return secondsSince(start);
}

template <typename F> double best(int runs, F&& f)
{
    double result = 1e30;
    for (int i = 0; i < runs; ++i)
        result = std::min(result, f());
    return result;
}

int bench(const char* path)
{
    rawRead(path); // warm the page cache so both sides read from memory
    std::uint32_t code = 0;
    // Steady memory: what an open media keeps, after the allocator returned what opening freed. A
    // first open and close leaves out one-time costs (code pages, stream and locale set-up).
    qv_media_close(qv_media_open(path, nullptr, nullptr, &code));
    malloc_trim(0);
    const auto before = residentBytes();
    const auto heapBefore = mallinfo2();
    QVMedia* media = qv_media_open(path, nullptr, nullptr, &code);
    malloc_trim(0);
    const auto after = residentBytes();
    const auto heapAfter = mallinfo2();
    const double heapPerSample = double(heapAfter.uordblks + heapAfter.hblkhd) -
                                 double(heapBefore.uordblks + heapBefore.hblkhd);
    const double open = best(3, [&] {
        if (media) qv_media_close(media);
        const auto start = Clock::now();
        media = qv_media_open(path, nullptr, nullptr, &code);
        return secondsSince(start);
    });
    if (!media) {
        std::fprintf(stderr, "%s: error %u\n", path, code);
        return 1;
    }
    const auto samples = qv_media_sample_count(media);
    const double allocated = heapPerSample / double(samples);
    const double accounted =
        double(media->slices.capacity() * sizeof(qv::Slice) + media->header.capacity()) /
        double(samples);
    const auto size = qv_media_size(media);

    std::vector<std::uint8_t> buffer(QV_MEDIA_MAX_READ);
    const double read = best(9, [&] {
        const auto start = Clock::now();
        for (std::uint64_t at = 0; at < size;) {
            const auto n = qv_media_read(media, at, buffer.data(), buffer.size());
            if (n <= 0) return 1e30;
            at += static_cast<std::uint64_t>(n);
        }
        return secondsSince(start);
    });
    const double raw = best(9, [&] { return rawRead(path); });
    const double demux = best(2, [&] { return ffmpegDemux(path); });
    qv_media_close(media);

    // The Matroska index alone, walked by the index threads and by one thread.
    const auto index = [&](std::uint64_t parallelFrom) {
        return best(3, [&] {
            const auto start = Clock::now();
            qv::Reader reader(path, nullptr, nullptr);
            if (!qv::probeMatroska(reader)) return -1.0;
            qv::matroska(reader, parallelFrom);
            return secondsSince(start);
        });
    };
    const double threaded = index(qv::limits::kParallelIndexBytes);
    const double single = index(~std::uint64_t(0));

    const double mb = double(size) / 1e6;
    const double perSample = double(after - before) / double(samples);
    std::printf("%s\n", path);
    std::printf("  samples %llu, virtual MP4 %.1f MB\n", static_cast<unsigned long long>(samples),
                mb);
    std::printf("  open     %8.3f s   ffmpeg -c copy demux %8.3f s   ratio %.3f (target <= 0.2)\n",
                open, demux, open / demux);
    std::printf("  read     %8.3f s (%.0f MB/s)   raw read %8.3f s (%.0f MB/s)   ratio %.2f "
                "(target >= 0.7)\n",
                read, mb / read, raw, mb / raw, raw / read);
    if (single > 0)
        std::printf("  index    %8.3f s on up to %llu threads   %8.3f s on one   ratio %.2f "
                    "(from %llu MiB of clusters)\n",
                    threaded, static_cast<unsigned long long>(qv::limits::kIndexThreads), single,
                    threaded / single,
                    static_cast<unsigned long long>(qv::limits::kParallelIndexBytes >> 20));
    std::printf("  memory   %.1f bytes per sample allocated (%.1f in the slice map and header, "
                "%.1f resident) "
                "(target <= 96)\n",
                allocated, accounted, perSample);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: qv_engine_bench FILE...\n");
        return 64;
    }
    int status = 0;
    for (int i = 1; i < argc; ++i)
        status |= bench(argv[i]);
    return status;
}
