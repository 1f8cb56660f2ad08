#pragma once
// The window's backdrop: a translucent dark layer under the content while `translucent`, an
// opaque black window otherwise. It never takes a click or a drag, so they reach what lies
// behind it.
#include <QColor>
#include <QQuickItem>
#include <QtQml/qqmlregistration.h>

namespace quorvane {

class WindowBackdrop : public QQuickItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(
        bool translucent READ translucent WRITE setTranslucent NOTIFY translucentChanged FINAL)

public:
    // The tint laid over whatever shows through a translucent window.
    static constexpr QColor kTint{18, 18, 22, 235};

    explicit WindowBackdrop(QQuickItem* parent = nullptr);

    bool translucent() const { return m_translucent; }
    void setTranslucent(bool translucent);
    // Applies the backdrop style to the window: clear behind a translucent backdrop, black
    // otherwise. Each property is written only when it differs.
    void configureWindow();

signals:
    void translucentChanged();

protected:
    QSGNode* updatePaintNode(QSGNode* old, UpdatePaintNodeData*) override;
    void itemChange(ItemChange change, const ItemChangeData& value) override;

private:
    bool m_translucent = true;
};

} // namespace quorvane
