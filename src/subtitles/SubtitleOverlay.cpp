#include "SubtitleOverlay.h"

#include "SubtitleSession.h"

#include <QPainter>
#include <QQuickWindow>

#include <cmath>

namespace quorvane {
namespace {

// Well under a frame at 60 Hz, so that a line appears on the frame it starts on.
constexpr int kTickMilliseconds = 8;

} // namespace

SubtitleOverlay::SubtitleOverlay(QQuickItem* parent) : QQuickPaintedItem(parent)
{
    setAntialiasing(false);
    m_tick.setTimerType(Qt::PreciseTimer);
    m_tick.setInterval(kTickMilliseconds);
    connect(&m_tick, &QTimer::timeout, this, &SubtitleOverlay::refresh);
}

SubtitleOverlay::~SubtitleOverlay() = default;

void SubtitleOverlay::setSession(SubtitleSession* session)
{
    if (m_session == session) return;
    if (m_session) disconnect(m_session, nullptr, this, nullptr);
    m_session = session;
    if (m_session) {
        connect(m_session, &SubtitleSession::activeChanged, this, &SubtitleOverlay::reload);
        connect(m_session, &SubtitleSession::timingChanged, this, [this] {
            updateTicking();
            refresh();
        });
        connect(m_session, &QObject::destroyed, this, &SubtitleOverlay::reload);
        // Events that arrive while the file plays join the loaded track; their lines show once
        // the clock reaches them.
        connect(m_session, &SubtitleSession::documentChanged, this,
                [this](qint64 id, qsizetype firstNew) {
                    if (!m_session || id != m_session->activeID()) return;
                    if (firstNew < 0 || !m_renderer.hasTrack()) return reload();
                    m_document = m_session->activeDocument();
                    m_renderer.append(*m_document, firstNew);
                    refresh();
                });
    }
    emit sessionChanged();
    reload();
}

void SubtitleOverlay::setVideoSize(const QSizeF& size)
{
    if (m_videoSize == size) return;
    m_videoSize = size;
    emit videoSizeChanged();
    emit pictureRectChanged();
    refresh();
}

QRectF SubtitleOverlay::pictureRect() const
{
    const QSizeF bounds = size();
    if (m_videoSize.isEmpty() || bounds.isEmpty()) return QRectF(QPointF(0, 0), bounds);
    const QSizeF fitted = m_videoSize.scaled(bounds, Qt::KeepAspectRatio);
    return QRectF(
        QPointF((bounds.width() - fitted.width()) / 2, (bounds.height() - fitted.height()) / 2),
        fitted);
}

void SubtitleOverlay::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry)
{
    QQuickPaintedItem::geometryChange(newGeometry, oldGeometry);
    if (newGeometry.size() != oldGeometry.size()) {
        emit pictureRectChanged();
        refresh();
    }
}

void SubtitleOverlay::reload()
{
    m_document = m_session ? m_session->activeDocument() : nullptr;
    if (m_document) {
        m_renderer.load(*m_document);
    } else {
        m_renderer.clear();
    }
    updateTicking();
    const bool wasShowing = m_drawnRect.isValid();
    refresh();
    if (wasShowing && !showingText()) update();
}

void SubtitleOverlay::updateTicking()
{
    const bool running = m_document && m_session && m_session->rate() != 0;
    if (running && !m_tick.isActive()) m_tick.start();
    if (!running) m_tick.stop();
}

void SubtitleOverlay::refresh()
{
    const bool wasShowing = showingText();
    const QRectF picture = pictureRect();
    const qreal ratio = window() ? window()->effectiveDevicePixelRatio() : 1.0;
    const QSize frame(qRound(picture.width() * ratio), qRound(picture.height() * ratio));
    const double seconds = m_session ? m_session->currentTime() : 0;
    const qint64 time = std::isfinite(seconds) ? qint64(std::llround(seconds * 1000)) : 0;
    const QSize storage = m_videoSize.toSize();
    if (m_renderer.render(time, frame, storage) || picture != m_drawnRect) {
        m_drawnRect = picture;
        m_frame = frame;
        update();
    }
    if (wasShowing != showingText()) emit showingTextChanged();
}

void SubtitleOverlay::paint(QPainter* painter)
{
    const QImage& image = m_renderer.image();
    if (image.isNull() || m_frame.isEmpty()) return;
    // The image is in device pixels of a frame covering the picture rectangle.
    const qreal sx = m_drawnRect.width() / m_frame.width();
    const qreal sy = m_drawnRect.height() / m_frame.height();
    const QPoint origin = m_renderer.origin();
    painter->drawImage(QRectF(m_drawnRect.x() + origin.x() * sx, m_drawnRect.y() + origin.y() * sy,
                              image.width() * sx, image.height() * sy),
                       image);
}

} // namespace quorvane
