#pragma once
// What the backends' end-to-end tests share: fixtures, an event recorder and a wait that keeps the
// event loop (and with it GStreamer's bus and the web page) running.
#include "PlaybackBackend.h"

#include <QDeadlineTimer>
#include <QList>
#include <QTest>
#include <QUrl>

#include <functional>

namespace quorvane::testing {

#ifdef QV_NATIVE_FIXTURE_DIR
inline QUrl fixture(const QString& name)
{
    return QUrl::fromLocalFile(QStringLiteral(QV_NATIVE_FIXTURE_DIR "/") + name);
}
#endif

// Spins the event loop until `done` holds or `ms` pass; returns whether it holds.
inline bool waitUntil(const std::function<bool()>& done, int ms = 30000)
{
    QDeadlineTimer deadline(ms);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QTest::qWait(10);
    }
    return true;
}

struct EventRecorder {
    QList<PlaybackEvent> events;

    PlaybackBackend::EventHandler handler()
    {
        return [this](const PlaybackEvent& event) { events.append(event); };
    }
    template <typename T> QList<T> all() const
    {
        QList<T> found;
        for (const auto& event : events)
            if (const auto* value = std::get_if<T>(&event)) found.append(*value);
        return found;
    }
    template <typename T> qsizetype count() const { return all<T>().size(); }
    bool settled() const
    {
        return count<PlaybackEvents::Ready>() + count<PlaybackEvents::Failed>() > 0;
    }
};

} // namespace quorvane::testing
