#include "PlaybackRouter.h"

#include "DiagnosticLog.h"
#include "StandardSlots.h"

#include <QFileInfo>
#include <QLoggingCategory>

#include <cmath>

namespace quorvane {

Q_LOGGING_CATEGORY(lcRouter, "quorvane.playback.router")

PlaybackRouter::PlaybackRouter(std::optional<std::vector<PlaybackSlot>> slotList, QObject* parent)
    : PlaybackBackend(parent), m_videoView(std::make_unique<QQuickItem>()),
      m_slots(slotList ? std::move(*slotList) : standardSlots())
{
    m_videoView->setObjectName(QStringLiteral("playbackRouterVideoView"));
    m_videoView->setClip(true);
}

PlaybackRouter::~PlaybackRouter()
{
    m_onEvent = nullptr;
    stop();
}

void PlaybackRouter::setOnEvent(EventHandler handler)
{
    m_onEvent = std::move(handler);
}

void PlaybackRouter::setMuted(bool muted)
{
    m_muted = muted;
    if (m_active) m_active->setMuted(muted);
}

PlaybackSnapshot PlaybackRouter::snapshot() const
{
    return m_active ? m_active->snapshot() : PlaybackSnapshot{};
}

void PlaybackRouter::open(const QUrl& url)
{
    stop();
    if (!url.isLocalFile()) {
        emitEvent(PlaybackEvents::Failed{kFileFormatNotRecognized});
        return;
    }
    m_source = url;
    m_candidates.clear();
    for (const PlaybackSlot& slot : m_slots) {
        if (slot.accepts && slot.make && slot.accepts(url)) m_candidates.push_back(slot);
    }
    advance(kFileFormatNotRecognized);
}

std::optional<QString> PlaybackRouter::firstSlotFor(const QUrl& url) const
{
    if (!url.isLocalFile()) return std::nullopt;
    for (const PlaybackSlot& slot : m_slots) {
        if (slot.accepts && slot.make && slot.accepts(url)) return slot.id;
    }
    return std::nullopt;
}

void PlaybackRouter::advance(qint64 lastError)
{
    abandonActive();
    clearVideoView();

    if (!m_source || m_candidates.empty()) {
        emitEvent(PlaybackEvents::Failed{lastError});
        return;
    }

    PlaybackSlot slot = m_candidates.front();
    m_candidates.erase(m_candidates.begin());
    std::unique_ptr<PlaybackBackend> made = slot.make();
    m_generation = QUuid::createUuid();
    if (!made) {
        // A slot that cannot build its backend counts as a failure of that backend.
        advance(lastError);
        return;
    }
    m_active = std::move(made);
    m_activeSlotID = slot.id;

    m_active->setMuted(m_muted);
    m_active->setVolume(m_volume);
    m_active->setVideoSink(m_videoSink);
    m_active->setWebView(m_webView);
    embed(m_active.get());

    const QUuid generation = m_generation;
    QPointer<PlaybackRouter> router(this);
    m_active->setOnEvent([router, generation](const PlaybackEvent& event) {
        if (router) router->handle(generation, event);
    });
    m_active->open(*m_source);
}

void PlaybackRouter::handle(const QUuid& generation, const PlaybackEvent& event)
{
    if (generation != m_generation) return;
    if (const auto* failed = std::get_if<PlaybackEvents::Failed>(&event)) {
        if (!m_ready && !m_candidates.empty()) {
            qCInfo(lcRouter) << "slot" << m_activeSlotID.value_or(QString()) << "failed with"
                             << failed->code << "- trying" << m_candidates.front().id;
            advance(failed->code);
            return;
        }
    }
    if (std::holds_alternative<PlaybackEvents::Ready>(event)) {
        m_ready = true;
        m_candidates.clear();
        // Which slot played the file, so that support can tell a remuxed file from one that
        // only a fallback could play.
        SupportDiagnostics::log().record(
            QStringLiteral("media.ready"),
            {{QStringLiteral("ext"),
              QFileInfo(m_source ? m_source->path() : QString()).suffix().toLower()},
             {QStringLiteral("slot"), m_activeSlotID.value_or(QString())}});
    }
    emitEvent(event);
}

void PlaybackRouter::stop()
{
    m_generation = QUuid::createUuid();
    m_ready = false;
    m_source.reset();
    m_candidates.clear();
    abandonActive();
    m_activeSlotID.reset();
    clearVideoView();
}

void PlaybackRouter::abandonActive()
{
    if (!m_active) return;
    m_active->setOnEvent(nullptr);
    m_active->stop();
    if (m_retired.empty())
        QMetaObject::invokeMethod(this, &PlaybackRouter::releaseRetired, Qt::QueuedConnection);
    m_retired.push_back(std::move(m_active));
}

void PlaybackRouter::releaseRetired()
{
    // Moved out first: a destructor may call back into the router.
    auto retired = std::move(m_retired);
    m_retired.clear();
    retired.clear();
}

void PlaybackRouter::embed(PlaybackBackend* backend)
{
    auto* output = dynamic_cast<VideoOutput*>(backend);
    QQuickItem* item = output ? output->videoView() : nullptr;
    if (!item) return;
    QQuickItem* container = m_videoView.get();
    item->setParentItem(container);
    item->setPosition({0, 0});
    item->setSize(container->size());
    connect(container, &QQuickItem::widthChanged, item,
            [container, item] { item->setWidth(container->width()); });
    connect(container, &QQuickItem::heightChanged, item,
            [container, item] { item->setHeight(container->height()); });
}

void PlaybackRouter::clearVideoView()
{
    const QList<QQuickItem*> children = m_videoView->childItems();
    for (QQuickItem* child : children) {
        disconnect(m_videoView.get(), nullptr, child, nullptr);
        child->setParentItem(nullptr);
    }
}

void PlaybackRouter::emitEvent(const PlaybackEvent& event)
{
    if (m_onEvent) m_onEvent(event);
}

void PlaybackRouter::play(double rate)
{
    if (m_active) m_active->play(rate);
}

void PlaybackRouter::pause()
{
    if (m_active) m_active->pause();
}

void PlaybackRouter::seek(double seconds, const QUuid& id)
{
    if (m_active) m_active->seek(seconds, id);
}

void PlaybackRouter::setVolume(double volume)
{
    if (!std::isfinite(volume)) return;
    m_volume = std::clamp(volume, 0.0, 1.0);
    if (m_active) m_active->setVolume(m_volume);
}

void PlaybackRouter::setVideoSink(QVideoSink* sink)
{
    m_videoSink = sink;
    if (m_active) m_active->setVideoSink(sink);
}

void PlaybackRouter::setWebView(QQuickItem* view)
{
    m_webView = view;
    if (m_active) m_active->setWebView(view);
}

void PlaybackRouter::selectTrack(PlaybackTrackKind kind, qint64 id)
{
    if (m_active) m_active->selectTrack(kind, id);
}

} // namespace quorvane
