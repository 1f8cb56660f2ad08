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
    if (only) argv[1] = argv[0], ++argv, --argc;
    const auto wanted = [only](const char* name) { return !only || std::strcmp(only, name) == 0; };
    const int failed = (wanted("TestMpris") ? runMprisTests(argc, argv) : 0) +
                       (wanted("TestScreenSaver") ? runScreenSaverTests(argc, argv) : 0);
    return failed != 0 ? 1 : 0;
}
