#include "SubtitleText.h"

#include <QColor>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStringConverter>
#include <QStringDecoder>

#include <algorithm>

namespace quorvane::subtitles {
namespace {

// A decoder that reports invalid input instead of replacing it silently.
std::optional<QString> decodeStrictly(QStringDecoder decoder, QByteArrayView bytes)
{
    if (!decoder.isValid()) return std::nullopt;
    QString text = decoder.decode(bytes);
    if (decoder.hasError()) return std::nullopt;
    return text;
}

// Control characters other than tab and line breaks do not occur in subtitle text; a few stray
// ones are tolerated, many mean binary data.
bool looksLikeText(const QString& text)
{
    qsizetype controls = 0;
    for (QChar c : text) {
        if (c.unicode() < 0x20 && c != u'\t' && c != u'\n' && c != u'\r') ++controls;
    }
    return controls <= text.size() / 1000 + 2;
}

QString assColour(const QString& value)
{
    QColor colour(value.trimmed());
    if (!colour.isValid() && value.size() == 6) colour = QColor(u'#' + value);
    if (!colour.isValid()) return {};
    // ASS colours are &HBBGGRR&.
    return QStringLiteral("&H%1%2%3&")
        .arg(colour.blue(), 2, 16, QLatin1Char('0'))
        .arg(colour.green(), 2, 16, QLatin1Char('0'))
        .arg(colour.red(), 2, 16, QLatin1Char('0'))
        .toUpper();
}

QString tagToAss(QStringView tag)
{
    const bool closing = tag.startsWith(u'/');
    const QStringView body = closing ? tag.mid(1) : tag;
    qsizetype nameEnd = 0;
    while (nameEnd < body.size() && body[nameEnd].isLetter())
        ++nameEnd;
    const QString name = body.left(nameEnd).toString().toLower();
    if (name == u"i" || name == u"b" || name == u"u" || name == u"s")
        return QStringLiteral("{\\%1%2}").arg(name, closing ? u"0" : u"1");
    if (name == u"font") {
        if (closing) return QStringLiteral("{\\c}");
        static const QRegularExpression color(QStringLiteral(R"(color\s*=\s*["']?([#A-Za-z0-9]+))"),
                                              QRegularExpression::CaseInsensitiveOption);
        const auto match = color.match(body.toString());
        if (!match.hasMatch()) return {};
        const QString ass = assColour(match.captured(1));
        return ass.isEmpty() ? QString() : QStringLiteral("{\\c%1}").arg(ass);
    }
    return {};
}

QString entity(QStringView name)
{
    if (name == u"amp") return QStringLiteral("&");
    if (name == u"lt") return QStringLiteral("<");
    if (name == u"gt") return QStringLiteral(">");
    if (name == u"nbsp") return QStringLiteral("\\h");
    if (name == u"quot") return QStringLiteral("\"");
    if (name == u"apos") return QStringLiteral("'");
    return {};
}

QByteArray eventLine(qsizetype readOrder, const QString& layer, const QStringList& fields)
{
    return (QString::number(readOrder) + u',' + layer + u',' + fields.join(u',')).toUtf8();
}

struct Cue {
    qint64 start = 0;
    qint64 end = 0;
    QStringList lines;
};

// SubRip and WebVTT share the cue shape: a timing line "start --> end [settings]", then text
// lines up to a blank line. Numbers, NOTE, STYLE and REGION blocks have no timing line and are
// skipped as text outside any cue.
SubtitleParse parseCues(const QString& text)
{
    SubtitleParse result;
    result.document.header = defaultHeader();
    const QStringList lines = text.split(QRegularExpression(QStringLiteral("\r\n|\r|\n")));
    std::optional<Cue> cue;
    qsizetype skipped = 0;
    auto finish = [&] {
        if (!cue) return;
        const QString body = cue->lines.join(u'\n');
        if (result.document.events.size() >= kMaxSubtitleEvents) {
            ++skipped;
        } else if (body.toUtf8().size() > kMaxSubtitleEventBytes || cue->end <= cue->start) {
            ++skipped;
        } else {
            const QStringList fields{
                QStringLiteral("Default"), {}, QStringLiteral("0"), QStringLiteral("0"),
                QStringLiteral("0"),       {}, markupToAss(body)};
            result.document.events.append(
                {cue->start, cue->end - cue->start,
                 eventLine(result.document.events.size(), QStringLiteral("0"), fields)});
        }
        cue.reset();
    };
    for (const QString& line : lines) {
        const qsizetype arrow = line.indexOf(u"-->");
        if (arrow > 0) {
            const auto start = parseCueTime(QStringView(line).left(arrow).trimmed());
            QStringView rest = QStringView(line).mid(arrow + 3).trimmed();
            const qsizetype space = rest.indexOf(u' ');
            const auto end = parseCueTime(space < 0 ? rest : rest.left(space));
            if (start && end) {
                finish();
                cue = Cue{*start, *end, {}};
                continue;
            }
        }
        if (line.trimmed().isEmpty()) {
            finish();
        } else if (cue) {
            cue->lines.append(line);
        }
    }
    finish();
    if (skipped > 0) result.notes.append(QStringLiteral("skipped-cues:%1").arg(skipped));
    if (result.document.events.isEmpty()) result.failure = QStringLiteral("no-cues");
    return result;
}

// The canonical event layout every document uses: ReadOrder and Layer, then these fields.
const QStringList& eventFields()
{
    static const QStringList fields{QStringLiteral("style"),   QStringLiteral("name"),
                                    QStringLiteral("marginl"), QStringLiteral("marginr"),
                                    QStringLiteral("marginv"), QStringLiteral("effect"),
                                    QStringLiteral("text")};
    return fields;
}

} // namespace

std::optional<QString> decodeText(const QByteArray& bytes, QString* encoding)
{
    auto accept = [&](const char* name, const QString& text) -> std::optional<QString> {
        if (!looksLikeText(text)) return std::nullopt;
        if (encoding) *encoding = QString::fromLatin1(name);
        return text;
    };
    // A byte order mark settles it.
    if (auto bom = QStringConverter::encodingForData(bytes)) {
        if (*bom != QStringConverter::Utf8 || bytes.startsWith("\xEF\xBB\xBF")) {
            QStringDecoder decoder(*bom, QStringConverter::Flag::Stateless);
            if (auto text = decodeStrictly(std::move(decoder), bytes))
                return accept(QStringConverter::nameForEncoding(*bom), *text);
            return std::nullopt;
        }
    }
    if (auto text = decodeStrictly(QStringDecoder(QStringConverter::Utf8), bytes))
        return accept("UTF-8", *text);
    // Legacy files: GB18030 rejects most Latin text (its trail bytes exclude spaces and
    // punctuation), so it goes first; Windows-1252 then takes any Western file. Both come from
    // ICU; without it the fallback is Latin-1.
    for (const char* name : {"GB18030", "windows-1252"}) {
        if (auto text = decodeStrictly(QStringDecoder(name), bytes)) return accept(name, *text);
    }
    return accept("ISO-8859-1", QString::fromLatin1(bytes));
}

std::optional<qint64> parseCueTime(QStringView text)
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(^(?:(\d{1,3}):)?(\d{1,2}):(\d{1,2})(?:[,.](\d{1,3}))?$)"));
    const auto match = pattern.match(text.toString());
    if (!match.hasMatch()) return std::nullopt;
    const qint64 hours = match.capturedView(1).toLongLong();
    const qint64 minutes = match.capturedView(2).toLongLong();
    const qint64 seconds = match.capturedView(3).toLongLong();
    QString fraction = match.captured(4);
    while (fraction.size() < 3)
        fraction.append(u'0');
    if (minutes > 59 || seconds > 59) return std::nullopt;
    return ((hours * 60 + minutes) * 60 + seconds) * 1000 + fraction.toLongLong();
}

QString markupToAss(const QString& text)
{
    QString out;
    out.reserve(text.size() + 16);
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == u'<') {
            const qsizetype close = text.indexOf(u'>', i + 1);
            const qsizetype nextOpen = text.indexOf(u'<', i + 1);
            if (close > i && (nextOpen < 0 || nextOpen > close)) {
                out += tagToAss(QStringView(text).mid(i + 1, close - i - 1).trimmed());
                i = close;
                continue;
            }
        } else if (c == u'&') {
            const qsizetype semi = text.indexOf(u';', i + 1);
            if (semi > i && semi - i <= 6) {
                const QString replaced = entity(QStringView(text).mid(i + 1, semi - i - 1));
                if (!replaced.isEmpty()) {
                    out += replaced;
                    i = semi;
                    continue;
                }
            }
        } else if (c == u'\n') {
            out += QStringLiteral("\\N");
            continue;
        }
        out += c;
    }
    return out;
}

QByteArray defaultHeader()
{
    return QByteArrayLiteral(
        "[Script Info]\n"
        "ScriptType: v4.00+\n"
        "PlayResX: 384\n"
        "PlayResY: 288\n"
        "ScaledBorderAndShadow: yes\n"
        "WrapStyle: 0\n"
        "\n"
        "[V4+ Styles]\n"
        "Format: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, "
        "BackColour, Bold, Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, "
        "BorderStyle, Outline, Shadow, Alignment, MarginL, MarginR, MarginV, Encoding\n"
        "Style: Default,sans-serif,18,&H00FFFFFF,&H000000FF,&H00000000,&H80000000,0,0,0,0,100,"
        "100,0,0,1,1.2,0.6,2,16,16,14,1\n"
        "\n"
        "[Events]\n"
        "Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n");
}

SubtitleParse parseSubRip(const QString& text)
{
    return parseCues(text);
}

SubtitleParse parseWebVtt(const QString& text)
{
    if (!text.startsWith(QStringLiteral("WEBVTT"))) {
        SubtitleParse result;
        result.failure = QStringLiteral("no-webvtt-signature");
        return result;
    }
    return parseCues(text);
}

SubtitleParse parseAss(const QString& text)
{
    SubtitleParse result;
    const QStringList lines = text.split(QRegularExpression(QStringLiteral("\r\n|\r|\n")));
    QString header;
    QString section;
    QStringList format; // the [Events] Format, lower-case field names
    bool sawScriptInfo = false;
    qsizetype skipped = 0;
    for (const QString& raw : lines) {
        const QString line = raw.trimmed();
        if (line.startsWith(u'[') && line.endsWith(u']')) {
            section = line.toLower();
            if (section == u"[script info]") sawScriptInfo = true;
            if (section != u"[events]") header += line + u'\n';
            continue;
        }
        if (section != u"[events]") {
            // Styles and script info go to libass as they are; embedded [Fonts] too.
            if (!section.isEmpty()) header += raw + u'\n';
            continue;
        }
        if (line.startsWith(QStringLiteral("Format:"), Qt::CaseInsensitive)) {
            format.clear();
            for (const QString& field : line.mid(7).split(u','))
                format.append(field.trimmed().toLower());
            continue;
        }
        if (!line.startsWith(QStringLiteral("Dialogue:"), Qt::CaseInsensitive)) continue;
        if (format.isEmpty() || !format.contains(u"start") || !format.contains(u"end") ||
            format.last() != u"text") {
            ++skipped;
            continue;
        }
        // The text is the last field and may itself hold commas.
        const QString body = line.mid(9).trimmed();
        QStringList values;
        qsizetype from = 0;
        for (qsizetype n = 0; n + 1 < format.size(); ++n) {
            const qsizetype comma = body.indexOf(u',', from);
            if (comma < 0) break;
            values.append(body.mid(from, comma - from).trimmed());
            from = comma + 1;
        }
        if (values.size() + 1 != format.size()) {
            ++skipped;
            continue;
        }
        values.append(body.mid(from));
        auto value = [&](const QString& name) {
            const qsizetype at = format.indexOf(name);
            return at < 0 ? QString() : values[at];
        };
        const auto start = parseCueTime(value(QStringLiteral("start")));
        const auto end = parseCueTime(value(QStringLiteral("end")));
        if (!start || !end || *end <= *start ||
            values.last().toUtf8().size() > kMaxSubtitleEventBytes ||
            result.document.events.size() >= kMaxSubtitleEvents) {
            ++skipped;
            continue;
        }
        // SSA's "Marked=0" takes the layer's place.
        QString layer = value(QStringLiteral("layer"));
        bool numeric = false;
        layer.toInt(&numeric);
        if (!numeric) layer = QStringLiteral("0");
        QStringList fields;
        for (const QString& name : eventFields())
            fields.append(value(name));
        result.document.events.append(
            {*start, *end - *start, eventLine(result.document.events.size(), layer, fields)});
    }
    if (!sawScriptInfo) {
        result.failure = QStringLiteral("no-script-info");
        result.document = {};
        return result;
    }
    header += QStringLiteral("\n[Events]\nFormat: Layer, Start, End, Style, Name, MarginL, "
                             "MarginR, MarginV, Effect, Text\n");
    result.document.header = header.toUtf8();
    if (skipped > 0) result.notes.append(QStringLiteral("skipped-events:%1").arg(skipped));
    return result;
}

bool isSubtitleSuffix(const QString& suffix)
{
    static const QStringList suffixes{QStringLiteral("srt"), QStringLiteral("vtt"),
                                      QStringLiteral("ass"), QStringLiteral("ssa")};
    return suffixes.contains(suffix.toLower());
}

SubtitleParse parseFile(const QByteArray& bytes, const QString& suffix)
{
    QString encoding;
    const auto text = decodeText(bytes, &encoding);
    if (!text) {
        SubtitleParse result;
        result.failure = QStringLiteral("unknown-encoding");
        return result;
    }
    const QString kind = suffix.toLower();
    const QString& body = *text; // the decoders drop a byte order mark
    SubtitleParse result;
    if (kind == u"srt") {
        result = parseSubRip(body);
    } else if (kind == u"vtt") {
        result = parseWebVtt(body);
    } else if (kind == u"ass" || kind == u"ssa") {
        result = parseAss(body);
    } else {
        result.failure = QStringLiteral("not-subtitles");
    }
    if (encoding != u"UTF-8") result.notes.append(QStringLiteral("encoding:%1").arg(encoding));
    return result;
}

SubtitleParse embeddedTrack(const QByteArray& codecId, const QByteArray& codecPrivate,
                            const QList<SubtitleEvent>& blocks)
{
    SubtitleParse result;
    const bool ass = codecId == "S_TEXT/ASS" || codecId == "S_TEXT/SSA";
    if (ass && !codecPrivate.contains("[Script Info]")) {
        result.failure = QStringLiteral("no-script-info");
        return result;
    }
    result.document.header = ass ? codecPrivate : defaultHeader();
    qsizetype skipped = 0;
    for (const SubtitleEvent& block : blocks) {
        if (block.line.size() > kMaxSubtitleEventBytes || block.duration < 0) {
            ++skipped;
            continue;
        }
        if (ass) {
            result.document.events.append(block);
            continue;
        }
        const QStringList fields{QStringLiteral("Default"),
                                 {},
                                 QStringLiteral("0"),
                                 QStringLiteral("0"),
                                 QStringLiteral("0"),
                                 {},
                                 markupToAss(QString::fromUtf8(block.line).trimmed())};
        result.document.events.append(
            {block.start, block.duration,
             eventLine(result.document.events.size(), QStringLiteral("0"), fields)});
    }
    if (skipped > 0) result.notes.append(QStringLiteral("skipped-events:%1").arg(skipped));
    return result;
}

SubtitleParse readFile(const QString& path)
{
    SubtitleParse result;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        result.failure = QStringLiteral("unreadable");
        return result;
    }
    if (file.size() > kMaxSubtitleFileBytes) {
        result.failure = QStringLiteral("too-large");
        return result;
    }
    return parseFile(file.readAll(), QFileInfo(path).suffix());
}

} // namespace quorvane::subtitles
