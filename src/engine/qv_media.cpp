// The flat C boundary: every exception stops here and becomes a return value.
#include "qv_media.h"

#include "audio/audio_error.h"
#include "failure.h"
#include "engine_limits.h"
#include "media.h"
#include "transport_stream.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <vector>

namespace {

// Runs body and maps whatever it throws to an engine code (0 on success).
template <typename Body> std::uint32_t guarded(Body&& body) noexcept
{
    try {
        body();
        return 0;
    } catch (const qv::Failure& failure) {
        return failure.code();
    } catch (const qv_audio::Error& error) {
        return error.code();
    } catch (const std::bad_alloc&) {
        return qv::kTooLarge;
    } catch (const std::length_error&) {
        return qv::kTooLarge;
    } catch (...) {
        return qv::kInputOutput;
    }
}

} // namespace

extern "C" {

QVMedia* qv_media_open(const char* path, qv_media_cancel_fn cancel, void* context, uint32_t* error)
{
    if (error) *error = 0;
    if (!path) {
        if (error) *error = qv::kMalformed;
        return nullptr;
    }
    QVMedia* media = nullptr;
    const auto code = guarded([&] { media = new QVMedia(path, cancel, context); });
    if (code != 0 && error) *error = code;
    return code == 0 ? media : nullptr;
}

void qv_media_close(QVMedia* media)
{
    delete media;
}

uint64_t qv_media_size(const QVMedia* media)
{
    return media ? media->size : 0;
}

uint64_t qv_media_sample_count(const QVMedia* media)
{
    return media ? media->sampleCount : 0;
}

uint32_t qv_media_video_tracks(const QVMedia* media)
{
    if (!media) return 0;
    uint32_t n = 0;
    for (const auto& t : media->tracks)
        n += t.kind == qv::kVideo ? 1 : 0;
    return n;
}

uint32_t qv_media_audio_tracks(const QVMedia* media)
{
    if (!media) return 0;
    return static_cast<uint32_t>(media->tracks.size()) - qv_media_video_tracks(media);
}

uint32_t qv_media_format(const QVMedia* media)
{
    return media ? media->format : 0;
}

int64_t qv_media_read(QVMedia* media, uint64_t offset, uint8_t* buffer, uint64_t count)
{
    if (!media || !buffer || count > qv::limits::kMaxRead || offset > media->size) return -1;
    std::lock_guard lock(media->mutex);
    const uint64_t n = std::min(media->size - offset, count);
    if (n == 0) return 0;
    const auto code = guarded([&] { media->read(offset, buffer, n); });
    return code == 0 ? static_cast<int64_t>(n) : -1;
}

int32_t qv_media_transport_presence(const char* path, qv_media_cancel_fn cancel, void* context)
{
    if (!path) return -1;
    int32_t result = 0;
    const auto code = guarded([&] {
        qv::Reader reader(path, cancel, context);
        const auto data = reader.bytes(0, std::min(reader.size(), qv::limits::kTransportScanBytes));
        result = static_cast<int32_t>(qv_transport::presence(data));
        reader.check();
    });
    return code == 0 ? result : -static_cast<int32_t>(code);
}

uint32_t qv_media_subtitle_tracks(const QVMedia* media)
{
    return media ? static_cast<uint32_t>(media->subtitles.size()) : 0;
}

int32_t qv_media_subtitle_track(const QVMedia* media, uint32_t index, QVMediaSubtitleTrack* track)
{
    if (!media || !track || index >= media->subtitles.size()) return -1;
    const auto& t = media->subtitles[index];
    *track = {t.codecId.c_str(),
              t.language.c_str(),
              t.name.c_str(),
              t.codecPrivate.empty() ? nullptr : t.codecPrivate.data(),
              t.codecPrivate.size(),
              t.isDefault ? 1u : 0u,
              t.forced ? 1u : 0u,
              t.events.size(),
              t.cutEvents};
    return 0;
}

int32_t qv_media_subtitle_event(const QVMedia* media, uint32_t track_index, uint64_t event_index,
                                QVMediaSubtitleEvent* event)
{
    if (!media || !event || track_index >= media->subtitles.size()) return -1;
    const auto& events = media->subtitles[track_index].events;
    if (event_index >= events.size()) return -1;
    const auto& e = events[event_index];
    *event = {e.start, e.duration, e.text.data(), e.text.size()};
    return 0;
}

uint32_t qv_media_attachments(const QVMedia* media)
{
    return media ? static_cast<uint32_t>(media->attachments.size()) : 0;
}

int32_t qv_media_attachment(const QVMedia* media, uint32_t index, QVMediaAttachment* attachment)
{
    if (!media || !attachment || index >= media->attachments.size()) return -1;
    const auto& a = media->attachments[index];
    *attachment = {a.name.c_str(), a.mimeType.c_str(), a.size};
    return 0;
}

int64_t qv_media_attachment_read(QVMedia* media, uint32_t index, uint64_t offset, uint8_t* buffer,
                                 uint64_t count)
{
    if (!media || !buffer || count > qv::limits::kMaxRead || index >= media->attachments.size())
        return -1;
    const auto& a = media->attachments[index];
    if (offset > a.size) return -1;
    const uint64_t n = std::min(count, a.size - offset);
    const auto code = guarded([&] {
        std::lock_guard lock(media->mutex);
        media->reader.copy(a.position + offset, buffer, n);
    });
    return code == 0 ? static_cast<int64_t>(n) : -1;
}

} // extern "C"
