#pragma once
// Our own GStreamer source element for "quorvane-media://<uuid>/movie.mp4", the URL of a
// ContainerAsset. Qt Multimedia 6.4 hands the URL given to QMediaPlayer::setSource to a
// uridecodebin, which picks this element for the protocol; qtdemux then pulls byte ranges from it
// on its streaming thread, and the element reads them from the engine right there, in the asset's
// pieces. Nothing goes through the GUI thread: Qt seeks synchronously on that thread, so a read
// waiting for it would deadlock.
//
// GStreamer starts and stops a source several times while it opens a file, so starting only looks
// the asset up. An unknown or invalidated asset fails the start with a "not found" error; an
// asset invalidated while it is read ends the read as flushing (the player is being torn down);
// a failing engine read is a read error.
#include <QtGlobal>

namespace quorvane::mediasource {

// The element's factory name.
inline constexpr char kElementName[] = "quorvanemediasrc";

// Registers the element in this process's GStreamer (initialising it if needed), once; later calls
// only repeat the answer. False when GStreamer cannot be initialised or refuses the element, in
// which case a player falls back to serving the asset as a device.
bool registerElement();

// Byte reads the element's instances have served, and how many of those were cut short because
// GStreamer asked the element to unlock (a flush or a state change). For tests and measurements.
struct Counters {
    quint64 reads = 0;
    quint64 interrupted = 0;
};
Counters counters();

} // namespace quorvane::mediasource
