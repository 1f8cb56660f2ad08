#include "AudioValidation.h"

#include <QAudioBuffer>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcAudioValidation, "quorvane.playback.audio")

namespace quorvane {

AudioValidation::AudioValidation(const QUrl& source, QObject* parent) : QObject(parent)
{
    connect(&m_decoder, &QAudioDecoder::bufferReady, this, [this] {
        const QAudioBuffer buffer = m_decoder.read();
        if (buffer.isValid() && buffer.frameCount() > 0 && buffer.byteCount() > 0) conclude(true);
    });
    connect(&m_decoder, qOverload<QAudioDecoder::Error>(&QAudioDecoder::error), this,
            [this](QAudioDecoder::Error error) {
                qCInfo(lcAudioValidation) << "audio does not decode:" << error;
                conclude(false);
            });
    // The decoder ran out of data without a single non-empty buffer.
    connect(&m_decoder, &QAudioDecoder::finished, this, [this] { conclude(false); });

    m_timeout.setSingleShot(true);
    connect(&m_timeout, &QTimer::timeout, this, [this] {
        qCInfo(lcAudioValidation) << "no decoded audio in time; letting the file through";
        conclude(true);
    });
    m_timeout.start(kTimeoutMs);

    m_decoder.setSource(source);
    m_decoder.start();
}

AudioValidation::~AudioValidation()
{
    m_done = true;
    m_decoder.stop();
}

void AudioValidation::conclude(bool decodable)
{
    if (m_done) return;
    m_done = true;
    m_timeout.stop();
    // Stopping from inside the decoder's own signal is not safe in every backend.
    QMetaObject::invokeMethod(&m_decoder, &QAudioDecoder::stop, Qt::QueuedConnection);
    emit finished(decodable);
}

} // namespace quorvane
