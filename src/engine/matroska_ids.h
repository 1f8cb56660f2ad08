#pragma once
// Matroska element IDs, grouped by parent and named after the Matroska element.
#include <cstdint>

namespace qv::mkv {

enum Id : std::uint64_t {
    // EBML header
    kEbml = 0x1A45DFA3,
    kDocType = 0x4282,
    // Segment and its top-level children
    kSegment = 0x18538067,
    kSeekHead = 0x114D9B74,
    kInfo = 0x1549A966,
    kTracks = 0x1654AE6B,
    kChapters = 0x1043A770,
    kCluster = 0x1F43B675,
    kCues = 0x1C53BB6B,
    kAttachments = 0x1941A469,
    kTags = 0x1254C367,
    // Info
    kTimecodeScale = 0x2AD7B1,
    // Tracks
    kTrackEntry = 0xAE,
    kTrackNumber = 0xD7,
    kTrackType = 0x83,
    kFlagEnabled = 0xB9,
    kFlagDefault = 0x88,
    kCodecId = 0x86,
    kCodecPrivate = 0x63A2,
    kLanguage = 0x22B59C,
    kLanguageBcp47 = 0x22B59D,
    kName = 0x536E,
    kDefaultDuration = 0x23E383,
    kCodecDelay = 0x56AA,
    kTrackTimecodeScale = 0x23314F,
    kTrackOffset = 0x537F,
    kFlagForced = 0x55AA,
    kContentEncodings = 0x6D80,
    kVideo = 0xE0,
    kPixelWidth = 0xB0,
    kPixelHeight = 0xBA,
    kDisplayWidth = 0x54B0,
    kDisplayHeight = 0x54BA,
    kDisplayUnit = 0x54B2,
    kColour = 0x55B0,
    kMatrixCoefficients = 0x55B1,
    kRange = 0x55B9,
    kTransferCharacteristics = 0x55BA,
    kPrimaries = 0x55BB,
    kAudio = 0xE1,
    kChannels = 0x9F,
    kSamplingFrequency = 0xB5,
    // Cluster
    kTimecode = 0xE7,
    kSimpleBlock = 0xA3,
    kBlockGroup = 0xA0,
    kBlock = 0xA1,
    kBlockDuration = 0x9B,
    kReferenceBlock = 0xFB,
    kDiscardPadding = 0x75A2,
    kCodecState = 0xA4,
    // Attachments
    kAttachedFile = 0x61A7,
    kFileName = 0x466E,
    kFileMimeType = 0x4660,
    kFileData = 0x465C,
};

} // namespace qv::mkv
