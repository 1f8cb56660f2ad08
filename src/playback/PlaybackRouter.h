#pragma once
// The backend the player model holds: tries the slots that accept a file in order, falls back to
// the next one when a backend fails before it became ready, forwards every control call to the
// one active backend and carries volume and mute from one backend to the next.
#include "PlaybackBackend.h"

#include <QPointer>
#include <QQuickItem>
#include <QVideoSink>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace quorvane {

struct PlaybackSlot {
    QString id;
    std::function<bool(const QUrl&)> accepts;
    std::function<std::unique_ptr<PlaybackBackend>()> make;
};

class PlaybackRouter : public PlaybackBackend, public VideoOutput {
    Q_OBJECT
public:
    // Without a slot list the router uses standardSlots().
    explicit PlaybackRouter(std::optional<std::vector<PlaybackSlot>> slotList = std::nullopt,
                            QObject* parent = nullptr);
    ~PlaybackRouter() override;

    void setOnEvent(EventHandler handler) override;
    bool isMuted() const override { return m_muted; }
    void setMuted(bool muted) override;
    PlaybackSnapshot snapshot() const override;
    void open(const QUrl& url) override;
    void play(double rate) override;
    void pause() override;
    void stop() override;
    void seek(double seconds, const QUuid& id) override;
    // NaN and infinities are ignored; anything else is clamped to 0...1.
    void setVolume(double volume) override;
    void selectTrack(PlaybackTrackKind kind, qint64 id) override;
    // Remembered and handed to every backend the router makes, and to the active one at once.
    void setVideoSink(QVideoSink* sink) override;
    QVideoSink* videoSink() const { return m_videoSink; }
    // Remembered and handed to every backend the router makes.
    void setWebView(QQuickItem* view) override;
    bool showsWebView() const override { return m_active && m_active->showsWebView(); }

    // A plain container; the active backend's own item is placed inside and fills it.
    QQuickItem* videoView() override { return m_videoView.get(); }

    // The id of the first slot that accepts `url`: the backend an open would try first.
    std::optional<QString> firstSlotFor(const QUrl& url) const;

    // Introspection for the model's diagnostics and for tests.
    PlaybackBackend* active() const { return m_active.get(); }
    std::optional<QString> activeSlotID() const { return m_activeSlotID; }
    double volume() const { return m_volume; }
    bool isReady() const { return m_ready; }
    QUuid generation() const { return m_generation; }
    const std::vector<PlaybackSlot>& playbackSlots() const { return m_slots; }

private:
    void advance(qint64 lastError);
    void releaseRetired();
    void abandonActive();
    void clearVideoView();
    void embed(PlaybackBackend* backend);
    void emitEvent(const PlaybackEvent& event);
    void handle(const QUuid& generation, const PlaybackEvent& event);

    std::unique_ptr<QQuickItem> m_videoView;
    QPointer<QVideoSink> m_videoSink;
    EventHandler m_onEvent;
    std::unique_ptr<PlaybackBackend> m_active;
    // The router often abandons a backend from inside that backend's own event callback, so
    // abandoned backends are destroyed from the event loop (or with the router), never at once.
    std::vector<std::unique_ptr<PlaybackBackend>> m_retired;
    std::optional<QString> m_activeSlotID;
    std::vector<PlaybackSlot> m_slots;
    std::vector<PlaybackSlot> m_candidates;
    std::optional<QUrl> m_source;
    QUuid m_generation = QUuid::createUuid();
    bool m_ready = false;
    double m_volume = 1.0;
    bool m_muted = false;
    QPointer<QQuickItem> m_webView;
};

} // namespace quorvane
