// The router over scripted backends: slot choice, fallback, the generation check and what it
// carries from one backend to the next.
#include "PlaybackRouter.h"
#include "support/ScriptedBackend.h"

#include <QFileInfo>
#include <QTest>

#include <cmath>

using namespace quorvane;
using quorvane::testing::ScriptedBackend;
using namespace Qt::StringLiterals;

namespace {

// Two slots shaped like the standard ones, recording every backend they make.
struct Harness {
    QList<QPointer<ScriptedBackend>> made;
    std::unique_ptr<PlaybackRouter> router;
    QList<PlaybackEvent> events;

    Harness()
    {
        std::vector<PlaybackSlot> slotList;
        slotList.push_back({u"native"_s, [](const QUrl& url) { return url.isLocalFile(); },
                            [this] { return make(u"native"_s); }});
        const auto webm = [](const QUrl& url) {
            return url.isLocalFile() && QStringList{"webm", "ogg", "oga"}.contains(
                                            QFileInfo(url.path()).suffix().toLower());
        };
        slotList.push_back({u"webm-system"_s, webm, [this] { return make(u"webm-system"_s); }});
        router = std::make_unique<PlaybackRouter>(std::move(slotList));
        router->setOnEvent([this](const PlaybackEvent& event) { events.append(event); });
    }

    std::unique_ptr<PlaybackBackend> make(const QString& name)
    {
        auto backend = std::make_unique<ScriptedBackend>(name);
        made.append(backend.get());
        return backend;
    }
    ScriptedBackend* last() const { return made.isEmpty() ? nullptr : made.last().data(); }
};

PlaybackEvent failed(qint64 code)
{
    return PlaybackEvents::Failed{code};
}
PlaybackEvent ready()
{
    return PlaybackEvents::Ready{PlaybackMediaInfo{10, 640, 360, 25, false, {}}};
}

} // namespace

class PlaybackRouterTest : public QObject {
    Q_OBJECT
private slots:
    void fallsBackSilentlyCarryingVolumeMuteAndSink()
    {
        Harness h;
        // Clamped to 0...1; non-finite values keep the last one.
        const double set[] = {1.7, -1.0, 0.4, NAN, INFINITY}, kept[] = {1.0, 0.0, 0.4, 0.4, 0.4};
        for (int i = 0; i < 5; ++i) {
            h.router->setVolume(set[i]);
            QCOMPARE(h.router->volume(), kept[i]);
        }
        h.router->setMuted(true);
        QVideoSink sink;
        h.router->setVideoSink(&sink);
        h.router->videoView()->setSize({800, 450});
        h.router->open(QUrl::fromLocalFile("/media/clip.WEBM"));
        QPointer<ScriptedBackend> native = h.made.at(0);
        QCOMPARE(native->videoView()->parentItem(), h.router->videoView());

        // The native backend fails before ready from inside its own callback.
        native->emitEvent(failed(-11829));
        QVERIFY(h.events.isEmpty());
        QCOMPARE(h.made.size(), 2);
        ScriptedBackend* web = h.last();
        QCOMPARE(h.router->activeSlotID(), u"webm-system"_s);
        QVERIFY(native->stopped && !native->hasHandler());
        QCOMPARE(native->videoView()->parentItem(), nullptr);
        // Volume, mute and the window's video sink reach the new backend before it opens.
        const qsizetype open = web->calls.indexOf("open clip.WEBM");
        for (const char* call : {"volume 0.4", "muted true", "sink"})
            QVERIFY2(web->calls.indexOf(call) >= 0 && web->calls.indexOf(call) < open, call);
        QCOMPARE(h.router->videoView()->childItems(), QList<QQuickItem*>{web->videoView()});
        QCOMPARE(web->videoView()->size(), QSizeF(800, 450));
        // The abandoned backend is released from the event loop, not inside its callback.
        QTRY_VERIFY(native.isNull());

        web->emitEvent(ready());
        QCOMPARE(h.events, QList<PlaybackEvent>{ready()});
    }

    void whichFailuresReachTheOwner()
    {
        // Nothing accepts a remote file; a failure after ready is final. (That the last
        // candidate's failure is final is walked end to end over the standard slots.)
        using Events = QList<PlaybackEvent>;
        const std::tuple<QUrl, Events, qsizetype, Events> cases[] = {
            {QUrl("https://example.com/a.webm"), {}, 0, {failed(kFileFormatNotRecognized)}},
            {QUrl::fromLocalFile("/media/clip.webm"),
             {ready(), failed(-11819)},
             1,
             {ready(), failed(-11819)}},
        };
        for (const auto& [url, emitted, made, seen] : cases) {
            Harness h;
            h.router->open(url);
            for (const PlaybackEvent& event : emitted)
                h.last()->emitEvent(event);
            QCOMPARE(h.made.size(), made);
            QCOMPARE(h.events, seen);
        }
    }

    void lateEventsFromAbandonedBackendsAreDropped()
    {
        Harness h;
        h.router->open(QUrl::fromLocalFile("/media/clip.webm"));
        QPointer<ScriptedBackend> first = h.last();
        first->emitEvent(failed(-1));
        // Still in flight from the first backend after the fallback.
        first->emitLate(ready());
        first->emitLate(PlaybackEvents::Ended{});
        QVERIFY(h.events.isEmpty());
        QVERIFY(!h.router->isReady());

        // Nor from the second once the router is stopped.
        QPointer<ScriptedBackend> second = h.last();
        h.router->stop();
        QVERIFY(second->stopped && !h.router->active());
        second->emitLate(ready());
        second->emitLate(PlaybackEvents::SeekCompleted{QUuid::createUuid()});
        QVERIFY(h.events.isEmpty());

        // A reopen makes a fresh backend; only its events count.
        h.router->open(QUrl::fromLocalFile("/media/other.mp4"));
        QPointer<ScriptedBackend> third = h.last();
        second->emitLate(failed(-5));
        third->emitEvent(PlaybackEvents::Ended{});
        QCOMPARE(h.events, QList<PlaybackEvent>{PlaybackEvents::Ended{}});
    }
};

QTEST_MAIN(PlaybackRouterTest)
#include "test_playback_router.moc"
