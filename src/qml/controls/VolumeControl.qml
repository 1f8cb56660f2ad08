import QtQuick
import Quorvane
import QtQuick.Controls
import QtQuick.Layouts
import Quorvane.Models

// The mute button (a muted speaker at volume 0) and the volume slider.
RowLayout {
    id: volume

    required property Player player
    required property Actions actions

    spacing: 2

    BarButton {
        objectName: "muteButton"
        action: volume.actions.mute
    }

    Slider {
        objectName: "volumeSlider"
        Layout.preferredWidth: 90
        from: 0
        to: 100
        value: volume.player.volume
        focusPolicy: Qt.NoFocus
        onMoved: volume.player.adjustVolume(value - volume.player.volume)
        Accessible.name: qsTr("Volume")
    }
}
