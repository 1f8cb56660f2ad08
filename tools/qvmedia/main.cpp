// qvmedia: the container engine from the command line.
//   qvmedia info FILE        one JSON object describing the virtual MP4
//   qvmedia cat FILE [OUT]   the whole virtual MP4, to OUT or standard output
//   qvmedia presence FILE    what a transport stream carries: "audio, video", "audio", "video"
//                            or "none"
//   qvmedia subtitles FILE   the text subtitle tracks and every event as one JSON object, of a
//                            Matroska file or of an MP4/QuickTime file's timed text
// A failure prints "error N: <meaning>" on standard error and exits with the engine code N.
#include "engine/media.h"
#include "engine/qv_media.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

int failWith(std::uint32_t code)
{
    std::fprintf(stderr, "error %u: %s\n", code, qv_media_error_text(code));
    return static_cast<int>(code);
}

// Text as a JSON string (quotes, backslashes and control characters escaped; UTF-8 kept).
std::string jsonString(std::string_view text)
{
    std::string out = "\"";
    for (auto c = text.begin(); c != text.end(); ++c) {
        const auto byte = static_cast<unsigned char>(*c);
        if (byte == '"' || byte == '\\') {
            out += '\\';
            out += *c;
        } else if (byte < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            out += escaped;
        } else {
            out += *c;
        }
    }
    return out + "\"";
}

struct Closer {
    void operator()(QVMedia* m) const { qv_media_close(m); }
};
using Media = std::unique_ptr<QVMedia, Closer>;

int info(const QVMedia& media)
{
    std::printf(
        "{\"format\":\"%s\",\"layout\":\"%s\",\"size\":%llu,\"samples\":%llu,\"videoTracks\":%u,"
        "\"audioTracks\":%u,\"tracks\":[",
        qv_media_format(&media) == QV_MEDIA_FORMAT_FLV ? "flv" : "matroska",
        qv_media_layout(&media) == QV_MEDIA_LAYOUT_FRAGMENTED ? "fragmented" : "full",
        static_cast<unsigned long long>(qv_media_size(&media)),
        static_cast<unsigned long long>(qv_media_sample_count(&media)),
        qv_media_video_tracks(&media), qv_media_audio_tracks(&media));
    bool first = true;
    std::uint32_t index = 0;
    for (const auto& t : media.tracks) {
        const auto& timing = t.timing;
        const double seconds =
            timing.timescale ? double(timing.mediaEnd - timing.mediaStart) / timing.timescale : 0.0;
        std::printf(
            "%s{\"kind\":\"%s\",\"codec\":\"%s\",\"timescale\":%u,\"samples\":%llu,\"duration\":%."
            "6f,"
            "\"startMs\":%llu,\"default\":%s",
            first ? "" : ",", t.kind == qv::kVideo ? "video" : "audio", qv::codecName(t.codec),
            timing.timescale, static_cast<unsigned long long>(t.sampleCount), seconds,
            static_cast<unsigned long long>(timing.movieOffset), t.isDefault ? "true" : "false");
        std::printf(",\"language\":%s,\"name\":%s",
                    jsonString(qv_media_track_language(&media, index)).c_str(),
                    jsonString(qv_media_track_name(&media, index)).c_str());
        ++index;
        if (t.kind == qv::kVideo)
            std::printf(",\"width\":%u,\"height\":%u", t.pixelWidth, t.pixelHeight);
        else
            std::printf(",\"sampleRate\":%u,\"channels\":%u", t.audio.sampleRate, t.audio.channels);
        std::printf("}");
        first = false;
    }
    std::printf("]}\n");
    return 0;
}

int cat(QVMedia& media, const char* outPath)
{
    std::FILE* out = outPath ? std::fopen(outPath, "wb") : stdout;
    if (!out) return failWith(QV_MEDIA_INPUT_OUTPUT);
    std::vector<std::uint8_t> buffer(QV_MEDIA_MAX_READ);
    const std::uint64_t size = qv_media_size(&media);
    std::uint64_t offset = 0;
    int status = 0;
    while (offset < size) {
        const auto n = qv_media_read(&media, offset, buffer.data(), buffer.size());
        if (n <= 0) {
            status = failWith(QV_MEDIA_INPUT_OUTPUT);
            break;
        }
        if (std::fwrite(buffer.data(), 1, static_cast<std::size_t>(n), out) !=
            static_cast<std::size_t>(n)) {
            status = failWith(QV_MEDIA_INPUT_OUTPUT);
            break;
        }
        offset += static_cast<std::uint64_t>(n);
    }
    if (std::fflush(out) != 0 && status == 0) status = failWith(QV_MEDIA_INPUT_OUTPUT);
    if (outPath) std::fclose(out);
    return status;
}

int presence(const char* path)
{
    const std::int32_t bits = qv_media_transport_presence(path, nullptr, nullptr);
    if (bits < 0) return failWith(static_cast<std::uint32_t>(-bits));
    const bool audio = bits & QV_MEDIA_HAS_AUDIO;
    const bool video = bits & QV_MEDIA_HAS_VIDEO;
    std::printf("%s\n", audio && video ? "audio, video"
                        : audio        ? "audio"
                        : video        ? "video"
                                       : "none");
    return 0;
}

int subtitles(const char* path)
{
    std::uint32_t code = 0;
    Media media(qv_media_open(path, nullptr, nullptr, &code));
    if (!media && (code == QV_MEDIA_UNSUPPORTED || code == QV_MEDIA_MALFORMED))
        media.reset(qv_media_open_text_tracks(path, nullptr, nullptr, &code));
    if (!media) return failWith(code);
    // In the fragmented layout events arrive while the file is open: wait for all of them.
    for (std::uint32_t t = 0; t < qv_media_subtitle_tracks(media.get()); ++t)
        qv_media_subtitle_want(media.get(), t, 0);
    std::printf("{\"tracks\":[");
    for (std::uint32_t t = 0; t < qv_media_subtitle_tracks(media.get()); ++t) {
        QVMediaSubtitleTrack track{};
        while (qv_media_subtitle_track(media.get(), t, &track) == 0 && !track.complete)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::printf("%s{\"codec\":%s,\"language\":%s,\"name\":%s,\"default\":%s,\"forced\":%s,"
                    "\"cut\":%llu,\"events\":[",
                    t ? "," : "", jsonString(track.codec_id).c_str(),
                    jsonString(track.language).c_str(), jsonString(track.name).c_str(),
                    track.is_default ? "true" : "false", track.forced ? "true" : "false",
                    static_cast<unsigned long long>(track.cut_events));
        for (std::uint64_t e = 0; e < track.event_count; ++e) {
            QVMediaSubtitleEvent event{};
            if (qv_media_subtitle_event(media.get(), t, e, &event) != 0) break;
            std::printf("%s{\"start\":%.6f,\"duration\":%.6f,\"text\":%s}", e ? "," : "",
                        double(event.start) / 1e9, double(event.duration) / 1e9,
                        jsonString({event.text, event.text_size}).c_str());
        }
        std::printf("]}");
    }
    std::printf("]}\n");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const bool known =
        argc >= 3 &&
        (std::strcmp(argv[1], "info") == 0 || std::strcmp(argv[1], "cat") == 0 ||
         std::strcmp(argv[1], "presence") == 0 || std::strcmp(argv[1], "subtitles") == 0);
    if (!known || (std::strcmp(argv[1], "cat") != 0 && argc != 3) || argc > 4) {
        std::fprintf(stderr, "usage: qvmedia info FILE\n       qvmedia cat FILE [OUT]\n"
                             "       qvmedia presence FILE\n       qvmedia subtitles FILE\n");
        return 64;
    }
    if (std::strcmp(argv[1], "presence") == 0) return presence(argv[2]);
    if (std::strcmp(argv[1], "subtitles") == 0) return subtitles(argv[2]);
    std::uint32_t code = 0;
    Media media(qv_media_open(argv[2], nullptr, nullptr, &code));
    if (!media) return failWith(code);
    if (std::strcmp(argv[1], "info") == 0) return info(*media);
    return cat(*media, argc == 4 ? argv[3] : nullptr);
}
