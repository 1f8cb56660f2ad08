#pragma once
// Subtitle files into subtitle documents: the encoding guessed, SubRip and WebVTT cues converted
// to ASS events with their basic markup, ASS and SSA scripts normalised to one event layout.
#include "SubtitleDocument.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace quorvane::subtitles {

// UTF-8, UTF-16 or UTF-32 with a byte order mark, UTF-8 without one, then the legacy encodings
// subtitle files are commonly found in (GB18030, Windows-1252). Nothing for data that is not text.
std::optional<QString> decodeText(const QByteArray& bytes, QString* encoding = nullptr);

// SubRip/WebVTT inline markup (<i>, <b>, <u>, <font color>, entities, line breaks) as ASS text.
// Unknown tags are dropped; a '<' without its '>' is kept as text.
QString markupToAss(const QString& text);

// "00:01:02,345", "01:02.345" (hours optional) in milliseconds.
std::optional<qint64> parseCueTime(QStringView text);

// The header SubRip and WebVTT events are shown with: one bottom-centred, outlined style.
QByteArray defaultHeader();

SubtitleParse parseSubRip(const QString& text);
SubtitleParse parseWebVtt(const QString& text);
SubtitleParse parseAss(const QString& text);

// By suffix ("srt", "vtt", "ass", "ssa", case-insensitive); the whole file's bytes.
SubtitleParse parseFile(const QByteArray& bytes, const QString& suffix);
// Reads the file first, refusing one above kMaxSubtitleFileBytes.
SubtitleParse readFile(const QString& path);

bool isSubtitleSuffix(const QString& suffix);

// An embedded track from its codec ID, codec private data and blocks (in `line`, as stored):
// ASS and SSA keep their header and event lines; SubRip and WebVTT text becomes events of the
// default header. A track whose header libass could not use is refused.
SubtitleParse embeddedTrack(const QByteArray& codecId, const QByteArray& codecPrivate,
                            const QList<SubtitleEvent>& blocks);

} // namespace quorvane::subtitles
