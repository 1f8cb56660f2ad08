#pragma once
// The subtitle layer over the video picture: draws the session's shown track with libass at the
// session's clock, fitted to the picture rectangle (the video size fitted and centred within
// the item's bounds, as the video output letterboxes it). Give it the same geometry as the
// video output.
#include "AssRenderer.h"
#include "SubtitleSession.h"

#include <QPointer>
#include <QQuickPaintedItem>
#include <QSizeF>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

#include <memory>

namespace quorvane {

class SubtitleOverlay : public QQuickPaintedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(quorvane::SubtitleSession* session READ session WRITE setSession NOTIFY
                   sessionChanged FINAL)
    // The video's display size; empty fills the whole item.
    Q_PROPERTY(QSizeF videoSize READ videoSize WRITE setVideoSize NOTIFY videoSizeChanged FINAL)
    // Where the picture sits inside the item, in item coordinates.
    Q_PROPERTY(QRectF pictureRect READ pictureRect NOTIFY pictureRectChanged FINAL)
    // Whether a line is on screen now.
    Q_PROPERTY(bool showingText READ showingText NOTIFY showingTextChanged FINAL)

public:
    explicit SubtitleOverlay(QQuickItem* parent = nullptr);
    ~SubtitleOverlay() override;

    SubtitleSession* session() const { return m_session; }
    void setSession(SubtitleSession* session);
    QSizeF videoSize() const { return m_videoSize; }
    void setVideoSize(const QSizeF& size);
    QRectF pictureRect() const;
    bool showingText() const { return !m_renderer.image().isNull(); }

    void paint(QPainter* painter) override;
    // Renders the session's current time now; the timer calls it while the clock runs.
    void refresh();

signals:
    void sessionChanged();
    void videoSizeChanged();
    void pictureRectChanged();
    void showingTextChanged();

protected:
    void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;

private:
    void reload();
    void updateTicking();

    QPointer<SubtitleSession> m_session;
    QSizeF m_videoSize;
    AssRenderer m_renderer;
    std::shared_ptr<const SubtitleDocument> m_document;
    QRectF m_drawnRect;
    QSize m_frame; // device pixels the renderer drew the picture rectangle at
    QTimer m_tick;
};

} // namespace quorvane
