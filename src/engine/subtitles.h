#pragma once
// Matroska text subtitle tracks and attachments. The tracks are not part of the virtual MP4: their
// events (time, duration, text) are kept in memory for the application to draw itself, and the
// attachments (fonts for styled subtitles) are listed with their place in the source so their
// bytes can be read on demand.
#include "ebml.h"
#include "reader.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace qv {

struct SubtitleEvent {
    std::int64_t start = 0; // nanoseconds
    // Nanoseconds: from BlockDuration, else (after finishSubtitleTrack) until the next event.
    std::int64_t duration = -1;
    std::string text;           // the block's bytes: UTF-8 text, or an ASS event line
    std::uint64_t position = 0; // of the block's text in the source: the same block read twice
};

struct SubtitleTrack {
    std::uint64_t number = 0;
    std::string codecId;
    std::vector<std::uint8_t> codecPrivate; // the ASS/SSA header; WebVTT's header block
    std::string language = "eng";
    std::string name;
    bool isDefault = true;
    bool forced = false;
    // A deque, so that events handed out stay where they are while later ones are appended.
    std::deque<SubtitleEvent> events;
    std::uint64_t textBytes = 0;
    std::uint64_t cutEvents = 0; // events past the limits or unreadable, not kept
};

struct Attachment {
    std::string name;
    std::string mimeType;
    std::uint64_t position = 0; // of the data in the source file
    std::uint64_t size = 0;
};

// "S_TEXT/UTF8", "S_TEXT/ASS", "S_TEXT/SSA", "S_TEXT/WEBVTT".
bool isTextSubtitleCodec(const std::string& codecId);

// Reads one block's payload (after the track number, time and flags) as the next event of the
// track. A laced, empty or oversized block is skipped; events past the limits are cut.
void addSubtitleBlock(Reader& reader, SubtitleTrack& track, std::uint64_t position,
                      std::uint64_t end, std::uint8_t flags, std::int64_t start,
                      std::optional<std::int64_t> duration);

// Orders the events by time and gives every event without a BlockDuration the time until the
// next one (the last keeps zero: shown until the end).
void finishSubtitleTrack(SubtitleTrack& track);

// The AttachedFile elements of an Attachments element, up to the limit.
std::vector<Attachment> readAttachments(Reader& reader, const ebml::Element& attachments);

} // namespace qv
