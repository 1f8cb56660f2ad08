// Opening a long Matroska movie, cold (page cache dropped, when run as root) and warm:
//   - the container engine's open alone: time and bytes read (from /proc/self/io), and its layout;
//   - open to first picture through the native path (the engine behind the player's device);
//   - open to first picture with the same file handed to Qt's GStreamer backend directly, which
//     plays it with playbin and matroskademux: the reference.
// Prints medians, the ratios native / reference and the share of the file read at open.
#include "NativePlayback.h"
#include "engine/qv_media.h"

#include <QAudioOutput>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMediaPlayer>
#include <QTextStream>
#include <QTimer>
#include <QVideoFrame>
#include <QVideoSink>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

using namespace quorvane;

namespace {

struct Io {
    qint64 rchar = 0;     // bytes asked of read calls (page cache or disk)
    qint64 readBytes = 0; // bytes the disk delivered
};

Io io()
{
    QFile f(QStringLiteral("/proc/self/io"));
    Io result;
    if (!f.open(QIODevice::ReadOnly)) return result;
    for (const QByteArray& line : f.readAll().split('\n')) {
        if (line.startsWith("rchar: ")) result.rchar = line.mid(7).toLongLong();
        if (line.startsWith("read_bytes: ")) result.readBytes = line.mid(12).toLongLong();
    }
    return result;
}

bool dropCaches()
{
    if (::geteuid() != 0) return false;
    ::sync();
    QFile f(QStringLiteral("/proc/sys/vm/drop_caches"));
    return f.open(QIODevice::WriteOnly) && f.write("3\n") == 2;
}

double median(QList<double> v)
{
    std::sort(v.begin(), v.end());
    return v.isEmpty() ? 0 : v[v.size() / 2];
}

// "median ms (lowest–highest)": the machine is shared, so one number says little.
QString spread(const QList<double>& v)
{
    const auto [low, high] = std::minmax_element(v.begin(), v.end());
    return QString::number(median(v), 'f', 1) + " ms (" +
           (v.isEmpty()
                ? QString()
                : QString::number(*low, 'f', 1) + QChar(0x2013) + QString::number(*high, 'f', 1)) +
           ")";
}

// Open to first picture through the native backend; -1 on failure or after 60 s.
double nativeFirstPicture(NativePlayback& backend, const QString& path)
{
    double ms = -1;
    bool failed = false;
    QElapsedTimer clock;
    QEventLoop loop;
    backend.setOnEvent([&](const PlaybackEvent& event) {
        if (std::holds_alternative<PlaybackEvents::Failed>(event)) {
            failed = true;
            loop.quit();
        }
    });
    const auto shown = QObject::connect(&backend, &NativePlayback::firstFrameShown, [&] {
        if (ms < 0) ms = double(clock.nsecsElapsed()) / 1e6;
        loop.quit();
    });
    QTimer::singleShot(60000, &loop, &QEventLoop::quit);
    clock.start();
    backend.open(QUrl::fromLocalFile(path));
    if (ms < 0 && !failed) loop.exec();
    QObject::disconnect(shown);
    backend.setOnEvent([](const PlaybackEvent&) {});
    backend.stop();
    return failed ? -1 : ms;
}

// Open to first picture with Qt's GStreamer backend playing the file itself.
double playbinFirstPicture(const QString& path)
{
    QMediaPlayer player;
    QAudioOutput audio;
    QVideoSink sink;
    player.setAudioOutput(&audio);
    player.setVideoSink(&sink);
    double ms = -1;
    QElapsedTimer clock;
    QEventLoop loop;
    // The loop is the context: the sink announces an empty frame when it goes away.
    QObject::connect(&sink, &QVideoSink::videoFrameChanged, &loop, [&](const QVideoFrame& frame) {
        if (ms < 0 && frame.isValid()) ms = double(clock.nsecsElapsed()) / 1e6;
        loop.quit();
    });
    QObject::connect(&player, &QMediaPlayer::errorOccurred, &loop, &QEventLoop::quit);
    QTimer::singleShot(60000, &loop, &QEventLoop::quit);
    clock.start();
    player.setSource(QUrl::fromLocalFile(path));
    player.play();
    if (ms < 0) loop.exec();
    player.stop();
    return ms;
}

struct EngineOpen {
    double ms = -1;
    Io read;
    uint32_t layout = 0;
};

EngineOpen engineOpen(const QString& path)
{
    EngineOpen result;
    const Io before = io();
    QElapsedTimer clock;
    clock.start();
    uint32_t code = 0;
    QVMedia* media = qv_media_open(QFile::encodeName(path).constData(), nullptr, nullptr, &code);
    result.ms = double(clock.nsecsElapsed()) / 1e6;
    const Io after = io();
    result.read = {after.rchar - before.rchar, after.readBytes - before.readBytes};
    result.layout = qv_media_layout(media);
    qv_media_close(media);
    if (!media) result.ms = -1;
    return result;
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_MEDIA_BACKEND", "gstreamer");
    QGuiApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    int rounds = 3;
    if (!args.isEmpty() && args.first().startsWith(QLatin1String("--rounds=")))
        rounds = args.takeFirst().mid(9).toInt();
    if (args.size() != 1) {
        std::fprintf(stderr, "usage: qv_open_bench [--rounds=N] FILE.mkv\n");
        return 64;
    }
    const QString path = args.first();
    const double fileSize = double(QFileInfo(path).size());
    const bool canDrop = dropCaches();

    NativePlayback backend;
    // Plugins and the engine's code are loaded once, untimed.
    if (nativeFirstPicture(backend, path) < 0 || playbinFirstPicture(path) < 0) {
        std::fprintf(stderr, "cannot play %s\n", qPrintable(path));
        return 1;
    }

    QTextStream out(stdout);
    out << QFileInfo(path).fileName() << ": " << QString::number(fileSize / 1e9, 'f', 2) << " GB, "
        << rounds << " rounds\n";
    const QList<bool> temperatures = canDrop ? QList<bool>{true, false} : QList<bool>{false};
    if (!canDrop) out << "(not root: the page cache cannot be dropped; warm runs only)\n";
    for (const bool cold : temperatures) {
        QList<double> engine, native, playbin, asked, disk;
        uint32_t layout = 0;
        for (int round = 0; round < rounds; ++round) {
            if (cold) dropCaches();
            const auto open = engineOpen(path);
            engine.append(open.ms);
            asked.append(double(open.read.rchar));
            disk.append(double(open.read.readBytes));
            layout = open.layout;
            if (cold) dropCaches();
            native.append(nativeFirstPicture(backend, path));
            if (cold) dropCaches();
            playbin.append(playbinFirstPicture(path));
        }
        const auto percent = [&](double bytes) {
            return QString::number(100.0 * bytes / fileSize, 'f', 3) + " %";
        };
        out << (cold ? "cold" : "warm") << ":\n"
            << "  engine open:              " << spread(engine) << ", "
            << (layout == QV_MEDIA_LAYOUT_FRAGMENTED ? "fragmented" : "full") << " layout, read "
            << QString::number(median(asked) / 1e6, 'f', 2) << " MB (" << percent(median(asked))
            << " of the file; from disk " << QString::number(median(disk) / 1e6, 'f', 2) << " MB)\n"
            << "  native, first picture:    " << spread(native) << "\n"
            << "  playbin, first picture:   " << spread(playbin) << "\n"
            << "  native / playbin:         "
            << QString::number(median(native) / median(playbin), 'f', 2) << "x (goal 1.5x)\n";
    }
    return 0;
}
