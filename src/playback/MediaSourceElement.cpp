#include "MediaSourceElement.h"

#include "ContainerAsset.h"

#include <QLoggingCategory>
#include <QUrl>

#include <gst/base/gstbasesrc.h>
#include <gst/gst.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

Q_LOGGING_CATEGORY(lcMediaSource, "quorvane.playback.source")

namespace {

using quorvane::AssetReader;
using quorvane::ContainerAsset;

constexpr char kProtocol[] = "quorvane-media";

std::atomic<quint64> servedReads{0};
std::atomic<quint64> interruptedReads{0};

// The C++ side of one element. `flushing` is set by unlock (on whichever thread changes the
// element's state, often the GUI thread) and read by fill between pieces on the streaming thread.
struct SourceState {
    std::mutex lock;
    std::string uri;
    std::shared_ptr<AssetReader> reader;
    std::atomic_bool flushing{false};
};

} // namespace

// GObject's naming: the type macros below expect these names in the global namespace.
struct QvMediaSrc {
    GstBaseSrc parent;
    SourceState* state;
};

struct QvMediaSrcClass {
    GstBaseSrcClass parent_class;
};

static void qv_media_src_uri_handler_init(gpointer iface, gpointer data);

G_DEFINE_TYPE_WITH_CODE(QvMediaSrc, qv_media_src, GST_TYPE_BASE_SRC,
                        G_IMPLEMENT_INTERFACE(GST_TYPE_URI_HANDLER, qv_media_src_uri_handler_init))

namespace {

SourceState& stateOf(gpointer element)
{
    return *reinterpret_cast<QvMediaSrc*>(element)->state;
}

std::shared_ptr<AssetReader> readerOf(gpointer element)
{
    SourceState& state = stateOf(element);
    std::lock_guard guard(state.lock);
    return state.reader;
}

gboolean start(GstBaseSrc* base)
{
    SourceState& state = stateOf(base);
    std::string uri;
    {
        std::lock_guard guard(state.lock);
        // Only a look-up: GStreamer starts and stops a source three times while a file opens.
        state.reader = ContainerAsset::find(QUrl(QString::fromStdString(state.uri)));
        if (state.reader) return TRUE;
        uri = state.uri;
    }
    // Posted outside the lock: the bus's synchronous handlers run on this thread.
    GST_ELEMENT_ERROR(base, RESOURCE, NOT_FOUND, ("No media is served under %s.", uri.c_str()),
                      ("unknown or invalidated asset"));
    return FALSE;
}

gboolean stop(GstBaseSrc* base)
{
    SourceState& state = stateOf(base);
    std::lock_guard guard(state.lock);
    state.reader.reset();
    return TRUE;
}

gboolean getSize(GstBaseSrc* base, guint64* size)
{
    const auto reader = readerOf(base);
    if (!reader) return FALSE;
    *size = reader->length();
    return TRUE;
}

gboolean isSeekable(GstBaseSrc*)
{
    return TRUE;
}

gboolean unlock(GstBaseSrc* base)
{
    stateOf(base).flushing.store(true);
    return TRUE;
}

gboolean unlockStop(GstBaseSrc* base)
{
    stateOf(base).flushing.store(false);
    return TRUE;
}

// Fills `buffer` with [offset, offset + length) of the virtual file, piece by piece. The only wait
// is the engine's own read of one piece; between pieces an unlock ends the fill as flushing.
GstFlowReturn fill(GstBaseSrc* base, guint64 offset, guint length, GstBuffer* buffer)
{
    SourceState& state = stateOf(base);
    const auto reader = readerOf(base);
    if (!reader) return GST_FLOW_FLUSHING;
    const guint64 total = reader->length();
    if (offset >= total) return GST_FLOW_EOS;
    const guint64 wanted = std::min<guint64>(length, total - offset);

    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_WRITE)) return GST_FLOW_ERROR;
    guint64 done = 0;
    GstFlowReturn result = GST_FLOW_OK;
    while (done < wanted) {
        if (state.flushing.load()) {
            ++interruptedReads;
            result = GST_FLOW_FLUSHING;
            break;
        }
        try {
            const QByteArray piece = reader->readPiece(offset + done, wanted - done);
            std::memcpy(map.data + done, piece.constData(), size_t(piece.size()));
            done += guint64(piece.size());
        } catch (const quorvane::ContainerCancelled&) {
            // The asset is gone: the player that asked is being stopped.
            result = GST_FLOW_FLUSHING;
            break;
        } catch (const std::exception& error) {
            qCWarning(lcMediaSource)
                << "read of the virtual file failed at" << offset + done << ":" << error.what();
            GST_ELEMENT_ERROR(base, RESOURCE, READ, ("Could not read the media."),
                              ("at offset %" G_GUINT64_FORMAT ": %s", offset + done, error.what()));
            result = GST_FLOW_ERROR;
            break;
        }
    }
    gst_buffer_unmap(buffer, &map);
    if (result != GST_FLOW_OK) return result;
    ++servedReads;
    gst_buffer_set_size(buffer, gsize(wanted));
    GST_BUFFER_OFFSET(buffer) = offset;
    GST_BUFFER_OFFSET_END(buffer) = offset + wanted;
    return GST_FLOW_OK;
}

void finalize(GObject* object)
{
    delete reinterpret_cast<QvMediaSrc*>(object)->state;
    G_OBJECT_CLASS(qv_media_src_parent_class)->finalize(object);
}

GstURIType uriType(GType)
{
    return GST_URI_SRC;
}

const gchar* const* protocols(GType)
{
    static const gchar* const list[] = {kProtocol, nullptr};
    return list;
}

gchar* getUri(GstURIHandler* handler)
{
    SourceState& state = stateOf(handler);
    std::lock_guard guard(state.lock);
    return state.uri.empty() ? nullptr : g_strdup(state.uri.c_str());
}

gboolean setUri(GstURIHandler* handler, const gchar* uri, GError** error)
{
    GstState current = GST_STATE_NULL;
    GST_OBJECT_LOCK(handler);
    current = GST_STATE(handler);
    GST_OBJECT_UNLOCK(handler);
    if (current == GST_STATE_PAUSED || current == GST_STATE_PLAYING) {
        g_set_error(error, GST_URI_ERROR, GST_URI_ERROR_BAD_STATE,
                    "The URI of a running source cannot change.");
        return FALSE;
    }
    const QUrl url(QString::fromUtf8(uri ? uri : ""));
    if (url.scheme() != QLatin1String(kProtocol) || url.host().isEmpty()) {
        g_set_error(error, GST_URI_ERROR, GST_URI_ERROR_BAD_URI, "Not a %s URI: %s", kProtocol,
                    uri ? uri : "(null)");
        return FALSE;
    }
    SourceState& state = stateOf(handler);
    std::lock_guard guard(state.lock);
    state.uri = uri;
    return TRUE;
}

} // namespace

static void qv_media_src_uri_handler_init(gpointer iface, gpointer)
{
    auto* handler = static_cast<GstURIHandlerInterface*>(iface);
    handler->get_type = uriType;
    handler->get_protocols = protocols;
    handler->get_uri = getUri;
    handler->set_uri = setUri;
}

static void qv_media_src_class_init(QvMediaSrcClass* klass)
{
    G_OBJECT_CLASS(klass)->finalize = finalize;

    auto* elementClass = GST_ELEMENT_CLASS(klass);
    static GstStaticPadTemplate srcTemplate =
        GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);
    gst_element_class_add_static_pad_template(elementClass, &srcTemplate);
    gst_element_class_set_static_metadata(
        elementClass, "Quorvane media source", "Source/File",
        "Serves the virtual MP4 of a file opened by the container engine", "Quorvane Player");

    auto* baseClass = GST_BASE_SRC_CLASS(klass);
    baseClass->start = start;
    baseClass->stop = stop;
    baseClass->get_size = getSize;
    baseClass->is_seekable = isSeekable;
    baseClass->unlock = unlock;
    baseClass->unlock_stop = unlockStop;
    baseClass->fill = fill;
}

static void qv_media_src_init(QvMediaSrc* self)
{
    self->state = new SourceState;
    gst_base_src_set_format(GST_BASE_SRC(self), GST_FORMAT_BYTES);
}

namespace quorvane::mediasource {

bool registerElement()
{
    static const bool registered = [] {
        GError* error = nullptr;
        if (!gst_init_check(nullptr, nullptr, &error)) {
            qCWarning(lcMediaSource)
                << "GStreamer cannot be initialised:" << (error ? error->message : "");
            g_clear_error(&error);
            return false;
        }
        // Above every other handler, so no plugin installed on the machine can claim the protocol.
        const bool done = gst_element_register(nullptr, kElementName, GST_RANK_PRIMARY + 1,
                                               qv_media_src_get_type());
        if (!done) qCWarning(lcMediaSource) << "GStreamer refused the source element";
        return done;
    }();
    return registered;
}

Counters counters()
{
    return {servedReads.load(), interruptedReads.load()};
}

} // namespace quorvane::mediasource
