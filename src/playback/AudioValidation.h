#pragma once
// Proves that a file's audio decodes on this machine before the backend reports it ready: the
// player happily loads a stream it has no decoder for and then plays the picture in silence, and
// a silent movie is worse than handing the file to the next backend.
#include <QAudioDecoder>
#include <QObject>
#include <QTimer>
#include <QUrl>

namespace quorvane {

class AudioValidation : public QObject {
    Q_OBJECT
public:
    // Starts decoding `source` at once; `finished` follows exactly once unless the object is
    // deleted first (deleting it stops the decoder).
    explicit AudioValidation(const QUrl& source, QObject* parent = nullptr);
    ~AudioValidation() override;

    // How long the decoder may take to produce its first buffer before the check gives up and
    // lets the file through (the player already loaded the stream; only a definite refusal fails).
    static constexpr int kTimeoutMs = 5000;

signals:
    void finished(bool decodable);

private:
    void conclude(bool decodable);

    QAudioDecoder m_decoder;
    QTimer m_timeout;
    bool m_done = false;
};

} // namespace quorvane
