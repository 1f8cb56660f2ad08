// The appsrc guard against a bare appsrc in random-access mode, answered the way Qt 6.4 answers
// it: each range is announced (seek, then need-data) and the reply carries the device position it
// was read from. The replies here are scripted to be stale, late or failed on purpose.
#include "AppSourceGuard.h"

#include <gst/app/gstappsrc.h>
#include <gtest/gtest.h>

#include <deque>
#include <functional>

namespace {

constexpr guint64 kSize = 1000;

// A reply as Qt builds it: `bytes` bytes read at `position`, all of value `fill`; a failed read
// (bytes = -1) leaves the buffer unfilled and its end offset one short of the start minus one.
GstBuffer* reply(guint64 position, gint64 bytes, guint8 fill)
{
    const gsize size = bytes < 0 ? 16 : gsize(bytes);
    GstBuffer* buffer = gst_buffer_new_and_alloc(size);
    gst_buffer_memset(buffer, 0, fill, size);
    GST_BUFFER_OFFSET(buffer) = position;
    GST_BUFFER_OFFSET_END(buffer) = position + guint64(bytes) - 1;
    return buffer;
}

class AppSourceGuardTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(quorvane::appsource::installGuard());
        m_source = gst_element_factory_make("appsrc", nullptr);
        ASSERT_NE(m_source, nullptr);
        auto* app = GST_APP_SRC(m_source);
        gst_app_src_set_stream_type(app, GST_APP_STREAM_TYPE_RANDOM_ACCESS);
        gst_app_src_set_size(app, gint64(kSize));
        GstAppSrcCallbacks callbacks{};
        callbacks.need_data = [](GstAppSrc* source, guint length, gpointer self) {
            static_cast<AppSourceGuardTest*>(self)->needData(source, length);
        };
        callbacks.seek_data = [](GstAppSrc*, guint64 offset, gpointer self) -> gboolean {
            static_cast<AppSourceGuardTest*>(self)->seeks.push_back(offset);
            return TRUE;
        };
        gst_app_src_set_callbacks(app, &callbacks, this, nullptr);
        m_pad = gst_element_get_static_pad(m_source, "src");
        ASSERT_TRUE(gst_pad_activate_mode(m_pad, GST_PAD_MODE_PULL, TRUE));
    }

    void TearDown() override
    {
        if (m_pad) {
            gst_pad_activate_mode(m_pad, GST_PAD_MODE_PULL, FALSE);
            gst_object_unref(m_pad);
        }
        if (m_source) gst_object_unref(m_source);
    }

    void needData(GstAppSrc* source, guint)
    {
        if (replies.empty()) return;
        for (GstBuffer* buffer : replies.front())
            gst_app_src_push_buffer(source, buffer);
        replies.pop_front();
    }

    // Pulls a range; returns the flow result and the first byte of what came back.
    std::pair<GstFlowReturn, int> pull(guint64 offset, guint length)
    {
        GstBuffer* buffer = nullptr;
        const GstFlowReturn result = gst_pad_get_range(m_pad, offset, length, &buffer);
        guint8 first = 0;
        if (buffer) {
            EXPECT_EQ(GST_BUFFER_OFFSET(buffer), offset);
            gst_buffer_extract(buffer, 0, &first, 1);
            gst_buffer_unref(buffer);
        }
        return {result, buffer ? int(first) : -1};
    }

    std::deque<std::vector<GstBuffer*>> replies; // what each need-data pushes, in turn
    std::vector<guint64> seeks;

private:
    GstElement* m_source = nullptr;
    GstPad* m_pad = nullptr;
};

TEST_F(AppSourceGuardTest, StaleRepliesAreDroppedAndTheRightBytesComeThrough)
{
    const auto droppedBefore = quorvane::appsource::droppedBuffers();
    // A reply to an abandoned range arrives just before the right one.
    replies.push_back({reply(0, 10, 0xAA), reply(100, 10, 0x11)});
    EXPECT_EQ(pull(100, 10), std::make_pair(GST_FLOW_OK, 0x11));
    // The range is taken from what was already queued, not announced a second time.
    EXPECT_EQ(seeks, std::vector<guint64>{100});

    // Only a stale reply comes: the range is announced again and its own reply is taken.
    replies.push_back({reply(110, 10, 0xBB)});
    replies.push_back({reply(300, 20, 0x22)});
    EXPECT_EQ(pull(300, 20), std::make_pair(GST_FLOW_OK, 0x22));
    EXPECT_EQ(seeks, (std::vector<guint64>{100, 300, 300}));

    // Sequential ranges with honest replies pass untouched.
    replies.push_back({reply(320, 30, 0x33)});
    EXPECT_EQ(pull(320, 30), std::make_pair(GST_FLOW_OK, 0x33));
    EXPECT_EQ(quorvane::appsource::droppedBuffers() - droppedBefore, 2u);
}

TEST_F(AppSourceGuardTest, AFailedReadOfTheDeviceIsAnError)
{
    replies.push_back({reply(40, -1, 0)});
    EXPECT_EQ(pull(40, 16).first, GST_FLOW_ERROR);
}

} // namespace
