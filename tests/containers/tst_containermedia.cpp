// The wrapper's error mapping and cancellation, on small files made by the test itself.
#include "ContainerMedia.h"
#include "TransportStreams.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace quorvane;

namespace {

QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& data)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    if (file.open(QIODevice::WriteOnly)) file.write(data);
    return path;
}

template <typename Work> qint32 containerErrorCode(Work work)
{
    try {
        work();
    } catch (const ContainerError& error) {
        return error.code();
    } catch (...) {
        return -1;
    }
    return 0;
}

template <typename Work> bool throwsCancelled(Work work)
{
    try {
        work();
    } catch (const ContainerCancelled&) {
        return true;
    } catch (...) {
    }
    return false;
}

} // namespace

class ContainerMediaTest : public QObject {
    Q_OBJECT

private slots:
    void openFailuresCarryEngineCodes();
    void probeFailuresCarryEngineCodes();
    void cancellationIsNotAnEngineError();
    void errorsSurviveFutures();

private:
    QTemporaryDir m_dir;
};

void ContainerMediaTest::openFailuresCarryEngineCodes()
{
    const QString text = writeFile(m_dir, "notes.mkv", "just some text, not a container\n");
    const QString empty = writeFile(m_dir, "empty.mkv", {});
    QCOMPARE(containerErrorCode([&] { ContainerMedia::open(text); }), 2);
    QCOMPARE(containerErrorCode([&] { ContainerMedia::open(empty); }), 1);
    QCOMPARE(containerErrorCode([&] { ContainerMedia::open(m_dir.filePath("missing.mkv")); }), 5);
    QCOMPARE(containerErrorCode([&] { ContainerMedia::open(m_dir.path()); }), 5);
    QCOMPARE(containerErrorCode([&] { ContainerMedia::open(QUrl("https://example.com/a.mkv")); }),
             2);
    QCOMPARE(containerErrorCode([&] { ContainerMedia::open(QUrl::fromLocalFile(text)); }), 2);

    QCOMPARE(ContainerError(5), ContainerError(5));
    QVERIFY(!(ContainerError(5) == ContainerError(2)));
    QCOMPARE(ContainerError::domain(), QStringLiteral("Quorvane.MediaContainers"));
}

void ContainerMediaTest::probeFailuresCarryEngineCodes()
{
    QCOMPARE(containerErrorCode([&] { TransportStreams::inspect(m_dir.filePath("none.ts")); }), 5);
    QCOMPARE(containerErrorCode([&] { TransportStreams::inspect(QUrl("http://x/a.ts")); }), 2);
    // A file without transport packets holds neither audio nor video; that is an answer.
    const QString text = writeFile(m_dir, "plain.ts", QByteArray(4096, 'x'));
    QCOMPARE(TransportStreams::inspect(text), TransportStreams{});
}

void ContainerMediaTest::cancellationIsNotAnEngineError()
{
    // The engine polls the flag before its first read of the source, so any readable file will
    // do; the same file opens with an engine error when not cancelled.
    const QString text = writeFile(m_dir, "cancel.mkv", "not a container either\n");
    const auto cancelled = std::make_shared<std::atomic_bool>(true);
    QVERIFY(throwsCancelled([&] { ContainerMedia::open(text, cancelled); }));
    QVERIFY(throwsCancelled([&] { TransportStreams::inspect(text, cancelled); }));
    const auto running = std::make_shared<std::atomic_bool>(false);
    QCOMPARE(containerErrorCode([&] { ContainerMedia::open(text, running); }), 2);
}

void ContainerMediaTest::errorsSurviveFutures()
{
    const QString text = writeFile(m_dir, "future.flv", "FLX and nothing else");
    auto failing = ContainerMedia::openAsync(QUrl::fromLocalFile(text), {});
    QCOMPARE(containerErrorCode([&] { failing.result(); }), 2);

    auto cancelled = ContainerMedia::openAsync(QUrl::fromLocalFile(text),
                                               std::make_shared<std::atomic_bool>(true));
    QVERIFY(throwsCancelled([&] { cancelled.result(); }));

    auto probe = TransportStreams::inspectAsync(QUrl::fromLocalFile(m_dir.filePath("gone.ts")),
                                                std::make_shared<std::atomic_bool>(false));
    QCOMPARE(containerErrorCode([&] { probe.result(); }), 5);
}

QTEST_GUILESS_MAIN(ContainerMediaTest)
#include "tst_containermedia.moc"
