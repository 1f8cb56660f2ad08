#pragma once
// The FLV demuxer: H.264/AVC video and AAC audio, indexed in place like the Matroska demuxer's
// samples. Anything else an FLV file may carry (MP3, Speex, Sorenson, enhanced FourCC video) is
// refused rather than played partly.
#include "index.h"
#include "reader.h"

namespace qv {

// True when the file starts with the letters "FLV".
bool probeFlv(Reader& reader);

// Reads the file into an index with format code 2: at most one AVC video track (with its picture
// size from the first sequence parameter set) and one AAC audio track, each only when it has
// samples. Failures: kMalformed for structural damage, kUnsupported for other codecs, repeated
// sequence headers and announced streams without samples, kTooLarge beyond limits::kMaxFlvTags.
Index flv(Reader& reader);

} // namespace qv
