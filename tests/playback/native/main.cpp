#include <QGuiApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    // Real GStreamer under a real (or virtual) display; no sound card is needed.
    qputenv("QT_MEDIA_BACKEND", "gstreamer");
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
