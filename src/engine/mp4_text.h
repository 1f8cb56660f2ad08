#pragma once
// The timed-text subtitle tracks of an ISO BMFF or QuickTime file (MP4, M4V, MOV): 3GPP timed text
// ("tx3g", what ffmpeg's mov_text encoder writes) and WebVTT in MP4 ("wvtt"). The platform plays
// these files itself but draws their text badly, so the player draws it from the events read
// here. Only the movie box and the text samples are read, never the audio or video.
#include "reader.h"
#include "subtitles.h"

#include <vector>

namespace qv {

// Every text track, as "S_TEXT/UTF8" (tx3g: bold, italic, underline and colours other than the
// track's default become SubRip markup, with '&' and '<' escaped in the lines that get any) or
// "S_TEXT/WEBVTT" (wvtt: each cue's payload), with its events in time order: one per non-empty
// sample (a wvtt sample may hold several cues), timed by the sample tables and shifted by the
// track's edit list. Language "und" when the file does not say. A track with no event is left out,
// and so is a track whose boxes break their bounds or hold values out of range. Throws kUnsupported
// when the source does not start like such a file or has no movie box, kMalformed when its
// top-level boxes or the movie box break their bounds, and lets cancellation and failed reads
// through.
std::vector<SubtitleTrack> readIsoTextTracks(Reader& reader);

// Text of a timed-text sample as UTF-8: UTF-16 after a byte-order mark is converted, anything else
// taken as UTF-8 with damaged sequences replaced; it ends at a NUL.
std::string timedText(const std::vector<std::uint8_t>& bytes);

} // namespace qv
