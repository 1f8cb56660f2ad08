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
 * Every failure is one of the error codes below (qv_media_error). qv_media_open reports it through
 * its out-parameter, qv_media_read and qv_media_transport_presence as a negative result.
 *
 * Threads: qv_media_open and qv_media_transport_presence work on the calling thread; opening a
 * large file also reads on a few helper threads (their own file handles), all joined before it
 * returns. After opening, queries and reads may come from any thread; reads on one handle are
 * serialised by a mutex inside the handle and share one file stream. No function throws; the engine
 * never logs.
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

/* Format codes returned by qv_media_format; QV_MEDIA_FORMAT_MP4_TEXT only for a handle from
 * qv_media_open_text_tracks of an MP4 or QuickTime file. */
enum { QV_MEDIA_FORMAT_MATROSKA = 1, QV_MEDIA_FORMAT_FLV = 2, QV_MEDIA_FORMAT_MP4_TEXT = 3 };

/*
 * Error codes: why a call failed. These are the engine's only codes; the player and the tools take
 * the numbers and their texts from here.
 */
typedef enum qv_media_error {
    QV_MEDIA_OK = 0,
    /* The source breaks its own format: a bounds check failed, a value is out of range or
     * overflowed, the file is empty. */
    QV_MEDIA_MALFORMED = 1,
    /* Not a container the engine reads, no usable track, or a codec or feature it refuses. */
    QV_MEDIA_UNSUPPORTED = 2,
    /* A source read above 1,048,576 bytes, memory ran out, or the virtual file is too large. */
    QV_MEDIA_TOO_LARGE = 3,
    /* The cancellation callback returned non-zero. */
    QV_MEDIA_CANCELLED = 4,
    /* Not a regular file, it cannot be opened, a seek failed or a read came up short. */
    QV_MEDIA_INPUT_OUTPUT = 5
} qv_media_error;

/* A code's meaning in a few English words ("malformed or out of range", ...), for logs and tools;
 * "unknown error" for a value that is not a code. The text is static; never free it. */
const char* qv_media_error_text(uint32_t code);

/* Track kinds returned by qv_media_track_kind. */
enum { QV_MEDIA_TRACK_VIDEO = 1, QV_MEDIA_TRACK_AUDIO = 2 };

/* Layouts returned by qv_media_layout. */
enum { QV_MEDIA_LAYOUT_FULL = 1, QV_MEDIA_LAYOUT_FRAGMENTED = 2 };

/* Presence bits returned by qv_media_transport_presence. */
enum { QV_MEDIA_HAS_AUDIO = 1, QV_MEDIA_HAS_VIDEO = 2 };

/* Largest count accepted by qv_media_read. */
#define QV_MEDIA_MAX_READ 1048576u

/*
 * Opens the file at `path` (a file-system path in the platform's encoding).
 * `cancel` may be null. `error` may be null; when given it is set to QV_MEDIA_OK on entry and, on
 * failure, receives the qv_media_error: QV_MEDIA_MALFORMED when path is null, QV_MEDIA_TOO_LARGE
 * when memory runs out, QV_MEDIA_INPUT_OUTPUT for any unexpected failure.
 * Returns the handle, owned by the caller and released with qv_media_close, or null on failure.
 */
QVMedia* qv_media_open(const char* path, qv_media_cancel_fn cancel, void* context, uint32_t* error);

/*
 * Opens the file at `path`, one that the platform plays itself, only for its text subtitle tracks.
 *
 * An MP4, M4V or QuickTime file: its timed-text tracks, 3GPP timed text ("tx3g", ffmpeg's
 * mov_text), given as "S_TEXT/UTF8" with plain text (its style boxes are left out), and WebVTT in
 * MP4 ("wvtt"), given as "S_TEXT/WEBVTT" with each cue's payload and the track's configuration box
 * (the WebVTT header) as codec_private. Only the movie box and the text samples are read. A sample
 * without text is a gap, not an event; a wvtt sample with several cues gives one event each; the
 * track's edit list is applied. Languages come from the mdhd box ("und" when the file does not
 * say); is_default is the track's enabled flag, forced the tx3g "all samples forced" display flag;
 * name is the udta name box, "" without one. The limits of the Matroska text tracks below apply; a
 * track that breaks its bounds or holds values out of range is left out, and a track without
 * events too. qv_media_open refuses these files (QV_MEDIA_UNSUPPORTED).
 *
 * A Matroska or WebM file that qv_media_open may refuse (Vorbis, DTS or MPEG-4 Part 2 tracks, a
 * file cut short, ...): its text subtitle tracks and font attachments, exactly as qv_media_open
 * keeps them, while every other track entry, of any codec, is passed over without a verdict. The
 * header elements before the first Cluster are read; a Segment whose size runs past the end of
 * the file is read up to the end. The events then come from exactly the blocks the Cues place
 * (CueRelativePosition) when they place blocks of every text track and each place named holds
 * one, as mkvmerge and ffmpeg write them; otherwise from one walk of the clusters, reading block
 * headers and the text blocks, which stops at the first damaged or cut cluster element and keeps
 * the events before it (attachments written after the clusters are found on that walk too). Both
 * happen inside this call.
 *
 * Either way every event is known when it returns, in time order, so `complete` is 1, and the
 * handle answers the subtitle and attachment functions below and qv_media_format
 * (QV_MEDIA_FORMAT_MP4_TEXT, or QV_MEDIA_FORMAT_MATROSKA); it holds no virtual file: no tracks,
 * size 0. Close it with qv_media_close. `cancel`, `context` and `error` as for qv_media_open, the
 * cancellation callback polled throughout; errors: QV_MEDIA_UNSUPPORTED when the file starts like
 * neither format, has no movie box or is a Matroska file of another DocType, QV_MEDIA_MALFORMED
 * when the top-level boxes, the movie box, or the EBML header and the Segment's elements up to the
 * first Cluster break their bounds (or path is null), QV_MEDIA_TOO_LARGE past 100,000 boxes, and
 * the codes of a failed or cancelled read. A file without text tracks opens with 0 subtitle tracks.
 */
QVMedia* qv_media_open_text_tracks(const char* path, qv_media_cancel_fn cancel, void* context,
                                   uint32_t* error);

/* Destroys the handle and closes the file; null is ignored. Call once, after all reads return. */
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

/* QV_MEDIA_FORMAT_MATROSKA (Matroska and WebM), QV_MEDIA_FORMAT_FLV or QV_MEDIA_FORMAT_MP4_TEXT;
 * 0 for null. */
uint32_t qv_media_format(const QVMedia* media);

/*
 * Each track of the virtual movie, in the movie's order: track i (from 0) is the MP4 track with ID
 * i + 1. An index at or beyond qv_media_track_count, or a null handle, gives 0 or "". The texts
 * belong to the handle and stay valid until qv_media_close. Any thread.
 */

/* Number of tracks (video and audio); 0 for null. */
uint32_t qv_media_track_count(const QVMedia* media);

/* QV_MEDIA_TRACK_VIDEO or QV_MEDIA_TRACK_AUDIO. */
uint32_t qv_media_track_kind(const QVMedia* media, uint32_t track);

/* The codec's short name: "avc", "hevc", "vp9", "av1", "aac", "opus", "flac", "ac3", "eac3",
 * "mp3" or "alac". */
const char* qv_media_track_codec(const QVMedia* media, uint32_t track);

/* The track's language as the three lowercase letters of ISO 639-2/T ("eng", "jpn"), as written
 * into its mdhd box; "und" when the file does not say or says something that is not a language. */
const char* qv_media_track_language(const QVMedia* media, uint32_t track);

/* The track's name from the file (UTF-8, at most 255 bytes, as written into its hdlr and udta
 * boxes); "" when it has none. */
const char* qv_media_track_name(const QVMedia* media, uint32_t track);

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
 * Returns the number of bytes copied (min(count, size - offset); 0 at the end of the file), or a
 * negative qv_media_error when the read fails, even if some bytes were already copied:
 *   -QV_MEDIA_MALFORMED (-1)     media or buffer is null, count exceeds QV_MEDIA_MAX_READ,
 *                                offset exceeds the size, or the source no longer matches its
 *                                index (fragmented layout: also a cluster found damaged, or a
 *                                timing rule that fails, when its fragment is first read);
 *   -QV_MEDIA_UNSUPPORTED (-2)   fragmented layout: the fragment holds what the engine refuses;
 *   -QV_MEDIA_TOO_LARGE (-3)     fragmented layout: the fragment's moof outgrew its slot;
 *   -QV_MEDIA_CANCELLED (-4)     the cancellation callback returned non-zero before a read;
 *   -QV_MEDIA_INPUT_OUTPUT (-5)  a seek or read of the source failed or came up short.
 * A failed read leaves the handle usable; a fragment that failed fails every later read too.
 * Safe to call from any thread.
 */
int64_t qv_media_read(QVMedia* media, uint64_t offset, uint8_t* buffer, uint64_t count);

/*
 * Scans the start (at most 1,048,576 bytes) of an MPEG transport stream for audio and video.
 * Returns the presence bits (QV_MEDIA_HAS_AUDIO | QV_MEDIA_HAS_VIDEO, 0 or more), or a negative
 * qv_media_error: -QV_MEDIA_MALFORMED for a null path, -QV_MEDIA_CANCELLED when cancelled, and so
 * on. Independent of any handle.
 */
int32_t qv_media_transport_presence(const char* path, qv_media_cancel_fn cancel, void* context);

/*
 * Text subtitles and attachments (Matroska; MP4 text tracks, and the Matroska files the engine
 * does not play, through qv_media_open_text_tracks).
 * Text subtitle tracks ("S_TEXT/UTF8", "S_TEXT/ASS", "S_TEXT/SSA", "S_TEXT/WEBVTT") are not part of
 * the virtual MP4; their events are kept by the handle (at most 200,000 events and 16,777,216 text
 * bytes per track, 32 tracks; later events are cut, a laced or unreadable block is skipped). A
 * damaged subtitle track or attachment list never makes qv_media_open fail. FLV files have none.
 *
 * In the full layout every event is read while the file opens, in time order, and `complete` is 1.
 * In the fragmented layout the open reads only the events of the first clusters: a track's events
 * grow while the file is open, from the fragments that reads index and, once the track is asked
 * for with qv_media_subtitle_want, from a background thread with its own file stream (the blocks
 * the Cues list for the track, or else every cluster from the given time on, then the rest).
 * There `event_count` only grows, events are appended in the order found (not in time order) and
 * an index once valid keeps its event; `complete` turns 1 when no more will come. Poll
 * qv_media_subtitle_track for the count.
 *
 * Every pointer these functions hand out belongs to the handle and stays valid until
 * qv_media_close. Safe to call from any thread.
 */

/* One text subtitle track. Strings are NUL-terminated UTF-8. */
typedef struct QVMediaSubtitleTrack {
    const char* codec_id;         /* "S_TEXT/UTF8", "S_TEXT/ASS", "S_TEXT/SSA", "S_TEXT/WEBVTT" */
    const char* language;         /* ISO 639-2/T, as for tracks ("eng" when unnamed; MP4: "und") */
    const char* name;             /* "" when the file names none */
    const uint8_t* codec_private; /* the ASS/SSA script header, WebVTT's header; may be null */
    uint64_t codec_private_size;
    uint32_t is_default;  /* 1 when flagged default */
    uint32_t forced;      /* 1 when flagged forced: shown even while subtitles are off */
    uint64_t event_count; /* events known so far */
    uint64_t cut_events;  /* events skipped or past the limits */
    uint32_t complete;    /* 1 once every event of the track is known */
} QVMediaSubtitleTrack;

/*
 * One event. `text` is the block's bytes (not NUL-terminated): UTF-8 text with
 * SubRip or WebVTT markup, or for ASS/SSA the event line "ReadOrder,Layer,Style,Name,MarginL,
 * MarginR,MarginV,Effect,Text". `duration` comes from the block's BlockDuration, else it runs to
 * the next event's start (0 for a last event without one; in the fragmented layout the next one
 * read with it, from the same clusters).
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

/*
 * Asks for every event of track `track_index`, those from `from_ns` (the playback position, in
 * nanoseconds) on first. Returns at once: 0, or -1 for a null handle or an index out of range.
 * Nothing to do in the full layout or once the track is complete. Call it again after a seek; a
 * time close to the last one changes nothing. The background thread ends with qv_media_close.
 */
int32_t qv_media_subtitle_want(QVMedia* media, uint32_t track_index, int64_t from_ns);

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
