#include "NativeContainerSource.h"

#include "ContainerAsset.h"
#include "ContainerMedia.h"
#include "TransportStreams.h"

#include <QFuture>
#include <QLoggingCategory>
#include <QPointer>

Q_LOGGING_CATEGORY(lcNativeContainer, "quorvane.playback.container")

namespace quorvane {

namespace {
// Unexpected exceptions count as an input/output failure, like the engine's own catch-all.
constexpr qint64 kInputOutput = ContainerError::InputOutput;
} // namespace

struct NativeContainerSource::State {
    std::shared_ptr<ContainerMedia> media;
    std::unique_ptr<ContainerAsset> asset;
};

NativeContainerSource::NativeContainerSource(const QUrl& url)
    : m_url(url), m_cancel(std::make_shared<std::atomic_bool>(false)),
      m_state(std::make_shared<State>())
{
}

NativeContainerSource::~NativeContainerSource()
{
    // Cancels an open in flight; for an opened file, fails every later read of the engine too.
    m_cancel->store(true);
    if (m_state->asset) m_state->asset->invalidate();
}

void NativeContainerSource::open(QObject* context, std::function<void()> done)
{
    QPointer<QObject> guard(context);
    // The continuation holds the state weakly: destroying this object drops the result.
    std::weak_ptr<State> state = m_state;
    ContainerMedia::openAsync(m_url, m_cancel)
        .then(context, [this, state, guard, done](QFuture<std::shared_ptr<ContainerMedia>> future) {
            if (!guard || state.expired()) return;
            try {
                auto media = future.result();
                m_state->media = media;
                m_state->asset = std::make_unique<ContainerAsset>(media);
            } catch (const ContainerError& error) {
                m_error = error.code();
            } catch (const ContainerCancelled&) {
                return; // only ever cancelled by our own destruction
            } catch (const std::exception& error) {
                qCWarning(lcNativeContainer) << "opening failed:" << error.what();
                m_error = kInputOutput;
            }
            done();
        });
}

QIODevice* NativeContainerSource::device() const
{
    return m_state->asset.get();
}

QUrl NativeContainerSource::assetUrl() const
{
    return m_state->asset ? m_state->asset->url() : QUrl();
}

QString NativeContainerSource::format() const
{
    return m_state->media ? m_state->media->format() : QString();
}

std::shared_ptr<const ContainerSubtitles> NativeContainerSource::subtitles() const
{
    return m_state->media ? m_state->media->subtitles() : nullptr;
}

quint64 NativeContainerSource::sampleCount() const
{
    return m_state->media ? m_state->media->sampleCount() : 0;
}

quint32 NativeContainerSource::videoTracks() const
{
    return m_state->media ? m_state->media->videoTracks() : 0;
}

quint32 NativeContainerSource::audioTracks() const
{
    return m_state->media ? m_state->media->audioTracks() : 0;
}

QList<ContainerMedia::Track> NativeContainerSource::tracks() const
{
    return m_state->media ? m_state->media->tracks() : QList<ContainerMedia::Track>{};
}

void NativeContainerSource::probeTransportStream(
    const QUrl& url, QObject* context, std::function<void(std::optional<Presence>, qint64)> done)
{
    QPointer<QObject> guard(context);
    TransportStreams::inspectAsync(url, std::make_shared<std::atomic_bool>(false))
        .then(context, [guard, done](QFuture<TransportStreams> future) {
            if (!guard) return;
            try {
                const TransportStreams streams = future.result();
                done(Presence{streams.hasAudio, streams.hasVideo}, 0);
            } catch (const ContainerError& error) {
                done(std::nullopt, error.code());
            } catch (const std::exception&) {
                done(std::nullopt, kInputOutput);
            }
        });
}

} // namespace quorvane
