// Text subtitles of a large Matroska file: what the open reads, and how long after a track is
// asked for the events near the playback position and then all of them are known.
#include "engine/media.h"
#include "engine/qv_media.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<std::uint64_t> g_bytes{0};

// The file, counting the bytes read through it.
class CountingSource : public qv::Source {
public:
    explicit CountingSource(const char* path) : m_file(path) {}
    std::uint64_t size() const override { return m_file.size(); }
    std::uint64_t read(std::uint64_t position, std::uint8_t* destination, std::uint64_t n) override
    {
        const auto got = m_file.read(position, destination, n);
        g_bytes += got;
        return got;
    }

private:
    qv::FileSource m_file;
};

double millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

QVMediaSubtitleTrack trackOf(QVMedia* media, std::uint32_t t)
{
    QVMediaSubtitleTrack track{};
    qv_media_subtitle_track(media, t, &track);
    return track;
}

bool knowsEventNear(QVMedia* media, std::int64_t fromNs)
{
    const auto count = trackOf(media, 0).event_count;
    QVMediaSubtitleEvent event{};
    for (std::uint64_t i = 0; i < count; ++i)
        if (qv_media_subtitle_event(media, 0, i, &event) == 0 && event.start >= fromNs &&
            event.start < fromNs + 10'000'000'000)
            return true;
    return false;
}

int bench(const char* path, std::int64_t fromSeconds)
{
    const auto make = [path] { return std::make_unique<CountingSource>(path); };
    g_bytes = 0;
    const auto opening = Clock::now();
    std::uint32_t code = 0;
    QVMedia* media = qv::openMedia(make, nullptr, nullptr, &code, make);
    if (!media) {
        std::fprintf(stderr, "%s: error %u\n", path, code);
        return 1;
    }
    const double openMs = millisecondsSince(opening);
    const std::uint64_t size = qv::FileSource(path).size();
    const std::uint32_t tracks = qv_media_subtitle_tracks(media);
    std::printf("%s from %llds\n", path, static_cast<long long>(fromSeconds));
    std::printf("  layout %s, open %.1f ms, read %.3f %% of %.0f MB, %u tracks, events at open:",
                qv_media_layout(media) == QV_MEDIA_LAYOUT_FRAGMENTED ? "fragmented" : "full",
                openMs, 100.0 * double(g_bytes) / double(size), double(size) / 1e6, tracks);
    for (std::uint32_t t = 0; t < tracks; ++t)
        std::printf(" %llu", static_cast<unsigned long long>(trackOf(media, t).event_count));
    std::printf("\n");
    if (tracks == 0) return qv_media_close(media), 1;

    g_bytes = 0;
    const std::int64_t fromNs = fromSeconds * 1'000'000'000;
    const auto asking = Clock::now();
    for (std::uint32_t t = 0; t < tracks; ++t)
        qv_media_subtitle_want(media, t, fromNs);
    double nearMs = -1;
    for (;;) {
        if (nearMs < 0 && knowsEventNear(media, fromNs)) nearMs = millisecondsSince(asking);
        bool complete = true;
        for (std::uint32_t t = 0; t < tracks; ++t)
            complete = complete && trackOf(media, t).complete;
        if (complete) break;
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    std::printf("  a line within 10 s after %.1f ms, all after %.1f ms, reading %.2f %%; events:",
                nearMs, millisecondsSince(asking), 100.0 * double(g_bytes) / double(size));
    for (std::uint32_t t = 0; t < tracks; ++t)
        std::printf(" %llu", static_cast<unsigned long long>(trackOf(media, t).event_count));
    std::printf("\n");
    qv_media_close(media);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: qv_subtitles_bench SECONDS FILE...\n");
        return 64;
    }
    int status = 0;
    for (int i = 2; i < argc; ++i)
        status |= bench(argv[i], std::atoll(argv[1]));
    return status;
}
