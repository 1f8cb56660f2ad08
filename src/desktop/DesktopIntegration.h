#pragma once
// The player as a citizen of a Linux desktop: files handed over by later launches, MPRIS on the
// session bus (media keys, sound applets) and the screen kept on while a video plays. The shell
// creates one after the Player and its window.
#include "MprisService.h"
#include "ScreenSaverInhibitor.h"
#include "SingleInstance.h"

#include <QDBusConnection>
#include <QList>
#include <QObject>
#include <QUrl>

namespace quorvane {

class Player;

// Opens what the desktop handed over: one file with open(), several as a playlist through
// addFiles() (which opens the first), none leaves the player as it is.
void openHandedFiles(Player& player, const QList<QUrl>& files);
// Brings the application's windows to the front (as far as the window system lets us).
void raiseWindows();

class DesktopIntegration : public QObject {
    Q_OBJECT

public:
    // `instance` may be null (tests, or a start without the single-instance check).
    DesktopIntegration(Player& player, SingleInstance* instance,
                       QDBusConnection bus = QDBusConnection::sessionBus(),
                       QObject* parent = nullptr);

    MprisService& mpris() { return m_mpris; }
    ScreenSaverInhibitor& inhibitor() { return m_inhibitor; }

private:
    MprisService m_mpris;
    ScreenSaverInhibitor m_inhibitor;
};

} // namespace quorvane
