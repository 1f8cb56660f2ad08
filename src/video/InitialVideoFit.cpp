#include "InitialVideoFit.h"

#include "PlaybackBackend.h"

#include <QScreen>
#include <QWindow>

namespace quorvane {

bool InitialVideoFit::fit(QWindow* window, QSizeF videoSize, int chromeHeight)
{
    if (m_completed || !window || videoSize.width() <= 0 || videoSize.height() <= 0) return false;
    if (window->windowStates() & (Qt::WindowFullScreen | Qt::WindowMaximized)) return false;
    const QRect area = window->screen() ? window->screen()->availableGeometry() : QRect();
    chromeHeight = std::max(chromeHeight, 0);
    const QSizeF within(area.width(), area.height() - chromeHeight);
    const QSize size = (fittedVideoSize(videoSize, within).toSize() + QSize(0, chromeHeight))
                           .expandedTo(window->minimumSize());
    QRect frame(QPoint(), size);
    if (area.isValid()) frame.moveCenter(area.center());
    window->setGeometry(frame);
    m_completed = true;
    emit completedChanged();
    return true;
}

} // namespace quorvane
