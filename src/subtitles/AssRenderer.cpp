#include "AssRenderer.h"

#include <QLoggingCategory>

#include <ass/ass.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace quorvane {
namespace {

Q_LOGGING_CATEGORY(lcAss, "quorvane.subtitles.libass", QtWarningMsg)

void logMessage(int level, const char* format, va_list args, void*)
{
    // libass levels: 0 fatal ... 7 debug; only errors are worth a line (scripts in the wild warn a
    // lot).
    if (level > 1) return;
    char text[512];
    std::vsnprintf(text, sizeof text, format, args);
    qCWarning(lcAss) << text;
}

// Source-over blending of one libass bitmap (an alpha mask in one colour) into the image, whose
// top left corner sits at `origin` in the frame.
void blend(QImage& image, QPoint origin, const ASS_Image& part)
{
    const quint32 colour = part.color;
    const quint32 opacity = 255 - (colour & 0xFF);
    const quint32 red = colour >> 24, green = (colour >> 16) & 0xFF, blue = (colour >> 8) & 0xFF;
    for (int y = 0; y < part.h; ++y) {
        const int row = part.dst_y + y - origin.y();
        if (row < 0 || row >= image.height()) continue;
        auto* line = reinterpret_cast<quint32*>(image.scanLine(row));
        const unsigned char* mask = part.bitmap + qsizetype(y) * part.stride;
        for (int x = 0; x < part.w; ++x) {
            const int column = part.dst_x + x - origin.x();
            if (column < 0 || column >= image.width()) continue;
            const quint32 alpha = mask[x] * opacity / 255;
            if (alpha == 0) continue;
            const quint32 dst = line[column];
            const quint32 keep = 255 - alpha;
            auto mix = [&](quint32 source, int shift) {
                return (source * alpha + ((dst >> shift) & 0xFF) * keep) / 255;
            };
            line[column] =
                (mix(255, 24) << 24) | (mix(red, 16) << 16) | (mix(green, 8) << 8) | mix(blue, 0);
        }
    }
}

} // namespace

AssRenderer::AssRenderer()
{
    m_library = ass_library_init();
    if (!m_library) return;
    ass_set_message_cb(m_library, logMessage, nullptr);
    // Fonts inside an ASS script's [Fonts] section are registered like attached ones.
    ass_set_extract_fonts(m_library, 1);
    m_renderer = ass_renderer_init(m_library);
    if (m_renderer) applyFonts({});
}

AssRenderer::~AssRenderer()
{
    clear();
    if (m_renderer) ass_renderer_done(m_renderer);
    if (m_library) ass_library_done(m_library);
}

void AssRenderer::applyFonts(const SubtitleDocument& document)
{
    ass_clear_fonts(m_library);
    for (const SubtitleFont& font : document.fonts) {
        QByteArray name = font.name;
        ass_add_font(m_library, name.data(), font.data.constData(), int(font.data.size()));
    }
    // fontconfig finds the system's fonts (Noto CJK for Chinese and Japanese) and falls back
    // per glyph; the embedded fonts above are matched by their family names first.
    ass_set_fonts(m_renderer, nullptr, "sans-serif", ASS_FONTPROVIDER_AUTODETECT, nullptr, 1);
}

void AssRenderer::clear()
{
    if (m_track) ass_free_track(m_track);
    m_track = nullptr;
    m_image = {};
    m_origin = {};
}

bool AssRenderer::load(const SubtitleDocument& document)
{
    clear();
    if (!m_renderer) return false;
    m_track = ass_new_track(m_library);
    if (!m_track) return false;
    QByteArray header = document.header;
    ass_process_codec_private(m_track, header.data(), int(header.size()));
    if (m_track->track_type == ASS_Track::TRACK_TYPE_UNKNOWN) {
        clear();
        return false;
    }
    for (const SubtitleEvent& event : document.events) {
        QByteArray line = event.line;
        ass_process_chunk(m_track, line.data(), int(line.size()), event.start, event.duration);
    }
    if (!document.fonts.isEmpty()) applyFonts(document);
    // A new track always draws afresh.
    m_frame = {};
    return true;
}

void AssRenderer::append(const SubtitleDocument& document, qsizetype from)
{
    if (!m_track) return;
    for (qsizetype i = std::max<qsizetype>(from, 0); i < document.events.size(); ++i) {
        const SubtitleEvent& event = document.events[i];
        QByteArray line = event.line;
        ass_process_chunk(m_track, line.data(), int(line.size()), event.start, event.duration);
    }
}

bool AssRenderer::render(qint64 time, QSize frame, QSize storage)
{
    if (!m_track || frame.isEmpty()) {
        const bool changed = !m_image.isNull();
        m_image = {};
        return changed;
    }
    bool resized = false;
    if (frame != m_frame || storage != m_storage) {
        ass_set_frame_size(m_renderer, frame.width(), frame.height());
        ass_set_storage_size(m_renderer, storage.width(), storage.height());
        m_frame = frame;
        m_storage = storage;
        resized = true;
    }
    int change = 0;
    ASS_Image* parts = ass_render_frame(m_renderer, m_track, time, &change);
    if (change == 0 && !resized) return false;
    if (!parts) {
        const bool changed = !m_image.isNull();
        m_image = {};
        return changed;
    }
    QRect area;
    for (const ASS_Image* part = parts; part; part = part->next)
        area |= QRect(part->dst_x, part->dst_y, part->w, part->h);
    area &= QRect(QPoint(0, 0), frame);
    if (area.isEmpty()) {
        const bool changed = !m_image.isNull();
        m_image = {};
        return changed;
    }
    QImage image(area.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    for (const ASS_Image* part = parts; part; part = part->next)
        blend(image, area.topLeft(), *part);
    m_image = std::move(image);
    m_origin = area.topLeft();
    return true;
}

} // namespace quorvane
