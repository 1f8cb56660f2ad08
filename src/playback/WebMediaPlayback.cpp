#include "WebMediaPlayback.h"

#include "LocalMediaServer.h"
#include "WebPlaybackPage.h"

#include <QColor>
#include <QCoreApplication>
#include <QFile>
#include <QLoggingCategory>
#include <QMetaMethod>
#include <QQmlWebChannel>
#include <QQuickItem>
#include <QWebEngineNavigationRequest>
#include <QWebEngineScript>
#include <QtWebEngineQuick/QQuickWebEngineProfile>
#include <QtWebEngineQuick/qtwebenginequickglobal.h>

#include <cmath>
#include <unistd.h>

namespace quorvane {

Q_LOGGING_CATEGORY(lcWeb, "quorvane.playback.web")

namespace {

// WebEngineView.NormalTerminationStatus: the renderer exited on its own.
constexpr int kNormalTermination = 0;

const QString kBridgeName = QStringLiteral("quorvane-media-bridge");

// Offers the message handler the page posts to, over the web channel. Messages posted before the
// channel is up wait in order. The frame's address and whether it is the top frame travel with
// each message so the backend can refuse anything that is not the page it loaded.
constexpr char kBridgeScript[] = R"JS(
(() => {
  const pending = [];
  let media = null;
  const forward = (m) => media.postMessage(m[0], m[1], m[2]);
  const handler = Object.freeze({postMessage(body) {
    const m = [String(location.href), window === window.top, body];
    if (media) forward(m); else pending.push(m);
  }});
  Object.defineProperty(window, 'webkit', {
    value: Object.freeze({messageHandlers: Object.freeze({media: handler})}),
  });
  if (typeof qt === 'undefined' || !qt.webChannelTransport) return; // not our page
  new QWebChannel(qt.webChannelTransport, (channel) => {
    media = channel.objects.media;
    pending.splice(0).forEach(forward);
  });
})();
)JS";

QWebEngineScript bridgeScript()
{
    static const QString source = [] {
        QFile client(QStringLiteral(":/qtwebchannel/qwebchannel.js"));
        if (!client.open(QIODevice::ReadOnly))
            qCWarning(lcWeb) << "the web channel's script is missing";
        return QString::fromUtf8(client.readAll()) + QString::fromUtf8(kBridgeScript);
    }();
    QWebEngineScript script;
    script.setName(kBridgeName);
    script.setSourceCode(source);
    script.setInjectionPoint(QWebEngineScript::DocumentCreation);
    script.setWorldId(QWebEngineScript::MainWorld);
    script.setRunsOnSubFrames(false);
    return script;
}

// One profile for every page: nothing is written to disk and nothing outlives the process. The
// bridge lives in the profile rather than in each view, so that every renderer process has it
// from its start: a script added to a view only races the first document of a fresh renderer.
QQuickWebEngineProfile* privateProfile()
{
    static QPointer<QQuickWebEngineProfile> profile;
    if (!profile) {
        profile = new QQuickWebEngineProfile(QCoreApplication::instance());
        profile->setOffTheRecord(true);
        profile->setHttpCacheType(QQuickWebEngineProfile::MemoryHttpCache);
        if (auto* scripts = qvariant_cast<QObject*>(profile->property("userScripts"))) {
            QMetaObject::invokeMethod(scripts, "insert", Q_ARG(QWebEngineScript, bridgeScript()));
        } else {
            qCWarning(lcWeb) << "the web profile takes no user scripts";
        }
    }
    return profile;
}

QMetaMethod methodOf(const QObject* object, const char* name)
{
    const QMetaObject* meta = object->metaObject();
    for (int i = 0; i < meta->methodCount(); ++i) {
        if (meta->method(i).name() == name) return meta->method(i);
    }
    return {};
}

} // namespace

void MediaScriptBridge::postMessage(const QString& frameUrl, bool mainFrame, const QJsonValue& body)
{
    if (m_owner) m_owner->receive(frameUrl, mainFrame, body);
}

void WebMediaPlayback::initializeWebEngine()
{
    if (::geteuid() == 0 && !qEnvironmentVariableIsSet("QTWEBENGINE_DISABLE_SANDBOX"))
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    QtWebEngineQuick::initialize();
}

WebMediaPlayback::WebMediaPlayback(QObject* parent) : PlaybackBackend(parent)
{
    m_timeout.setSingleShot(true);
    m_timeout.setTimerType(Qt::PreciseTimer); // a coarse timer may fire up to 5% early
    m_timeout.setInterval(kLoadTimeoutMs);
    connect(&m_timeout, &QTimer::timeout, this, &WebMediaPlayback::loadTimedOut);
}

WebMediaPlayback::~WebMediaPlayback()
{
    m_onEvent = nullptr;
    stop();
}

void WebMediaPlayback::setOnEvent(EventHandler handler)
{
    m_onEvent = std::move(handler);
}

void WebMediaPlayback::setWebView(QQuickItem* view)
{
    if (view == m_view) return;
    detach();
    m_view = view;
}

void WebMediaPlayback::open(const QUrl& url)
{
    stop();
    if (!url.isLocalFile()) {
        report(PlaybackEvents::Failed{kFileFormatNotRecognized});
        return;
    }
    if (!m_view) {
        qCWarning(lcWeb) << "no web view to play in";
        report(PlaybackEvents::Failed{kUnknownMediaError});
        return;
    }
    attach();

    const QUuid token = m_token;
    auto made = LocalMediaServer::create(url, webPlaybackPage(canonicalUuid(token)).toUtf8());
    if (auto* error = std::get_if<LocalMediaServerError>(&made)) {
        qCInfo(lcWeb) << "cannot serve the file, error" << int(*error);
        report(PlaybackEvents::Failed{kFileFormatNotRecognized});
        return;
    }
    m_server = std::move(std::get<std::unique_ptr<LocalMediaServer>>(made));
    QPointer<WebMediaPlayback> self(this);
    m_server->start([self, token](const LocalMediaServer::StartResult& result) {
        // Called on the server's thread; the backend is only looked at on the GUI thread.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, token, result] {
                if (!self || self->m_token != token) return;
                if (const QUrl* page = std::get_if<QUrl>(&result)) {
                    self->serverStarted(*page);
                } else {
                    qCWarning(lcWeb) << "the loopback server did not start, error"
                                     << int(std::get<LocalMediaServerError>(result));
                    self->report(PlaybackEvents::Failed{kUnknownMediaError});
                }
            },
            Qt::QueuedConnection);
    });
    m_timeout.start();
}

void WebMediaPlayback::attach()
{
    QQuickItem* view = m_view;
    QQuickWebEngineProfile* profile = privateProfile();
    if (qvariant_cast<QQuickWebEngineProfile*>(view->property("profile")) != profile)
        view->setProperty("profile", QVariant::fromValue(profile));
    if (auto* settings = qvariant_cast<QObject*>(view->property("settings"))) {
        settings->setProperty("playbackRequiresUserGesture", false);
        settings->setProperty("javascriptCanOpenWindows", false);
    }
    view->setProperty("backgroundColor", QColor(Qt::black));

    m_bridge = new MediaScriptBridge(this);
    m_channel = new QQmlWebChannel(this);
    m_channel->registerObject(QStringLiteral("media"), m_bridge);
    view->setProperty("webChannel", QVariant::fromValue(m_channel));

    m_viewConnections << connect(view, methodOf(view, "navigationRequested"), this,
                                 methodOf(this, "navigationRequested"));
    // The status is an enumeration of the view's private class, delivered as its int value; the
    // typed connect cannot name it, so the index-based one carries it.
    m_viewConnections << QMetaObject::connect(
        view, methodOf(view, "renderProcessTerminated").methodIndex(), this,
        methodOf(this, "renderProcessTerminated").methodIndex(), Qt::DirectConnection);
    m_attached = true;
}

void WebMediaPlayback::detach()
{
    if (!m_attached) return;
    m_attached = false;
    for (const QMetaObject::Connection& connection : std::as_const(m_viewConnections))
        disconnect(connection);
    m_viewConnections.clear();
    if (QQuickItem* view = m_view) {
        QMetaObject::invokeMethod(
            view, "runJavaScript",
            Q_ARG(QString, QStringLiteral(
                               "document.querySelectorAll('video,audio').forEach(m=>m.pause())")));
        QMetaObject::invokeMethod(view, "stop");
        view->setProperty("webChannel", QVariant::fromValue<QQmlWebChannel*>(nullptr));
        QMetaObject::invokeMethod(view, "loadHtml", Q_ARG(QString, QString()), Q_ARG(QUrl, QUrl()));
    }
    if (m_channel) {
        m_channel->deregisterObject(m_bridge);
        m_channel->deleteLater();
        m_channel = nullptr;
    }
    if (m_bridge) {
        m_bridge->deleteLater();
        m_bridge = nullptr;
    }
}

void WebMediaPlayback::serverStarted(const QUrl& page)
{
    m_page = page;
    if (m_view) m_view->setProperty("url", page);
}

void WebMediaPlayback::navigationRequested(QWebEngineNavigationRequest* request)
{
    if (request->isMainFrame() && m_page && request->url() == *m_page) {
        request->accept();
    } else {
        qCInfo(lcWeb) << "refused a navigation away from the playback page";
        request->reject();
    }
}

void WebMediaPlayback::renderProcessTerminated(int status)
{
    // A renderer swapped out normally when the page changes origin is no failure of ours.
    if (status == kNormalTermination) return;
    qCWarning(lcWeb) << "the web content process ended, status" << status;
    report(PlaybackEvents::Failed{kUnknownMediaError});
}

void WebMediaPlayback::loadTimedOut()
{
    if (m_ready) return;
    qCInfo(lcWeb) << "the page did not become ready in time";
    report(PlaybackEvents::Failed{kFileFormatNotRecognized});
}

void WebMediaPlayback::receive(const QString& frameUrl, bool mainFrame, const QJsonValue& body)
{
    PageMessageContext context;
    // The view's own address must agree with what the script says about its frame.
    if (m_attached && m_view && m_view->property("url").toUrl() == m_page) context.page = m_page;
    context.session = canonicalUuid(m_token);
    context.ready = m_ready;
    context.pendingSeek = m_pendingSeek;
    context.snapshot = m_snapshot;
    const PageMessageOutcome outcome =
        acceptPageMessage(context, {QUrl(frameUrl), mainFrame}, body);

    using Kind = PageMessageOutcome::Kind;
    switch (outcome.kind) {
    case Kind::Dropped:
        return;
    case Kind::Failed:
        report(PlaybackEvents::Failed{kFileFormatNotRecognized});
        return;
    default:
        break;
    }
    m_snapshot = outcome.snapshot;
    if (outcome.kind == Kind::Ready) {
        m_ready = true;
        m_timeout.stop();
        command({{QStringLiteral("op"), QStringLiteral("volume")},
                 {QStringLiteral("value"), m_volume}});
        command(
            {{QStringLiteral("op"), QStringLiteral("mute")}, {QStringLiteral("value"), m_muted}});
        report(PlaybackEvents::Ready{outcome.info});
    } else if (outcome.kind == Kind::SeekCompleted) {
        m_pendingSeek.reset();
        report(PlaybackEvents::SeekCompleted{outcome.seekID});
    } else if (outcome.kind == Kind::Ended) {
        report(PlaybackEvents::Ended{});
    }
}

void WebMediaPlayback::command(const QJsonObject& command)
{
    if (!m_ready || !m_attached || !m_view) return;
    QMetaObject::invokeMethod(m_view, "runJavaScript", Q_ARG(QString, pageCommandScript(command)));
}

void WebMediaPlayback::report(const PlaybackEvent& event)
{
    if (m_onEvent) {
        const EventHandler handler = m_onEvent; // the owner may replace it while it runs
        handler(event);
    }
}

void WebMediaPlayback::play(double rate)
{
    if (!m_ready || !std::isfinite(rate) || rate < kMinimumRate || rate > kMaximumRate) return;
    command({{QStringLiteral("op"), QStringLiteral("play")}, {QStringLiteral("value"), rate}});
}

void WebMediaPlayback::pause()
{
    command({{QStringLiteral("op"), QStringLiteral("pause")}});
}

void WebMediaPlayback::seek(double seconds, const QUuid& id)
{
    if (!m_ready || !std::isfinite(seconds) || seconds < 0) return;
    m_pendingSeek = id;
    command({{QStringLiteral("op"), QStringLiteral("seek")},
             {QStringLiteral("value"), seconds},
             {QStringLiteral("id"), canonicalUuid(id)}});
}

void WebMediaPlayback::setVolume(double volume)
{
    if (!std::isfinite(volume)) return;
    m_volume = std::clamp(volume, 0.0, 1.0);
    command(
        {{QStringLiteral("op"), QStringLiteral("volume")}, {QStringLiteral("value"), m_volume}});
}

void WebMediaPlayback::setMuted(bool muted)
{
    m_muted = muted;
    command({{QStringLiteral("op"), QStringLiteral("mute")}, {QStringLiteral("value"), muted}});
}

void WebMediaPlayback::selectTrack(PlaybackTrackKind kind, qint64 id)
{
    // The page has no subtitles; 0 is passed on and turns every audio track off there.
    if (!m_ready || kind != PlaybackTrackKind::Audio || id < 0) return;
    command(
        {{QStringLiteral("op"), QStringLiteral("audio")}, {QStringLiteral("value"), double(id)}});
}

void WebMediaPlayback::stop()
{
    m_token = QUuid::createUuid();
    m_ready = false;
    m_pendingSeek.reset();
    m_timeout.stop();
    m_snapshot = {};
    detach();
    m_server.reset();
    m_page.reset();
}

} // namespace quorvane
