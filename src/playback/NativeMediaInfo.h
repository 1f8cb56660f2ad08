#pragma once
// Pure helpers that turn what Qt Multimedia reports about a loaded file into the backend's value
// types: the path a file takes, the displayed size, the track list and the HDR test.
#include "PlaybackBackend.h"

#include <QList>
#include <QMediaMetaData>
#include <QSize>
#include <QUrl>
#include <QVideoFrameFormat>

namespace quorvane::nativemedia {

// Matroska, WebM and FLV go through the container engine; the test ignores letter case.
bool usesContainerPath(const QUrl& url);
// Matroska and WebM files (any letter case).
bool isMatroska(const QUrl& url);
// MP4, M4V and QuickTime files, whose timed-text tracks we read and draw ourselves.
bool hasIsoTimedText(const QUrl& url);
// MPEG transport streams, whose streams are probed and compared with what the player loaded.
bool isTransportStream(const QUrl& url);

// The picture's displayed size: the coded resolution turned by the rotation in degrees.
QSizeF displaySize(const QSize& resolution, int rotationDegrees);

// Degrees from the player's orientation metadata: a number, or a GStreamer image-orientation text
// such as "rotate-90" or "flip-rotate-270"; anything else is 0.
int rotationDegrees(const QVariant& orientation);

// PQ (SMPTE ST 2084) and HLG (ARIB STD-B67) are the transfer functions of HDR video.
bool isHdrTransfer(QVideoFrameFormat::ColorTransfer transfer);

// The label shown in the track menus: the track's title, else its language, else its number.
QString trackLabel(const QMediaMetaData& track, int position);

// Audio tracks, then subtitle tracks, each numbered from 1 in the player's order.
QList<PlaybackTrack> playbackTracks(const QList<QMediaMetaData>& audio,
                                    const QList<QMediaMetaData>& subtitles);

// Seconds from a player duration in milliseconds; anything negative becomes 0.
double durationSeconds(qint64 milliseconds);

} // namespace quorvane::nativemedia
