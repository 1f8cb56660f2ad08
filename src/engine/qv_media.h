#ifndef QV_MEDIA_H
#define QV_MEDIA_H
/*
 * Quorvane container engine: turns a Matroska/WebM or FLV file into a virtual MP4 file.
 *
 * Opening a file reads its structure, indexes every sample of every accepted track and builds the
 * MP4 header (ftyp + moov + a 16-byte mdat header) in memory. Every sample's bytes stay in the
 * source file; a read of the virtual file copies header bytes from memory and sample bytes from the
 * source at their own position. Nothing is converted or written to disk.
 *
 * Error codes, reported by qv_media_open through its out-parameter and by
 * qv_media_transport_presence as negative results:
 *   1  malformed or out of range (a bounds check failed, the file is empty, a value overflowed)
 *   2  unsupported (no demuxer recognises the file, no usable track, a refused codec or feature)
 *   3  too large or out of memory (a read above 1,048,576 bytes, a virtual file of 2^64 - 1 bytes)
 *   4  cancelled (the cancellation callback returned non-zero)
 *   5  input/output (not a regular file, cannot be opened, a seek failed, a short read)
 *
 * Threads: qv_media_open and qv_media_transport_presence run entirely on the calling thread. After
 * opening, queries and reads may come from any thread; reads on one handle are serialised by a
 * mutex inside the handle and share one file stream. No function throws; the engine never logs.
 */
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* An open media file. Opaque; created by qv_media_open, destroyed by qv_media_close. */
typedef struct QVMedia QVMedia;

/*
 * Cancellation callback: returns non-zero to cancel. The engine polls it before every read of the
 * source file, during opening and during every later qv_media_read, on whichever thread is working.
 * The callback and its context are kept for the handle's whole life, so the context must stay valid
 * until qv_media_close.
 */
typedef int (*qv_media_cancel_fn)(void* context);

/* Format codes returned by qv_media_format. */
enum { QV_MEDIA_FORMAT_MATROSKA = 1, QV_MEDIA_FORMAT_FLV = 2 };

/* Presence bits returned by qv_media_transport_presence. */
enum { QV_MEDIA_HAS_AUDIO = 1, QV_MEDIA_HAS_VIDEO = 2 };

/* Largest count accepted by qv_media_read. */
#define QV_MEDIA_MAX_READ 1048576u

/*
 * Opens the file at `path` (a file-system path in the platform's encoding).
 * `cancel` may be null. `error` may be null; when given it is set to 0 on entry and, on failure,
 * receives the code: 1 when path is null, the engine's code otherwise (3 when memory runs out,
 * 5 for any unexpected failure).
 * Returns the handle, owned by the caller and released with qv_media_close, or null on failure.
 */
QVMedia* qv_media_open(const char* path, qv_media_cancel_fn cancel, void* context,
                       uint32_t* error);

/* Destroys the handle and closes the file. Null is ignored. Call once, after every read returned. */
void qv_media_close(QVMedia* media);

/* The virtual MP4 file's size in bytes; 0 for null. */
uint64_t qv_media_size(const QVMedia* media);

/* Total number of samples over all tracks; 0 for null. */
uint64_t qv_media_sample_count(const QVMedia* media);

/* Number of video tracks; 0 for null. */
uint32_t qv_media_video_tracks(const QVMedia* media);

/* Number of tracks that are not video (every such track is audio); 0 for null. */
uint32_t qv_media_audio_tracks(const QVMedia* media);

/* QV_MEDIA_FORMAT_MATROSKA (Matroska and WebM) or QV_MEDIA_FORMAT_FLV; 0 for null. */
uint32_t qv_media_format(const QVMedia* media);

/*
 * Copies up to `count` bytes of the virtual file, starting at `offset`, into `buffer`.
 * Returns the number of bytes copied (min(count, size - offset); 0 at the end of the file), or -1
 * when media or buffer is null, count exceeds QV_MEDIA_MAX_READ, offset exceeds the size, or any
 * read on the way fails (cancellation, input/output, bounds) - even if some bytes were already
 * copied. A failed read leaves the handle usable. Safe to call from any thread.
 */
int64_t qv_media_read(QVMedia* media, uint64_t offset, uint8_t* buffer, uint64_t count);

/*
 * Scans the start (at most 1,048,576 bytes) of an MPEG transport stream for audio and video.
 * Returns the presence bits (QV_MEDIA_HAS_AUDIO | QV_MEDIA_HAS_VIDEO, 0 or more), -1 for a null
 * path, -code for an engine failure, -5 for any other failure. Independent of any handle.
 */
int32_t qv_media_transport_presence(const char* path, qv_media_cancel_fn cancel, void* context);

/*
 * Text subtitles and attachments (Matroska). Text subtitle tracks ("S_TEXT/UTF8", "S_TEXT/ASS",
 * "S_TEXT/SSA", "S_TEXT/WEBVTT") are not part of the virtual MP4; every event of them is read
 * while the file opens (at most 200,000 events and 16,777,216 text bytes per track, 32 tracks;
 * later events are cut, a laced or unreadable block is skipped) and kept by the handle. A damaged
 * subtitle track or attachment list never makes qv_media_open fail. FLV files have none.
 * Every pointer these functions hand out belongs to the handle and stays valid until
 * qv_media_close. Safe to call from any thread.
 */

/* One text subtitle track. Strings are NUL-terminated UTF-8. */
typedef struct QVMediaSubtitleTrack {
    const char* codec_id;         /* "S_TEXT/UTF8", "S_TEXT/ASS", "S_TEXT/SSA", "S_TEXT/WEBVTT" */
    const char* language;         /* as in the file ("eng" when the file names none) */
    const char* name;             /* "" when the file names none */
    const uint8_t* codec_private; /* the ASS/SSA script header, WebVTT's header; may be null */
    uint64_t codec_private_size;
    uint32_t is_default; /* 1 when flagged default */
    uint32_t forced;     /* 1 when flagged forced: shown even while subtitles are off */
    uint64_t event_count;
    uint64_t cut_events; /* events skipped or past the limits */
} QVMediaSubtitleTrack;

/*
 * One event, in time order. `text` is the block's bytes (not NUL-terminated): UTF-8 text with
 * SubRip or WebVTT markup, or for ASS/SSA the event line "ReadOrder,Layer,Style,Name,MarginL,
 * MarginR,MarginV,Effect,Text". `duration` comes from the block's BlockDuration, else it runs to
 * the next event's start (0 for a last event without one).
 */
typedef struct QVMediaSubtitleEvent {
    int64_t start;    /* nanoseconds */
    int64_t duration; /* nanoseconds */
    const char* text;
    uint64_t text_size;
} QVMediaSubtitleEvent;

/* Number of text subtitle tracks; 0 for null. */
uint32_t qv_media_subtitle_tracks(const QVMedia* media);

/* Fills `track` for track `index`; returns 0, or -1 for null arguments or an index out of range. */
int32_t qv_media_subtitle_track(const QVMedia* media, uint32_t index, QVMediaSubtitleTrack* track);

/* Fills `event` for event `event_index` of track `track_index`; returns 0, or -1 as above. */
int32_t qv_media_subtitle_event(const QVMedia* media, uint32_t track_index, uint64_t event_index,
                                QVMediaSubtitleEvent* event);

/* One attached file (at most 256 per file). Strings are NUL-terminated, "" when absent. */
typedef struct QVMediaAttachment {
    const char* name;      /* e.g. "Font.ttf" */
    const char* mime_type; /* e.g. "application/x-truetype-font", "font/otf" */
    uint64_t size;         /* bytes of the attached data */
} QVMediaAttachment;

/* Number of attachments; 0 for null. */
uint32_t qv_media_attachments(const QVMedia* media);

/* Fills `attachment` for `index`; returns 0, or -1 for null arguments or an index out of range. */
int32_t qv_media_attachment(const QVMedia* media, uint32_t index, QVMediaAttachment* attachment);

/*
 * Copies up to `count` bytes (at most QV_MEDIA_MAX_READ) of attachment `index` from `offset` into
 * `buffer`, reading the source file. Returns the bytes copied (0 at the end), or -1 for bad
 * arguments or a failed read. Serialised with qv_media_read.
 */
int64_t qv_media_attachment_read(QVMedia* media, uint32_t index, uint64_t offset, uint8_t* buffer,
                                 uint64_t count);

#ifdef __cplusplus
}
#endif

#endif /* QV_MEDIA_H */
