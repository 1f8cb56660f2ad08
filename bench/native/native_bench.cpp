// Opening time of the native backend: from open() to the first picture and to Ready, for each
// file given, alternating between them so that both see the same machine state. Prints the
// median and the spread of every measure and the ratio of each file's medians to the last file's.
#include "ContainerMedia.h"
#include "NativeMediaInfo.h"
#include "NativePlayback.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QGuiApplication>
#include <QTest>
#include <QTextStream>
#include <QTimer>

#include <algorithm>
#include <cstdio>

using namespace quorvane;

namespace {
struct Times {
    QList<double> engine; // the container engine's open alone, for remuxed files
    QList<double> frame;
    QList<double> ready;
};

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? 0 : values[values.size() / 2];
}

QString describe(const QList<double>& values)
{
    const auto [low, high] = std::minmax_element(values.begin(), values.end());
    return QStringLiteral("%1 ms (%2 to %3)")
        .arg(median(values), 0, 'f', 1)
        .arg(*low, 0, 'f', 1)
        .arg(*high, 0, 'f', 1);
}

// One open; false when the file failed or timed out.
bool measure(NativePlayback& backend, const QString& path, Times& times)
{
    bool ready = false;
    bool failed = false;
    double frameMs = -1;
    QElapsedTimer clock;
    // A real event loop, not a polling wait: the player's device reads are served from it.
    QEventLoop loop;
    backend.setOnEvent([&](const PlaybackEvent& event) {
        if (std::holds_alternative<PlaybackEvents::Ready>(event))
            ready = true;
        else if (std::holds_alternative<PlaybackEvents::Failed>(event))
            failed = true;
        loop.quit();
    });
    const auto connection = QObject::connect(&backend, &NativePlayback::firstFrameShown, [&] {
        if (frameMs < 0) frameMs = double(clock.nsecsElapsed()) / 1e6;
    });
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    clock.start();
    backend.open(QUrl::fromLocalFile(path));
    if (!ready && !failed) loop.exec();
    const double readyMs = double(clock.nsecsElapsed()) / 1e6;
    QObject::disconnect(connection);
    backend.stop();
    if (!ready) return false;
    times.frame.append(frameMs);
    times.ready.append(readyMs);
    return true;
}
} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_MEDIA_BACKEND", "gstreamer");
    QGuiApplication app(argc, argv);
    QStringList files = app.arguments().mid(1);
    int rounds = 7;
    if (files.size() > 1 && files.first().startsWith(QLatin1String("--rounds="))) {
        rounds = files.takeFirst().mid(9).toInt();
    }
    if (files.isEmpty()) {
        std::fprintf(stderr, "usage: qv_native_bench [--rounds=N] FILE...\n");
        return 64;
    }

    NativePlayback backend;
    QList<Times> times(files.size());
    // One untimed open of each file first: plugin loading and the page cache are not the subject.
    for (const QString& file : files) {
        Times warmup;
        if (!measure(backend, file, warmup)) {
            std::fprintf(stderr, "cannot open %s\n", qPrintable(file));
            return 1;
        }
    }
    for (int round = 0; round < rounds; ++round) {
        for (qsizetype i = 0; i < files.size(); ++i) {
            if (!measure(backend, files[i], times[i])) return 1;
            if (nativemedia::usesContainerPath(QUrl::fromLocalFile(files[i]))) {
                QElapsedTimer clock;
                clock.start();
                ContainerMedia::open(files[i]);
                times[i].engine.append(double(clock.nsecsElapsed()) / 1e6);
            }
        }
    }

    QTextStream out(stdout);
    for (qsizetype i = 0; i < files.size(); ++i) {
        out << QFileInfo(files[i]).fileName() << " (" << rounds << " opens)\n"
            << "  open to first picture: " << describe(times[i].frame) << "\n"
            << "  open to ready:         " << describe(times[i].ready) << "\n";
        if (!times[i].engine.isEmpty())
            out << "  of which engine open:  " << describe(times[i].engine) << "\n";
    }
    if (files.size() > 1) {
        const Times& base = times.last();
        for (qsizetype i = 0; i + 1 < files.size(); ++i)
            out << QFileInfo(files[i]).fileName() << " / " << QFileInfo(files.last()).fileName()
                << ": first picture "
                << QString::number(median(times[i].frame) / median(base.frame), 'f', 2)
                << "x, ready "
                << QString::number(median(times[i].ready) / median(base.ready), 'f', 2) << "x\n";
    }
    return 0;
}
