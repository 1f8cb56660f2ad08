#pragma once
// The playlist panel: a tool window of its own that belongs to the player window, shown beside
// it and toggled by "Show Playlist" / "Hide Playlist". Closing the panel by its title bar, or
// the player window going away, hides it.
#include <QObject>
#include <QPointer>
#include <QUrl>
#include <QWindow>
#include <QtQml/qqmlregistration.h>

namespace quorvane {

class PlaylistPanelController : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QWindow* parentWindow READ parentWindow WRITE setParentWindow NOTIFY
                   parentWindowChanged FINAL)
    Q_PROPERTY(QWindow* panel READ panel WRITE setPanel NOTIFY panelChanged FINAL)
    Q_PROPERTY(bool visible READ visible WRITE setVisible NOTIFY visibleChanged FINAL)

public:
    // Space between the player window and the panel.
    static constexpr int kGap = 8;

    using QObject::QObject;

    QWindow* parentWindow() const { return m_parent; }
    void setParentWindow(QWindow* window);
    QWindow* panel() const { return m_panel; }
    void setPanel(QWindow* panel);
    bool visible() const { return m_visible; }
    void setVisible(bool visible);
    Q_INVOKABLE void toggle() { setVisible(!m_visible); }

    // Where the panel goes: right of the parent's frame when it fits on the screen, else left,
    // as tall as the parent.
    static QRect placement(const QRect& parentFrame, const QSize& panelSize, const QRect& screen);

    // Shows the file selected in the desktop's file manager, or opens its folder when no file
    // manager answers on the session bus.
    Q_INVOKABLE static void showInFolder(const QUrl& url);

signals:
    void parentWindowChanged();
    void panelChanged();
    void visibleChanged();

private:
    void observe();
    void apply();

    QPointer<QWindow> m_parent;
    QPointer<QWindow> m_panel;
    QList<QMetaObject::Connection> m_observers;
    bool m_visible = false;
};

} // namespace quorvane
