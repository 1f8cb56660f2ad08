#pragma once
// A backend double for tests: records every call, reports the snapshot a test scripts, and lets a
// test deliver events, including "late" ones through a handler the owner has already cleared (an
// event that was in flight when the backend was abandoned).
#include "PlaybackBackend.h"

#include <QQuickItem>
#include <QStringList>
#include <QVideoSink>

#include <memory>

namespace quorvane::testing {

class ScriptedBackend : public PlaybackBackend, public VideoOutput {
    Q_OBJECT
public:
    explicit ScriptedBackend(QString name = QStringLiteral("scripted"), QObject* parent = nullptr)
        : PlaybackBackend(parent), name(std::move(name)), m_view(std::make_unique<QQuickItem>())
    {
    }

    void setOnEvent(EventHandler handler) override
    {
        if (handler) m_lastHandler = handler;
        m_handler = std::move(handler);
        calls << (m_handler ? QStringLiteral("onEvent set") : QStringLiteral("onEvent cleared"));
    }
    bool isMuted() const override { return muted; }
    void setMuted(bool value) override
    {
        muted = value;
        calls << QStringLiteral("muted %1").arg(value ? "true" : "false");
    }
    PlaybackSnapshot snapshot() const override { return nextSnapshot; }
    void open(const QUrl& url) override
    {
        openedUrl = url;
        calls << QStringLiteral("open ") + url.fileName();
    }
    void play(double rate) override
    {
        rates << rate;
        calls << QStringLiteral("play %1").arg(rate);
    }
    void pause() override { calls << QStringLiteral("pause"); }
    void stop() override
    {
        stopped = true;
        calls << QStringLiteral("stop");
    }
    void seek(double seconds, const QUuid& id) override
    {
        seeks << seconds;
        lastSeekId = id;
        calls << QStringLiteral("seek %1").arg(seconds);
    }
    void setVolume(double value) override
    {
        volume = value;
        calls << QStringLiteral("volume %1").arg(value);
    }
    void selectTrack(PlaybackTrackKind kind, qint64 id) override
    {
        calls << QStringLiteral("select %1 %2").arg(rawValue(kind)).arg(id);
    }
    QQuickItem* videoView() override { return m_view.get(); }
    void setVideoSink(QVideoSink* sink) override
    {
        videoSink = sink;
        calls << QStringLiteral("sink");
    }

    bool hasHandler() const { return bool(m_handler); }
    // Delivers through the handler the owner set, as a live backend would.
    void emitEvent(const PlaybackEvent& event)
    {
        if (m_handler) m_handler(event);
    }
    // Delivers through the last handler ever set, even after the owner cleared it.
    void emitLate(const PlaybackEvent& event)
    {
        if (m_lastHandler) m_lastHandler(event);
    }
    int count(const QString& prefix) const
    {
        return int(std::count_if(calls.begin(), calls.end(),
                                 [&](const QString& call) { return call.startsWith(prefix); }));
    }

    QString name;
    QStringList calls;
    PlaybackSnapshot nextSnapshot;
    QUrl openedUrl;
    QVideoSink* videoSink = nullptr;
    QList<double> rates;
    QList<double> seeks;
    QUuid lastSeekId;
    double volume = -1;
    bool muted = false;
    bool stopped = false;

private:
    EventHandler m_handler;
    EventHandler m_lastHandler;
    std::unique_ptr<QQuickItem> m_view;
};

} // namespace quorvane::testing
