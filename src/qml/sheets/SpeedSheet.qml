import QtQuick
import Quorvane
import QtQuick.Controls
import QtQuick.Layouts
import Quorvane.Models

// "Playback Speed & Hold Multiplier": the base speed (0.25…4) and how much faster holding plays
// (1.25…20). Each change applies at once.
Dialog {
    id: sheet

    required property Player player

    objectName: "speedSheet"
    title: qsTr("Playback Speed & Hold Multiplier")
    anchors.centerIn: parent
    width: Math.min(parent.width - 48, 460)
    modal: true
    Overlay.modal: Rectangle {
        color: Qt.rgba(0, 0, 0, 0.5)
    }
    standardButtons: Dialog.Ok

    ColumnLayout {
        anchors.left: parent.left
        anchors.right: parent.right
        spacing: 6

        RowLayout {
            Layout.fillWidth: true
            Label {
                Layout.fillWidth: true
                text: qsTr("Playback Speed")
                font.weight: Font.DemiBold
                elide: Text.ElideRight
            }
            Label {
                text: speed.value.toFixed(2) + "×"
            }
        }
        Slider {
            id: speed
            objectName: "baseSpeedSlider"
            Layout.fillWidth: true
            from: 0.25
            to: 4
            stepSize: 0.05
            snapMode: Slider.SnapAlways
            value: sheet.player.speed
            onMoved: sheet.player.setBaseSpeed(value)
        }

        RowLayout {
            Layout.fillWidth: true
            Layout.topMargin: 10
            Label {
                Layout.fillWidth: true
                text: qsTr("Hold to Speed Up")
                font.weight: Font.DemiBold
                elide: Text.ElideRight
            }
            Label {
                text: multiplier.value.toFixed(2) + "×"
            }
        }
        Label {
            Layout.fillWidth: true
            text: qsTr("Hold Multiplier")
            opacity: 0.7
            font.pixelSize: 12
            elide: Text.ElideRight
        }
        Slider {
            id: multiplier
            objectName: "holdMultiplierSlider"
            Layout.fillWidth: true
            from: 1.25
            to: 20
            stepSize: 0.25
            snapMode: Slider.SnapAlways
            value: sheet.player.holdMultiplier
            onMoved: sheet.player.holdMultiplier = value
        }
        Button {
            Layout.alignment: Qt.AlignLeft
            text: qsTr("Normal Speed")
            flat: true
            onClicked: sheet.player.setBaseSpeed(1)
        }
    }
}
