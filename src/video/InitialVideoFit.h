#pragma once
// Sizes the player window once to the first video it shows: the video's size scaled to fit the
// screen's available area (fittedVideoSize), centred there. Later files keep the user's size.
#include <QObject>
#include <QSizeF>
#include <QWindow>
#include <QtQml/qqmlregistration.h>

namespace quorvane {

class InitialVideoFit : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(bool completed READ completed NOTIFY completedChanged FINAL)

public:
    using QObject::QObject;

    bool completed() const { return m_completed; }
    // Fits `window` to a video of `videoSize` unless a fit was made already, the size is not
    // known yet (0×0), or the window is full screen or maximised. `chromeHeight` is what the
    // window shows above or below the picture (its menu bar). Returns whether it fitted.
    Q_INVOKABLE bool fit(QWindow* window, QSizeF videoSize, int chromeHeight = 0);

signals:
    void completedChanged();

private:
    bool m_completed = false;
};

} // namespace quorvane
