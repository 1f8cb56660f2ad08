#pragma once
// Every limit the engine applies to hostile input, in one place.
#include <cstddef>
#include <cstdint>

namespace qv::limits {

// Largest single read from the source, and the cap on one qv_media_read call.
inline constexpr std::uint64_t kMaxRead = 1'048'576;
// Read-ahead window of the byte-wise reader.
inline constexpr std::uint64_t kReadAheadWindow = 262'144;
// Smallest read-ahead window, used after the reader jumps.
inline constexpr std::uint64_t kReadAheadMinimum = 1'024;
// Threads that read ahead at once while a file opens, each with its own handle on the file.
inline constexpr std::size_t kPreloadThreads = 8;
// Threads that index a file's clusters at once, the runs of clusters per thread they share, and the
// size of clusters from which they are worth starting: below it, starting threads (waking idle
// cores) costs about what they save.
inline constexpr std::uint64_t kIndexThreads = 4;
inline constexpr std::uint64_t kRunsPerIndexThread = 4;
inline constexpr std::uint64_t kParallelIndexBytes = 64ull << 20;
// Tracks kept per file.
inline constexpr std::uint32_t kMaxTracks = 32;
// Clusters recorded per Matroska file.
inline constexpr std::uint64_t kMaxClusters = 200'001;
// Tags read from one FLV file.
inline constexpr std::uint64_t kMaxFlvTags = 10'000'000;
// Largest frame accepted from a block.
inline constexpr std::uint64_t kMaxFrameSize = 67'108'864;
// Longest CodecDelay / DiscardPadding, in nanoseconds.
inline constexpr std::uint64_t kMaxDelayNs = 1'000'000'000;
// Largest cluster timecode, as nanoseconds (365 days).
inline constexpr std::uint64_t kMaxClusterTimeNs = 31'536'000'000'000'000;
// Text element caps, in bytes.
inline constexpr std::uint64_t kMaxDocType = 16;
inline constexpr std::uint64_t kMaxCodecId = 128;
inline constexpr std::uint64_t kMaxLanguage = 64;
inline constexpr std::uint64_t kMaxName = 4'096;
// A track name as the movie carries it (hdlr and udta), in bytes; longer names are cut.
inline constexpr std::size_t kMaxTitle = 255;
// Video and colour values must stay below this.
inline constexpr std::uint64_t kMaxDimension = 65'536;
// Matroska TimecodeScale (nanoseconds per tick) and TrackNumber ranges.
inline constexpr std::uint64_t kMaxTimecodeScale = 1'000'000'000;
inline constexpr std::uint64_t kMaxTrackNumber = 2'147'483'647;
// Audio channels per track, and the sampling rates a track may declare.
inline constexpr std::uint32_t kMaxChannels = 8;
inline constexpr std::uint32_t kMinSampleRate = 8'000;
inline constexpr std::uint32_t kMaxSampleRate = 192'000;
// PCM samples counted through the frames of one block; keeps their time offsets inside 64 bits.
inline constexpr std::uint64_t kMaxBlockSamples = 9'223'372'037;
// Samples at 48 kHz in one Opus packet (120 ms).
inline constexpr std::uint32_t kMaxOpusPacketSamples = 5'760;
// Samples per channel in one Apple Lossless frame.
inline constexpr std::uint32_t kMaxAlacFrameLength = 65'536;

// Text subtitle tracks kept per file; events and text bytes kept per track (later events are cut
// off); the longest event text (a longer one is skipped).
inline constexpr std::uint32_t kMaxSubtitleTracks = 32;
inline constexpr std::uint64_t kMaxSubtitleEvents = 200'000;
inline constexpr std::uint64_t kMaxSubtitleTextBytes = 16'777'216;
inline constexpr std::uint64_t kMaxSubtitleEventBytes = 65'536;
// Cues of subtitle tracks kept to find their blocks, over all tracks.
inline constexpr std::uint64_t kMaxCueBlocks = 4 * kMaxSubtitleEvents;
// Attachments listed per file, and the longest attachment name or MIME type.
inline constexpr std::uint32_t kMaxAttachments = 256;
inline constexpr std::uint64_t kMaxAttachmentText = 1'024;

// MP4/QuickTime text tracks: boxes visited in one file, and samples taken per track (later ones
// are cut, counted like events past the limits). Sample times past a year are out of range.
inline constexpr std::uint64_t kMaxIsoBoxes = 100'000;
inline constexpr std::uint64_t kMaxTextSamples = 2 * kMaxSubtitleEvents;
inline constexpr std::uint64_t kMaxTextSeconds = 31'536'000;

// Bytes of a transport stream scanned for its programme tables.
inline constexpr std::uint64_t kTransportScanBytes = 1'048'576;
// Programme map tables followed per transport stream.
inline constexpr std::size_t kMaxTransportPrograms = 16;
// Bytes of an FLV file header, the smallest file the FLV demuxer reads.
inline constexpr std::uint64_t kFlvHeaderSize = 13;
// Bytes of an FLV tag header plus its trailing previous-tag-size field.
inline constexpr std::uint64_t kFlvTagOverhead = 15;

} // namespace qv::limits
