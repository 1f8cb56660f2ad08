#ifndef QV_MEDIA_H
#define QV_MEDIA_H
/*
 * Quorvane container engine: turns a Matroska/WebM or FLV file into a virtual MP4 file.
 *
 * Opening a file reads its structure, indexes every sample of every accepted track and builds the
 * MP4 header (ftyp + moov + a 16-byte mdat header) in memory; large Matroska files with Cues are
 * laid out as a fragmented MP4 instead and indexed lazily (see qv_media_layout). Every sample's
 * bytes stay in the source file; a read of the virtual file copies header bytes from memory and
 * sample bytes from the source at their own position. Nothing is converted or written to disk.
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

/* Layouts returned by qv_media_layout. */
enum { QV_MEDIA_LAYOUT_FULL = 1, QV_MEDIA_LAYOUT_FRAGMENTED = 2 };

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
QVMedia* qv_media_open(const char* path, qv_media_cancel_fn cancel, void* context, uint32_t* error);

/* Destroys the handle and closes the file. Null is ignored. Call once, after every read returned.
 */
void qv_media_close(QVMedia* media);

/* The virtual MP4 file's size in bytes; 0 for null. */
uint64_t qv_media_size(const QVMedia* media);

/*
 * Total number of samples over all tracks, as known when the file was opened; 0 for null. In the
 * full layout that is every sample. In the fragmented layout only the first and last cluster runs
 * are indexed at open, so it counts their samples; the rest are indexed as they are read.
 */
uint64_t qv_media_sample_count(const QVMedia* media);

/* Number of video tracks; 0 for null. */
uint32_t qv_media_video_tracks(const QVMedia* media);

/* Number of tracks that are not video (every such track is audio); 0 for null. */
uint32_t qv_media_audio_tracks(const QVMedia* media);

/* QV_MEDIA_FORMAT_MATROSKA (Matroska and WebM) or QV_MEDIA_FORMAT_FLV; 0 for null. */
uint32_t qv_media_format(const QVMedia* media);

/*
 * Which layout the virtual file got; 0 for null.
 * QV_MEDIA_LAYOUT_FULL: ftyp, moov with every sample, one mdat; opening indexed every sample.
 * QV_MEDIA_LAYOUT_FRAGMENTED: ftyp, a moov with mvex, one moof + mdat per run of clusters between
 * Matroska cue points, and an mfra. Opening read only the header elements, the Cues and the first
 * and last cluster runs; each moof is built on the first read that touches it, so such a read may
 * take as long as indexing its clusters, and a cluster found damaged then (or a timing rule that
 * fails in it) fails that read and every later read of that fragment. Matroska/WebM files of at
 * least 128 MiB whose Cues locate their clusters get this layout; smaller files, files without
 * usable Cues and FLV files keep the full one. The environment variable QV_MEDIA_LAYOUT set to
 * "fragmented" or "full" overrides the choice (for tests), read when a file is opened.
 */
uint32_t qv_media_layout(const QVMedia* media);

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

#ifdef __cplusplus
}
#endif

#endif /* QV_MEDIA_H */
