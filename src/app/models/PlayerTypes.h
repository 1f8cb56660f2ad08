#pragma once
// The core types as the views see them: the player model and the interface language are made in
// C++ and handed to the window, never created from QML.
#include "Localizer.h"
#include "Player.h"

#include <QtQml/qqmlregistration.h>

namespace quorvane {

struct PlayerForeign {
    Q_GADGET
    QML_FOREIGN(quorvane::Player)
    QML_NAMED_ELEMENT(Player)
    QML_UNCREATABLE("The application makes the one player.")
};

struct LocalizerForeign {
    Q_GADGET
    QML_FOREIGN(quorvane::Localizer)
    QML_NAMED_ELEMENT(Localizer)
    QML_UNCREATABLE("The application hands its localizer to the window.")
};

} // namespace quorvane
