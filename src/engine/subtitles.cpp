#include "subtitles.h"

#include "engine_limits.h"
#include "failure.h"
#include "matroska_ids.h"

#include <algorithm>

namespace qv {

bool isTextSubtitleCodec(const std::string& codecId)
{
    return codecId == "S_TEXT/UTF8" || codecId == "S_TEXT/ASS" || codecId == "S_TEXT/SSA" ||
           codecId == "S_TEXT/WEBVTT";
}

void addSubtitleBlock(Reader& reader, SubtitleTrack& track, std::uint64_t position,
                      std::uint64_t end, std::uint8_t flags, std::int64_t start,
                      std::optional<std::int64_t> duration)
{
    const std::uint64_t size = end - position;
    const bool laced = ((flags >> 1) & 3) != 0;
    if (laced || size == 0 || size > limits::kMaxSubtitleEventBytes ||
        track.events.size() >= limits::kMaxSubtitleEvents ||
        track.textBytes + size > limits::kMaxSubtitleTextBytes || (duration && *duration < 0)) {
        ++track.cutEvents;
        return;
    }
    const auto bytes = reader.bytes(position, size);
    std::string text(bytes.begin(), bytes.end());
    // Muxers pad some texts with NUL bytes; they end the text.
    text.erase(std::find(text.begin(), text.end(), '\0'), text.end());
    track.textBytes += size;
    track.events.push_back({start, duration.value_or(-1), std::move(text), position});
}

void finishSubtitleTrack(SubtitleTrack& track)
{
    auto& events = track.events;
    std::stable_sort(events.begin(), events.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (events[i].duration >= 0) continue;
        std::int64_t until = events[i].start;
        for (std::size_t j = i + 1; j < events.size() && until == events[i].start; ++j)
            until = events[j].start;
        events[i].duration = until - events[i].start;
    }
}

std::vector<Attachment> readAttachments(Reader& reader, const ebml::Element& attachments)
{
    std::vector<Attachment> found;
    for (auto p = attachments.start; p < attachments.end;) {
        const ebml::Element file = ebml::element(reader, p, attachments.end);
        p = file.end;
        if (file.id != mkv::kAttachedFile) continue;
        Attachment attachment;
        bool haveData = false;
        for (auto q = file.start; q < file.end;) {
            const ebml::Element e = ebml::element(reader, q, file.end);
            if (e.id == mkv::kFileName) {
                attachment.name = reader.text(e.start, e.size(), limits::kMaxAttachmentText);
            } else if (e.id == mkv::kFileMimeType) {
                attachment.mimeType = reader.text(e.start, e.size(), limits::kMaxAttachmentText);
            } else if (e.id == mkv::kFileData) {
                attachment.position = e.start;
                attachment.size = e.size();
                haveData = true;
            }
            q = e.end;
        }
        if (!haveData) continue;
        require(found.size() < limits::kMaxAttachments, kTooLarge);
        found.push_back(std::move(attachment));
    }
    return found;
}

} // namespace qv
