#pragma once
// libass behind one object: a library with fontconfig and the document's embedded fonts, one
// renderer, one track. The frame for a time is composited into a premultiplied ARGB image, and
// only again when libass reports that it changed.
#include "SubtitleDocument.h"

#include <QImage>
#include <QSize>

struct ass_library;
struct ass_renderer;
struct ass_track;

namespace quorvane {

class AssRenderer {
public:
    AssRenderer();
    ~AssRenderer();
    AssRenderer(const AssRenderer&) = delete;
    AssRenderer& operator=(const AssRenderer&) = delete;

    // Replaces the track. False when libass refuses the header; the renderer then shows nothing.
    bool load(const SubtitleDocument& document);
    // Adds the document's events from index `from` on to the loaded track.
    void append(const SubtitleDocument& document, qsizetype from);
    void clear();
    bool hasTrack() const { return m_track != nullptr; }

    // Renders the time (milliseconds) for a picture of `frame` device pixels showing a video of
    // `storage` pixels (for its aspect ratio; empty means square pixels). Returns whether the
    // image changed since the last call. `image()` holds only the part of the frame that has
    // text (null when nothing shows), placed at `origin()` in the frame: a line at the bottom of
    // a 4K picture costs a strip, not 33 MB per change.
    bool render(qint64 time, QSize frame, QSize storage = {});
    const QImage& image() const { return m_image; }
    QPoint origin() const { return m_origin; }

private:
    void applyFonts(const SubtitleDocument& document);

    ass_library* m_library = nullptr;
    ass_renderer* m_renderer = nullptr;
    ass_track* m_track = nullptr;
    QImage m_image;
    QPoint m_origin;
    QSize m_frame;
    QSize m_storage;
};

} // namespace quorvane
