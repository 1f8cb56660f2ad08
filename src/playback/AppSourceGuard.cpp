#include "AppSourceGuard.h"

#include <QLoggingCategory>

#include <atomic>

#include <gst/app/gstappsrc.h>
#include <gst/base/gstbasesrc.h>

Q_LOGGING_CATEGORY(lcAppSource, "quorvane.playback.appsrc", QtInfoMsg)

namespace quorvane::appsource {

namespace {

using CreateFunction = GstFlowReturn (*)(GstBaseSrc*, guint64, guint, GstBuffer**);

CreateFunction g_create = nullptr;
std::atomic<quint64> g_dropped{0};

// A stale buffer is followed by the right one as soon as the GUI thread has caught up; the bound
// only keeps a source that never stamps the right offset from asking forever.
constexpr int kMaxAttempts = 16;
// How long a dropped buffer's successor may take to arrive before the range is announced again.
constexpr int kWaitMs = 100;

// Waits until appsrc holds a buffer, for a little while; false when none came.
bool waitForQueuedBuffer(GstBaseSrc* source)
{
    for (int waited = 0; waited < kWaitMs; ++waited) {
        if (gst_app_src_get_current_level_buffers(GST_APP_SRC(source)) > 0) return true;
        if (GST_PAD_IS_FLUSHING(GST_BASE_SRC_PAD(source))) return false;
        g_usleep(1000);
    }
    return false;
}

// Qt pushes a buffer even when reading the device failed: unfilled, and stamped with an end
// offset of (offset + -1 - 1). Passed on, the demuxer would read whatever the memory held.
bool failedRead(GstBuffer* buffer)
{
    return GST_BUFFER_OFFSET_END(buffer) + 2 == GST_BUFFER_OFFSET(buffer);
}

GstFlowReturn checkedCreate(GstBaseSrc* source, guint64 offset, guint size, GstBuffer** buffer)
{
    if (gst_app_src_get_stream_type(GST_APP_SRC(source)) != GST_APP_STREAM_TYPE_RANDOM_ACCESS)
        return g_create(source, offset, size, buffer);
    // The caller may offer a buffer to fill; each attempt gets the same offer.
    GstBuffer* const offered = *buffer;
    // The offset handed to appsrc: appsrc announces a range (a seek and a request to Qt) only when
    // it differs from its own position.
    guint64 asked = offset;
    for (int attempt = 1;; ++attempt) {
        const GstFlowReturn result = g_create(source, asked, size, buffer);
        if (result != GST_FLOW_OK || *buffer == nullptr || *buffer == offered) return result;
        if (failedRead(*buffer)) {
            gst_buffer_unref(*buffer);
            *buffer = offered;
            GST_ELEMENT_ERROR(source, RESOURCE, READ, ("The media source could not be read."),
                              (nullptr));
            return GST_FLOW_ERROR;
        }
        const guint64 stamped = GST_BUFFER_OFFSET(*buffer);
        if (stamped == GST_BUFFER_OFFSET_NONE || stamped == offset || attempt == kMaxAttempts)
            return result;
        qCDebug(lcAppSource) << "dropped the bytes of" << stamped << "given for" << offset;
        ++g_dropped;
        // appsrc's position is now past the dropped bytes.
        const guint64 position = asked + gst_buffer_get_size(*buffer);
        gst_buffer_unref(*buffer);
        *buffer = offered;
        // The answer to the range is normally already on its way: take it as it comes, from
        // appsrc's position, without announcing the range again. A second announcement would
        // leave one answer too many in flight, and that would be the next stale buffer. Only
        // when nothing comes is the range announced again.
        asked = waitForQueuedBuffer(source) ? position : offset;
    }
}

} // namespace

bool installGuard()
{
    // A function-local static runs once, and the other callers wait for it.
    static const bool installed = [] {
        GError* error = nullptr;
        if (!gst_init_check(nullptr, nullptr, &error)) {
            qCWarning(lcAppSource)
                << "GStreamer is unavailable:" << (error ? error->message : "unknown error");
            g_clear_error(&error);
            return false;
        }
        // The class stays referenced for the life of the process, so the patched function
        // table is never freed.
        auto* base = GST_BASE_SRC_CLASS(g_type_class_ref(GST_TYPE_APP_SRC));
        g_create = base->create;
        base->create = checkedCreate;
        return true;
    }();
    return installed;
}

quint64 droppedBuffers()
{
    return g_dropped.load();
}

} // namespace quorvane::appsource
