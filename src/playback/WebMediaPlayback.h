#pragma once
// The second-chance backend for WebM and Ogg files the native path refuses: the file plays in the
// window's web view (a QtWebEngine `WebEngineView` declared in QML and handed in through
// setWebView), which loads the playback page from a private loopback server. Backend calls become
// page commands; the page's messages become events and snapshot values once they pass the
// acceptance rules of WebPlaybackPage.h.
//
// The page reaches us through a QWebChannel object named "media" and a user script of our private,
// off-the-record profile, injected into the page's own world at document creation, that offers
// `window.webkit.messageHandlers.media` on top of it, so the page text and its
// Content-Security-Policy stay exactly as served. While it plays, the backend puts that profile on
// the view, sets its web channel and decides its navigations; stop() hands the view back blank.
#include "PlaybackBackend.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QPointer>
#include <QTimer>
#include <QUrl>
#include <QUuid>

#include <memory>
#include <optional>

class QQmlWebChannel;
class QWebEngineNavigationRequest;

namespace quorvane {

class LocalMediaServer;
class MediaScriptBridge;

class WebMediaPlayback final : public PlaybackBackend {
    Q_OBJECT
public:
    // Sets QtWebEngine up; call before the application object exists. Chromium's sandbox cannot
    // run as root, so only then is it switched off.
    static void initializeWebEngine();

    explicit WebMediaPlayback(QObject* parent = nullptr);
    ~WebMediaPlayback() override;

    void setOnEvent(EventHandler handler) override;
    bool isMuted() const override { return m_muted; }
    void setMuted(bool muted) override;
    PlaybackSnapshot snapshot() const override { return m_snapshot; }
    void open(const QUrl& url) override;
    void play(double rate) override;
    void pause() override;
    void stop() override;
    void seek(double seconds, const QUuid& id) override;
    void setVolume(double volume) override;
    void selectTrack(PlaybackTrackKind kind, qint64 id) override;
    void setWebView(QQuickItem* view) override;
    bool showsWebView() const override { return m_attached; }

    // The session token written into the page; renewed at every stop.
    QUuid sessionToken() const { return m_token; }
    std::optional<QUrl> pageUrl() const { return m_page; }
    bool isReady() const { return m_ready; }
    double volume() const { return m_volume; }

    // How long a page may take to report "ready".
    static constexpr int kLoadTimeoutMs = 12000;
    static constexpr double kMinimumRate = 0.25;
    static constexpr double kMaximumRate = 20.0;

private slots:
    void navigationRequested(QWebEngineNavigationRequest* request);
    void renderProcessTerminated(int status);

private:
    friend class MediaScriptBridge;

    void attach();
    void detach();
    void serverStarted(const QUrl& page);
    void loadTimedOut();
    void receive(const QString& frameUrl, bool mainFrame, const QJsonValue& body);
    void command(const QJsonObject& command);
    void report(const PlaybackEvent& event);

    QPointer<QQuickItem> m_view;
    bool m_attached = false;
    std::unique_ptr<LocalMediaServer> m_server;
    std::optional<QUrl> m_page;
    QUuid m_token = QUuid::createUuid();
    bool m_ready = false;
    QTimer m_timeout;
    double m_volume = 1.0;
    std::optional<QUuid> m_pendingSeek;
    EventHandler m_onEvent;
    PlaybackSnapshot m_snapshot;
    bool m_muted = false;
    QQmlWebChannel* m_channel = nullptr;
    MediaScriptBridge* m_bridge = nullptr;
    QList<QMetaObject::Connection> m_viewConnections;
};

// The object the page's messages arrive at. It holds its owner weakly: the web channel keeps its
// objects alive, and must not keep the backend alive with them.
class MediaScriptBridge : public QObject {
    Q_OBJECT
public:
    explicit MediaScriptBridge(WebMediaPlayback* owner) : m_owner(owner) {}
    Q_INVOKABLE void postMessage(const QString& frameUrl, bool mainFrame, const QJsonValue& body);

private:
    QPointer<WebMediaPlayback> m_owner;
};

} // namespace quorvane
