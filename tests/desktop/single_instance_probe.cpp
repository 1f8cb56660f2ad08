// A stand-in launch for the single-instance tests: `single_instance_probe SERVER [FILE...]`.
// Prints "primary" when it becomes the running instance and then one line per hand-over
// ("files: URL URL ..."), or "handed over" and exits 0 when another instance took its files.
#include "SingleInstance.h"

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList arguments = app.arguments().mid(1);
    if (arguments.isEmpty()) return 2;
    const QString server = arguments.takeFirst();

    QTextStream out(stdout);
    quorvane::SingleInstance instance(server);
    if (!instance.start(quorvane::SingleInstance::filesFromArguments(arguments))) {
        out << "handed over\n";
        return 0;
    }
    out << "primary\n" << Qt::flush;
    QObject::connect(&instance, &quorvane::SingleInstance::activated,
                     [&out](const QList<QUrl>& files) {
                         out << "files:";
                         for (const QUrl& url : files)
                             out << ' ' << url.toString();
                         out << '\n' << Qt::flush;
                     });
    return app.exec();
}
