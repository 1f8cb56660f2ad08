#pragma once
// A guard around GStreamer's appsrc for random-access sources, the way Qt Multimedia 6.4 plays a
// QIODevice.
//
// In that mode the demuxer pulls byte ranges. appsrc answers each by announcing the wanted offset
// and size to Qt, which seeks the device and pushes the bytes from the GUI thread, later. Under
// load a push queued for a range that a flush has since abandoned runs after the next range was
// asked for, and appsrc hands its bytes out as the new range: the demuxer reads garbage, and a
// seek or a track switch ends with "No valid frames decoded before end of stream". Qt stamps each
// pushed buffer with the device position it was read from, so the guard compares that offset with
// the range asked for, drops a buffer that does not match, and asks again, which makes appsrc
// announce the range once more.
#include <QtGlobal>

namespace quorvane::appsource {

// Installs the guard in this process, once; later calls do nothing. Returns whether it is in
// place (false only when GStreamer cannot be initialised).
bool installGuard();

// Buffers dropped so far because they answered another range than the one asked for.
quint64 droppedBuffers();

} // namespace quorvane::appsource
