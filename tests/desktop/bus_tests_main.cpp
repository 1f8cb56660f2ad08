// Runs the bus tests in one process on the private bus that dbus-run-session provides.
#include <QGuiApplication>

int runMprisTests(int argc, char** argv);
int runScreenSaverTests(int argc, char** argv);

int main(int argc, char** argv)
{
    qputenv("QT_MEDIA_BACKEND", "gstreamer");
    QGuiApplication app(argc, argv);
    const int mpris = runMprisTests(argc, argv);
    const int screenSaver = runScreenSaverTests(argc, argv);
    return mpris != 0 || screenSaver != 0 ? 1 : 0;
}
