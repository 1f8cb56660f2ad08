pragma ComponentBehavior: Bound
import QtQml
import QtQuick
import Quorvane
import QtQuick.Controls
import Quorvane.Models

// The base speed choices, in the player's order; the current one is checked.
Menu {
    id: menu

    required property Player player

    title: qsTr("Playback Speed")

    Instantiator {
        model: menu.player.speedChoices
        delegate: MenuItem {
            required property real modelData
            text: modelData + "×"
            checkable: true
            checked: Math.abs(menu.player.speed - modelData) < 0.001
            onTriggered: menu.player.setBaseSpeed(modelData)
        }
        onObjectAdded: (index, object) => menu.insertItem(index, object)
        onObjectRemoved: (index, object) => menu.removeItem(object)
    }
}
