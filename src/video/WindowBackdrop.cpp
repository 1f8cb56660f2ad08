#include "WindowBackdrop.h"

#include <QQuickWindow>
#include <QSGSimpleRectNode>

namespace quorvane {

WindowBackdrop::WindowBackdrop(QQuickItem* parent) : QQuickItem(parent)
{
    setFlag(ItemHasContents);
    // No mouse buttons and no hover: every press passes through to the items behind.
    setAcceptedMouseButtons(Qt::NoButton);
    setAcceptHoverEvents(false);
}

void WindowBackdrop::setTranslucent(bool translucent)
{
    if (m_translucent == translucent) return;
    m_translucent = translucent;
    configureWindow();
    update();
    emit translucentChanged();
}

void WindowBackdrop::configureWindow()
{
    if (isVisible() != m_translucent) setVisible(m_translucent);
    QQuickWindow* w = window();
    if (!w) return;
    // A clear background only helps a window made with an alpha channel; on any other, changing
    // the colour's alpha makes Qt request a new surface format for a live window, which leaves
    // it drawing nothing. There the tint lies over black.
    const bool canBeClear = w->format().alphaBufferSize() > 0;
    const QColor background =
        m_translucent && canBeClear ? QColor(Qt::transparent) : QColor(Qt::black);
    if (w->color() != background) w->setColor(background);
}

QSGNode* WindowBackdrop::updatePaintNode(QSGNode* old, UpdatePaintNodeData*)
{
    auto* node = static_cast<QSGSimpleRectNode*>(old);
    if (!node) node = new QSGSimpleRectNode(boundingRect(), kTint);
    node->setRect(boundingRect());
    node->setColor(kTint);
    return node;
}

void WindowBackdrop::itemChange(ItemChange change, const ItemChangeData& value)
{
    QQuickItem::itemChange(change, value);
    if (change == ItemSceneChange) configureWindow();
}

} // namespace quorvane
