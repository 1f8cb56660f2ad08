#pragma once
// One subtitle track in the form libass consumes: an ASS header (script info, styles and the
// events' Format line) and events in Matroska's ASS block layout, so embedded tracks and loaded
// files reach the renderer the same way.
#include <QByteArray>
#include <QList>
#include <QString>

namespace quorvane {

// Limits on what a subtitle file or track may make us hold in memory. A file above the byte
// limit is refused; events past the count limit are cut off; an event longer than the text limit
// is dropped.
inline constexpr qint64 kMaxSubtitleFileBytes = 50LL * 1024 * 1024;
inline constexpr qsizetype kMaxSubtitleEvents = 200'000;
inline constexpr qsizetype kMaxSubtitleEventBytes = 64 * 1024;

struct SubtitleEvent {
    qint64 start = 0;    // milliseconds
    qint64 duration = 0; // milliseconds
    // "ReadOrder,Layer,Style,Name,MarginL,MarginR,MarginV,Effect,Text", UTF-8.
    QByteArray line;
};

struct SubtitleFont {
    QByteArray name;
    QByteArray data;
};

struct SubtitleDocument {
    QByteArray header; // UTF-8, ends with the [Events] Format line
    QList<SubtitleEvent> events;
    QList<SubtitleFont> fonts;
};

// What reading a file produced: a document, or an empty header and the reason it was dropped.
// `notes` lists what was cut or skipped on the way. Reasons and notes are short tokens
// ("no-cues", "skipped-cues:3", "encoding:GB18030") fit for the diagnostic log.
struct SubtitleParse {
    SubtitleDocument document;
    QString failure; // empty on success
    QStringList notes;
    bool ok() const { return failure.isEmpty(); }
};

} // namespace quorvane
