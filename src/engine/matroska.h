#pragma once
// The Matroska/WebM demuxer: validates the file, keeps the tracks the MP4 side can carry and
// indexes every one of their samples.
#include "index.h"
#include "reader.h"

namespace qv {

// True when the file starts with the EBML magic.
bool probeMatroska(Reader& reader);

Index matroska(Reader& reader);

} // namespace qv
