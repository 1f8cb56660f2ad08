// Our GStreamer source element on its own: GStreamer picks it for the protocol, it serves the
// asset's bytes in pull mode exactly, and an unknown or invalidated asset fails cleanly.
#include "ContainerAsset.h"
#include "MediaSourceElement.h"

#include <QCoreApplication>

#include <gst/gst.h>
#include <gtest/gtest.h>

using namespace quorvane;

namespace {

// A source made for `uri` the way uridecodebin makes one, its pad active in pull mode.
struct Source {
    GstElement* element;
    GstPad* pad = nullptr;
    bool started = false;

    explicit Source(const QByteArray& uri)
        : element(gst_element_make_from_uri(GST_URI_SRC, uri.constData(), nullptr, nullptr))
    {
        if (!element) return;
        gst_object_ref_sink(element);
        gst_element_set_state(element, GST_STATE_READY);
        pad = gst_element_get_static_pad(element, "src");
        started = gst_pad_activate_mode(pad, GST_PAD_MODE_PULL, TRUE);
    }
    ~Source()
    {
        if (!element) return;
        gst_pad_activate_mode(pad, GST_PAD_MODE_PULL, FALSE);
        gst_object_unref(pad);
        gst_element_set_state(element, GST_STATE_NULL);
        gst_object_unref(element);
    }
    std::pair<GstFlowReturn, QByteArray> read(guint64 offset, guint size) const
    {
        GstBuffer* buffer = nullptr;
        const GstFlowReturn flow = gst_pad_get_range(pad, offset, size, &buffer);
        QByteArray bytes(buffer ? qsizetype(gst_buffer_get_size(buffer)) : 0, Qt::Uninitialized);
        if (buffer) gst_buffer_extract(buffer, 0, bytes.data(), size_t(bytes.size()));
        if (buffer) gst_buffer_unref(buffer);
        return {flow, bytes};
    }
};

} // namespace

TEST(MediaSourceElement, ServesTheAssetsBytesUntilItIsInvalidated)
{
    int argc = 0;
    QCoreApplication app(argc, nullptr); // the asset's read-ahead thread runs an event loop
    ASSERT_TRUE(mediasource::registerElement());
    auto media = ContainerMedia::open(QStringLiteral(QV_NATIVE_FIXTURE_DIR "/native-h264-aac.mkv"));
    ContainerAsset asset(media);
    // Qt hands the UUID on in lower case, but any case finds the asset.
    QByteArray uri = asset.url().toEncoded();
    uri.replace(asset.url().host().toLatin1(), asset.url().host().toUpper().toLatin1());
    Source source(uri);
    ASSERT_NE(source.element, nullptr);
    EXPECT_STREQ(GST_OBJECT_NAME(gst_element_get_factory(source.element)),
                 mediasource::kElementName);
    ASSERT_TRUE(source.started);
    // The header as typefind reads it, several pieces in one buffer, a range cut at the end.
    const quint64 length = media->length();
    const std::pair<guint64, guint> ranges[] = {
        {0, 4096}, {1000, 3 * ContainerAsset::kPieceSize + 17}, {length - 10, 1000}};
    for (const auto& [offset, size] : ranges)
        EXPECT_EQ(source.read(offset, size),
                  std::pair(GST_FLOW_OK, media->read(offset, std::min<quint64>(size, 1 << 20))))
            << offset;
    EXPECT_EQ(source.read(length, 10).first, GST_FLOW_EOS);
    // Invalidated under a running source: later reads stop quietly, a new start is refused, as
    // for an unknown asset.
    asset.invalidate();
    EXPECT_EQ(source.read(0, 4096).first, GST_FLOW_FLUSHING);
    EXPECT_FALSE(Source(asset.url().toEncoded()).started);
    EXPECT_FALSE(Source("quorvane-media://00000000-0000-0000-0000-000000000000/movie.mp4").started);
    // A URI of another kind is refused outright when set on the element.
    GstElement* element = gst_element_factory_make(mediasource::kElementName, nullptr);
    GError* error = nullptr;
    EXPECT_FALSE(gst_uri_handler_set_uri(GST_URI_HANDLER(element), "file:///tmp/a.mp4", &error));
    EXPECT_NE(error, nullptr);
    g_clear_error(&error);
    gst_object_unref(element);
}
