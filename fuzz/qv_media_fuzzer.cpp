// Fuzz target for the engine's flat interface: every input is opened from memory as a container
// (the same open as qv_media_open, over a memory source) in each layout (full, and fragmented where
// Matroska Cues allow it), read back in full through qv_media_read, and probed as a transport
// stream, and opened for its MP4 text tracks. Any crash, sanitizer report, hang or runaway
// allocation is a finding; refusals with a code are expected.
#include "engine/media.h"
#include "engine/qv_media.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <span>
#include <vector>

namespace {

// Virtual files can be much larger than the input when headers are big; stop reading after this.
constexpr std::uint64_t kReadBudget = 64u << 20;

// The input as the engine's source.
qv::SourceMaker memory(const std::uint8_t* data, std::size_t size)
{
    return [=] {
        return std::make_unique<qv::MemorySource>(std::span<const std::uint8_t>(data, size));
    };
}

// Opens the input in one layout and reads all of it. A fragmented file builds each moof on its
// first read and may fail that read alone (a damaged cluster), so a failed piece is skipped rather
// than ending the walk: every fragment gets read.
void readBack(const std::uint8_t* data, std::size_t size, const char* layout)
{
    ::setenv("QV_MEDIA_LAYOUT", layout, 1);
    std::uint32_t error = 0;
    QVMedia* media = qv::openMedia(memory(data, size), nullptr, nullptr, &error);
    ::unsetenv("QV_MEDIA_LAYOUT");
    if (!media) {
        if (error == 0) std::abort(); // a refusal must carry a code
        return;
    }
    if (error != 0) std::abort(); // success must leave the code at 0
    const std::uint64_t total = qv_media_size(media);
    std::vector<std::uint8_t> buffer(65536);
    // Uneven piece sizes so reads start and end inside header, slices, slots and boundaries.
    std::uint64_t offset = 0;
    std::uint64_t piece = 1 + (size % 4093);
    while (offset < total && offset < kReadBudget) {
        const std::int64_t got = qv_media_read(media, offset, buffer.data(), piece);
        if (got == 0 || got > static_cast<std::int64_t>(piece)) std::abort();
        offset += got > 0 ? static_cast<std::uint64_t>(got) : piece;
        piece = piece * 7 % buffer.size() + 1;
    }
    // The end of the file reads as empty and one past it is refused.
    if (qv_media_read(media, total, buffer.data(), 1) != 0) std::abort();
    if (qv_media_read(media, total + 1, buffer.data(), 1) != -1) std::abort();
    if (qv_media_layout(media) == 0) std::abort();
    // Every subtitle event and attachment byte, which the reader of embedded subtitles walks.
    for (std::uint32_t t = 0; t < qv_media_subtitle_tracks(media); ++t) {
        QVMediaSubtitleTrack track{};
        if (qv_media_subtitle_track(media, t, &track) != 0) std::abort();
        std::int64_t previous = INT64_MIN;
        for (std::uint64_t e = 0; e < track.event_count; ++e) {
            QVMediaSubtitleEvent event{};
            if (qv_media_subtitle_event(media, t, e, &event) != 0) std::abort();
            if (event.start < previous || event.duration < 0) std::abort(); // sorted, timed
            previous = event.start;
            volatile char sink = 0;
            for (std::uint64_t i = 0; i < event.text_size; ++i)
                sink = static_cast<char>(sink ^ event.text[i]);
        }
    }
    for (std::uint32_t a = 0; a < qv_media_attachments(media); ++a) {
        QVMediaAttachment attachment{};
        if (qv_media_attachment(media, a, &attachment) != 0) std::abort();
        for (std::uint64_t at = 0; at < attachment.size && at < kReadBudget;) {
            const std::int64_t got =
                qv_media_attachment_read(media, a, at, buffer.data(), buffer.size());
            if (got <= 0) break;
            at += static_cast<std::uint64_t>(got);
        }
    }
    qv_media_close(media);
}

// Opens the input for its text tracks alone (MP4, or Matroska whatever its other tracks) and walks
// every event, which must come in time order with a length within the event limit, and reads the
// attachments.
void readTextTracks(const std::uint8_t* data, std::size_t size)
{
    std::uint32_t error = 0;
    QVMedia* media = qv::openTextTracks(memory(data, size), nullptr, nullptr, &error);
    if (!media) {
        if (error == 0) std::abort();
        return;
    }
    for (std::uint32_t t = 0; t < qv_media_subtitle_tracks(media); ++t) {
        QVMediaSubtitleTrack track{};
        if (qv_media_subtitle_track(media, t, &track) != 0 || track.complete != 1) std::abort();
        std::int64_t previous = std::numeric_limits<std::int64_t>::min();
        for (std::uint64_t e = 0; e < track.event_count; ++e) {
            QVMediaSubtitleEvent event{};
            if (qv_media_subtitle_event(media, t, e, &event) != 0) std::abort();
            if (event.start < previous || event.duration < 0 || event.text_size > 65'536)
                std::abort();
            previous = event.start;
            volatile char sink = 0;
            for (std::uint64_t i = 0; i < event.text_size; ++i)
                sink = sink ^ event.text[i];
        }
    }
    std::uint8_t bytes[64];
    for (std::uint32_t a = 0; a < qv_media_attachments(media); ++a)
        qv_media_attachment_read(media, a, 0, bytes, sizeof bytes);
    qv_media_close(media);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    readBack(data, size, "full");
    readBack(data, size, "fragmented");
    readTextTracks(data, size);

    const std::int32_t presence = qv::transportPresence(memory(data, size), nullptr, nullptr);
    if (presence > (QV_MEDIA_HAS_AUDIO | QV_MEDIA_HAS_VIDEO)) std::abort();
    return 0;
}
