#pragma once
// The open media object behind a QVMedia handle: the source reader, the prepared tracks, the
// in-memory header of the virtual MP4 and the map from virtual offsets to source offsets.
#include "fragment_layout.h"
#include "index.h"
#include "qv_media.h"
#include "reader.h"
#include "subtitle_feed.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace qv {

struct Slice {
    std::uint64_t position = 0; // offset in the virtual file
    std::uint64_t source = 0;   // offset in the source file
    std::uint32_t size = 0;
};

// Makes the source of an open; called inside the open's guard, so it may throw like the open.
using SourceMaker = std::function<std::unique_ptr<Source>()>;

// qv_media_open and qv_media_transport_presence over any source (tests and fuzzers keep their
// bytes in memory), with the same results and codes.
// reopen, when given, makes a second source over the same bytes for the thread that collects
// subtitle events in the fragmented layout.
QVMedia* openMedia(const SourceMaker& makeSource, CancelFn cancel, void* context,
                   std::uint32_t* error, SourceMaker reopen = {}) noexcept;
// qv_media_open_text_tracks over any source.
QVMedia* openTextTracks(const SourceMaker& makeSource, CancelFn cancel, void* context,
                        std::uint32_t* error) noexcept;
std::int32_t transportPresence(const SourceMaker& makeSource, CancelFn cancel,
                               void* context) noexcept;

// Picks the constructor that reads only the text tracks of a file the platform plays: MP4 or
// QuickTime, or Matroska/WebM whatever its other tracks are.
struct TextTracksOnly {};

} // namespace qv

struct QVMedia {
    // Opens, demuxes, prepares and lays out the source, or throws.
    QVMedia(std::unique_ptr<qv::Source> source, qv::CancelFn cancel, void* context,
            qv::SourceMaker reopen = {});
    QVMedia(const char* path, qv::CancelFn cancel, void* context);
    // Reads the text tracks (and a Matroska file's attachments) and nothing else: no virtual file.
    QVMedia(qv::TextTracksOnly, std::unique_ptr<qv::Source> source, qv::CancelFn cancel,
            void* context);

    // Copies n bytes of the virtual file at offset; offset + n must lie inside the file.
    void read(std::uint64_t offset, std::uint8_t* buffer, std::uint64_t n);

    qv::Reader reader;
    std::vector<qv::Track> tracks;
    std::uint64_t sampleCount = 0;
    std::uint32_t format = 0;
    std::uint64_t timecodeScale = 0;
    std::unique_ptr<qv::SubtitleFeed>
        subtitles; // text subtitle tracks (Matroska, or MP4 text), beside the movie
    std::vector<qv::Attachment> attachments;
    std::vector<std::uint8_t> header; // ftyp + moov + mdat header
    std::vector<qv::Slice> slices;
    std::uint64_t size = 0;
    std::mutex mutex;
    // Set when the file got the fragmented layout; header and slices then stay empty.
    std::unique_ptr<qv::FragmentedMovie> fragmented;

private:
    void layout(qv::Index& index);
};
