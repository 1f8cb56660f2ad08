// Opening and seeking time of the native backend: from open() to the first picture and to Ready,
// and from a seek of the opened file to the picture at its target, for each file given,
// alternating between them so that both see the same machine state. Prints the median and the
// spread of every measure and the ratio of each file's medians to the last file's.
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
    QList<double> seek; // seek to the picture at the target, paused
    int seeksWithoutPicture = 0;
};

// The native backend completes a seek without a picture after this long.
constexpr double kFallbackMs = 1450;

// Where each open seeks to, as fractions of the file's duration: forwards and backwards, near and
// far, so that the demuxer both jumps and reads on.
constexpr double kSeekTargets[] = {0.5, 0.2, 0.8, 0.35, 0.05};

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? 0 : values[values.size() / 2];
}

QString describe(const QList<double>& values)
{
    if (values.isEmpty()) return QStringLiteral("none");
    const auto [low, high] = std::minmax_element(values.begin(), values.end());
    return QStringLiteral("%1 ms (%2 to %3)")
        .arg(median(values), 0, 'f', 1)
        .arg(*low, 0, 'f', 1)
        .arg(*high, 0, 'f', 1);
}

// Seeks of the opened file, each timed to its completion (a picture near the target). A seek that
// only completed through the backend's fallback timer (no picture near the target within 1.5 s)
// is counted apart, not timed.
void measureSeeks(NativePlayback& backend, double duration, Times& times)
{
    for (const double fraction : kSeekTargets) {
        const QUuid id = QUuid::createUuid();
        bool completed = false;
        QEventLoop loop;
        backend.setOnEvent([&](const PlaybackEvent& event) {
            if (const auto* done = std::get_if<PlaybackEvents::SeekCompleted>(&event))
                completed = done->id == id;
            if (completed) loop.quit();
        });
        QTimer::singleShot(5000, &loop, &QEventLoop::quit);
        QElapsedTimer clock;
        clock.start();
        backend.seek(duration * fraction, id);
        if (!completed) loop.exec();
        const double ms = double(clock.nsecsElapsed()) / 1e6;
        if (qEnvironmentVariableIsSet("QV_BENCH_VERBOSE"))
            std::fprintf(stderr, "seek to %.2f: %.1f ms%s\n", duration * fraction, ms,
                         completed ? "" : " (not completed)");
        if (completed && ms < kFallbackMs)
            times.seek.append(ms);
        else
            ++times.seeksWithoutPicture;
    }
}

// One open and its seeks; false when the file failed or timed out.
bool measure(NativePlayback& backend, const QString& path, Times& times)
{
    bool ready = false;
    bool failed = false;
    double duration = 0;
    double frameMs = -1;
    QElapsedTimer clock;
    // A real event loop, not a polling wait: the player's device reads are served from it.
    QEventLoop loop;
    backend.setOnEvent([&](const PlaybackEvent& event) {
        if (const auto* opened = std::get_if<PlaybackEvents::Ready>(&event)) {
            ready = true;
            duration = opened->info.duration;
        } else if (std::holds_alternative<PlaybackEvents::Failed>(event))
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
    if (ready) measureSeeks(backend, duration, times);
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
            << "  open to ready:         " << describe(times[i].ready) << "\n"
            << "  seek to picture:       " << describe(times[i].seek) << " over "
            << times[i].seek.size() << " seeks";
        if (times[i].seeksWithoutPicture > 0)
            out << ", " << times[i].seeksWithoutPicture << " more without a picture in time";
        out << "\n";
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
                << QString::number(median(times[i].ready) / median(base.ready), 'f', 2)
                << "x, seek to picture "
                << QString::number(median(times[i].seek) / median(base.seek), 'f', 2) << "x\n";
    }
    return 0;
}
