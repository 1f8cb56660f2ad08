#pragma once
// The open media object behind a QVMedia handle: the source reader, the prepared tracks, the
// in-memory header of the virtual MP4 and the map from virtual offsets to source offsets.
#include "index.h"
#include "qv_media.h"
#include "reader.h"

#include <cstdint>
#include <mutex>
#include <vector>

namespace qv {

struct Slice {
    std::uint64_t position = 0; // offset in the virtual file
    std::uint64_t source = 0;   // offset in the source file
    std::uint32_t size = 0;
};

} // namespace qv

struct QVMedia {
    // Opens, demuxes, prepares and lays out the file, or throws.
    QVMedia(const char* path, qv::CancelFn cancel, void* context);

    // Copies n bytes of the virtual file at offset; offset + n must lie inside the file.
    void read(std::uint64_t offset, std::uint8_t* buffer, std::uint64_t n);

    qv::Reader reader;
    std::vector<qv::Track> tracks;
    std::uint64_t sampleCount = 0;
    std::uint32_t format = 0;
    std::uint64_t timecodeScale = 0;
    std::vector<qv::SubtitleTrack> subtitles; // text subtitle tracks (Matroska), beside the movie
    std::vector<qv::Attachment> attachments;
    std::vector<std::uint8_t> header; // ftyp + moov + mdat header
    std::vector<qv::Slice> slices;
    std::uint64_t size = 0;
    std::mutex mutex;

private:
    void layout(qv::Index& index);
};
