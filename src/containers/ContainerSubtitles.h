#pragma once
// The text subtitle tracks and font attachments of an opened container, for the player to hand
// to its own renderer. The tracks and the events known at open are copied out on the thread that
// opened the file. A large file (the engine's fragmented layout) knows few events at open: the
// rest arrive while it plays, once a track is asked for (want), and are fetched with eventsFrom.
// Fonts are read only when asked for. The object keeps the engine handle open while it lives.
#include <QByteArray>
#include <QList>
#include <QString>

#include <atomic>
#include <memory>

struct QVMedia;

namespace quorvane {

struct ContainerSubtitleEvent {
    qint64 start = 0;    // milliseconds
    qint64 duration = 0; // milliseconds
    QByteArray text;     // the block: UTF-8 text, or an ASS event line
};

struct ContainerSubtitleTrack {
    QByteArray codecId; // "S_TEXT/UTF8", "S_TEXT/ASS", "S_TEXT/SSA", "S_TEXT/WEBVTT"
    QByteArray codecPrivate;
    QString language;
    QString name;
    bool isDefault = false;
    bool forced = false;
    QList<ContainerSubtitleEvent> events; // those known at open
    quint64 cutEvents = 0;                // blocks the engine skipped or cut at its limits
    bool complete = true;                 // every event is in `events`
};

struct ContainerFont {
    QByteArray name;
    QByteArray data;
};

// Fonts read per file at most; attachments beyond are left out.
inline constexpr qint64 kMaxContainerFontBytes = 64LL * 1024 * 1024;

struct ContainerSubtitles {
    // `engine` shares the handle (and whatever its deleter keeps alive for it); without one there
    // is nothing beyond `tracks`.
    explicit ContainerSubtitles(std::shared_ptr<QVMedia> engine = {}) : m_engine(std::move(engine))
    {
    }

    QList<ContainerSubtitleTrack> tracks;

    // The members below may be called from any thread.

    // Asks for every event of the track, those from `fromMs` on first. Cheap; call it again
    // after a seek.
    void want(qsizetype track, qint64 fromMs) const;
    // The events of the track after the first `known` ones, in the order found (not by time).
    // `complete` tells whether more may still come.
    QList<ContainerSubtitleEvent> eventsFrom(qsizetype track, qsizetype known,
                                             bool* complete = nullptr) const;
    // Bytes of the font attachments that readFonts would read.
    qint64 fontBytes() const;
    // Reads the font attachments now, up to kMaxContainerFontBytes. A font that cannot be read
    // is left out.
    QList<ContainerFont> readFonts() const;

private:
    std::shared_ptr<QVMedia> m_engine;
};

// Null when the file has no text subtitle track.
std::shared_ptr<const ContainerSubtitles> readContainerSubtitles(std::shared_ptr<QVMedia> engine);

// The text tracks of a file the platform plays itself, with every event: the timed text (tx3g,
// wvtt) of an MP4, M4V or QuickTime file, or the text tracks and fonts of a Matroska/WebM file
// whatever its other tracks (up to the damage of a cut one). Read on the calling thread: the
// movie box and the text samples, or the header and the cued text blocks (else a walk of the
// clusters). Null when the file has none, cannot be read, or `cancel` is set meanwhile. The
// handle stays open with the result, for the fonts.
std::shared_ptr<const ContainerSubtitles>
readTextSubtitles(const QString& path, std::shared_ptr<std::atomic_bool> cancel = {});

} // namespace quorvane
