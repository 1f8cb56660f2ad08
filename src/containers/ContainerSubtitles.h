#pragma once
// The text subtitle tracks and font attachments of an opened container, copied out of the engine
// once (on the thread that opened it) so that the player can hand them to its own renderer.
#include <QByteArray>
#include <QList>
#include <QString>

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
    QList<ContainerSubtitleEvent> events;
    quint64 cutEvents = 0; // blocks the engine skipped or cut at its limits
};

struct ContainerFont {
    QByteArray name;
    QByteArray data;
};

struct ContainerSubtitles {
    QList<ContainerSubtitleTrack> tracks;
    QList<ContainerFont> fonts;
};

// Fonts read per file at most; attachments beyond are left out.
inline constexpr qint64 kMaxContainerFontBytes = 64LL * 1024 * 1024;

// Null when the file has no text subtitle track. A font that cannot be read is left out.
std::shared_ptr<const ContainerSubtitles> readContainerSubtitles(QVMedia* media);

} // namespace quorvane
