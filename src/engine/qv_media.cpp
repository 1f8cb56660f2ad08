// The flat C boundary: every exception stops here and becomes a return value.
#include "qv_media.h"

#include "engine_limits.h"
#include "failure.h"
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
    } catch (const std::bad_alloc&) {
        return qv::kTooLarge;
    } catch (const std::length_error&) {
        return qv::kTooLarge;
    } catch (...) {
        return qv::kInputOutput;
    }
}

// A handle made by make, guarded: null with the code in error (when given) if it throws.
template <typename Make> QVMedia* created(Make&& make, std::uint32_t* error) noexcept
{
    if (error) *error = 0;
    QVMedia* media = nullptr;
    const auto code = guarded([&] { media = make(); });
    if (code != 0 && error) *error = code;
    return code == 0 ? media : nullptr;
}

// A file source for a path from the C boundary; a null path fails as malformed.
std::unique_ptr<qv::Source> fileSource(const char* path)
{
    if (!path) qv::fail(qv::kMalformed);
    return std::make_unique<qv::FileSource>(path);
}

// The track at index, or null for a null handle or an index past the last track.
const qv::Track* trackAt(const QVMedia* media, uint32_t index)
{
    return media && index < media->tracks.size() ? &media->tracks[index] : nullptr;
}

} // namespace

namespace qv {

QVMedia* openMedia(const SourceMaker& makeSource, CancelFn cancel, void* context,
                   std::uint32_t* error, SourceMaker reopen) noexcept
{
    return created([&] { return new QVMedia(makeSource(), cancel, context, std::move(reopen)); },
                   error);
}

QVMedia* openTextTracks(const SourceMaker& makeSource, CancelFn cancel, void* context,
                        std::uint32_t* error) noexcept
{
    return created([&] { return new QVMedia(TextTracksOnly{}, makeSource(), cancel, context); },
                   error);
}

std::int32_t transportPresence(const SourceMaker& makeSource, CancelFn cancel,
                               void* context) noexcept
{
    std::int32_t result = 0;
    const auto code = guarded([&] {
        Reader reader(makeSource(), cancel, context);
        const auto data = reader.bytes(0, std::min(reader.size(), limits::kTransportScanBytes));
        result = static_cast<std::int32_t>(qv_transport::presence(data));
        reader.check();
    });
    return code == 0 ? result : -static_cast<std::int32_t>(code);
}

} // namespace qv

extern "C" {

QVMedia* qv_media_open(const char* path, qv_media_cancel_fn cancel, void* context, uint32_t* error)
{
    if (error) *error = 0;
    if (!path) {
        if (error) *error = qv::kMalformed;
        return nullptr;
    }
    return qv::openMedia(
        [path] { return std::make_unique<qv::FileSource>(path); }, cancel, context, error,
        [file = std::string(path)] { return std::make_unique<qv::FileSource>(file.c_str()); });
}

QVMedia* qv_media_open_text_tracks(const char* path, qv_media_cancel_fn cancel, void* context,
                                   uint32_t* error)
{
    return qv::openTextTracks([path] { return fileSource(path); }, cancel, context, error);
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

uint32_t qv_media_track_count(const QVMedia* media)
{
    return media ? static_cast<uint32_t>(media->tracks.size()) : 0;
}

uint32_t qv_media_track_kind(const QVMedia* media, uint32_t track)
{
    const auto* t = trackAt(media, track);
    return t ? t->kind : 0;
}

const char* qv_media_track_codec(const QVMedia* media, uint32_t track)
{
    const auto* t = trackAt(media, track);
    return t ? qv::codecName(t->codec) : "";
}

const char* qv_media_track_language(const QVMedia* media, uint32_t track)
{
    const auto* t = trackAt(media, track);
    return t ? t->language.c_str() : "";
}

const char* qv_media_track_name(const QVMedia* media, uint32_t track)
{
    const auto* t = trackAt(media, track);
    return t ? t->name.c_str() : "";
}

uint32_t qv_media_layout(const QVMedia* media)
{
    if (!media) return 0;
    return media->fragmented ? QV_MEDIA_LAYOUT_FRAGMENTED : QV_MEDIA_LAYOUT_FULL;
}

int64_t qv_media_read(QVMedia* media, uint64_t offset, uint8_t* buffer, uint64_t count)
{
    if (!media || !buffer || count > qv::limits::kMaxRead || offset > media->size)
        return -std::int64_t{qv::kMalformed};
    std::lock_guard lock(media->mutex);
    const uint64_t n = std::min(media->size - offset, count);
    if (n == 0) return 0;
    const auto code = guarded([&] { media->read(offset, buffer, n); });
    return code == 0 ? static_cast<int64_t>(n) : -static_cast<int64_t>(code);
}

int32_t qv_media_transport_presence(const char* path, qv_media_cancel_fn cancel, void* context)
{
    if (!path) return -static_cast<int32_t>(qv::kMalformed);
    return qv::transportPresence([path] { return std::make_unique<qv::FileSource>(path); }, cancel,
                                 context);
}

uint32_t qv_media_subtitle_tracks(const QVMedia* media)
{
    return media ? static_cast<uint32_t>(media->subtitles->size()) : 0;
}

int32_t qv_media_subtitle_track(const QVMedia* media, uint32_t index, QVMediaSubtitleTrack* track)
{
    return media && track && media->subtitles->describe(index, *track) ? 0 : -1;
}

int32_t qv_media_subtitle_event(const QVMedia* media, uint32_t track_index, uint64_t event_index,
                                QVMediaSubtitleEvent* event)
{
    return media && event && media->subtitles->event(track_index, event_index, *event) ? 0 : -1;
}

int32_t qv_media_subtitle_want(QVMedia* media, uint32_t track_index, int64_t from_ns)
{
    if (!media || track_index >= media->subtitles->size()) return -1;
    const auto code = guarded([&] { media->subtitles->want(track_index, from_ns); });
    return code == 0 ? 0 : -1;
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
