// Serves one file through the loopback media server until the process is ended, printing the
// media URL on the first line of its output. `bench/loopback/run` drives it with curl.
#include "LocalMediaServer.h"

#include <QCoreApplication>
#include <QUrl>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: qv_loopback_bench FILE\n");
        return 64;
    }
    auto made = quorvane::LocalMediaServer::create(
        QUrl::fromLocalFile(QString::fromLocal8Bit(argv[1])), QByteArrayLiteral("<!doctype html>"));
    if (auto* error = std::get_if<quorvane::LocalMediaServerError>(&made)) {
        std::fprintf(stderr, "cannot serve %s: error %d\n", argv[1], int(*error));
        return 1;
    }
    auto server = std::move(std::get<std::unique_ptr<quorvane::LocalMediaServer>>(made));
    server->start([](const quorvane::LocalMediaServer::StartResult& result) {
        if (const QUrl* page = std::get_if<QUrl>(&result)) {
            const QString media =
                page->toString().replace(QStringLiteral("/index.html"), QStringLiteral("/media"));
            std::printf("%s\n", qPrintable(media));
            std::fflush(stdout);
        } else {
            std::fprintf(stderr, "the server did not start\n");
            QMetaObject::invokeMethod(qApp, [] { QCoreApplication::exit(1); });
        }
    });
    return app.exec();
}
