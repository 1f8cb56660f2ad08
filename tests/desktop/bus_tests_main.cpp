// Runs the bus tests in one process on the private bus that dbus-run-session provides.
// `tst_desktop_bus [TestMpris|TestScreenSaver] [QtTest options]` runs one class.
#include <QGuiApplication>

#include <cstring>

int runMprisTests(int argc, char** argv);
int runScreenSaverTests(int argc, char** argv);

int main(int argc, char** argv)
{
    qputenv("QT_MEDIA_BACKEND", "gstreamer");
    QGuiApplication app(argc, argv);
    const char* only = argc > 1 && std::strncmp(argv[1], "Test", 4) == 0 ? argv[1] : nullptr;
    if (only) {
        argv[1] = argv[0];
        ++argv;
        --argc;
    }
    int failed = 0;
    if (!only || std::strcmp(only, "TestMpris") == 0) failed += runMprisTests(argc, argv);
    if (!only || std::strcmp(only, "TestScreenSaver") == 0)
        failed += runScreenSaverTests(argc, argv);
    return failed != 0 ? 1 : 0;
}
