pragma ComponentBehavior: Bound
import QtQuick
import Quorvane
import QtQuick.Controls
import QtQuick.Layouts
import Quorvane.Models

// Elapsed time, the position slider and the total time. While dragged the slider shows where it
// will seek and ignores the player's position; the seek happens on release.
RowLayout {
    id: bar

    required property Player player

    readonly property alias dragging: slider.pressed
    readonly property alias slider: slider
    readonly property real seekPosition: slider.value

    spacing: 10

    Label {
        objectName: "elapsedTime"
        text: bar.player.formatTime(slider.pressed ? slider.value : bar.player.position)
        font.pixelSize: 12
        color: "#e4e4e8"
        Layout.minimumWidth: implicitWidth
    }

    Slider {
        id: slider
        objectName: "positionSlider"
        Layout.fillWidth: true
        from: 0
        to: Math.max(bar.player.duration, 0.001)
        focusPolicy: Qt.NoFocus
        enabled: bar.player.loaded
        onPressedChanged: {
            if (!pressed)
                bar.player.seek(value)
        }
        Accessible.name: qsTr("Playback Position")
    }

    // Follows playback only while the user is not holding the slider.
    Binding {
        target: slider
        property: "value"
        value: bar.player.position
        when: !slider.pressed
        restoreMode: Binding.RestoreNone
    }

    Label {
        objectName: "totalTime"
        text: bar.player.formatTime(bar.player.duration)
        font.pixelSize: 12
        color: "#a9abb3"
        Layout.minimumWidth: implicitWidth
    }
}
