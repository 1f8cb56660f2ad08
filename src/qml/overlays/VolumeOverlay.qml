import QtQuick
import Quorvane
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import Quorvane.Models

// The volume in percent, shown briefly after each change.
GlassPanel {
    id: overlay

    required property Player player

    objectName: "volumeOverlay"
    implicitWidth: 200
    implicitHeight: 132
    opacity: player.showingVolume ? 1 : 0
    visible: opacity > 0
    Behavior on opacity { NumberAnimation { duration: 150 } }

    ColumnLayout {
        anchors.centerIn: parent
        width: parent.width - 40
        spacing: 10
        IconLabel {
            Layout.alignment: Qt.AlignHCenter
            icon.name: overlay.player.volume <= 0 ? "audio-volume-muted-symbolic"
                     : overlay.player.volume < 50 ? "audio-volume-medium-symbolic" : "audio-volume-high-symbolic"
            icon.color: "white"
            icon.width: 36
            icon.height: 36
        }
        Label {
            Layout.alignment: Qt.AlignHCenter
            text: Math.round(overlay.player.volume) + "%"
            font.pixelSize: 20
            font.weight: Font.DemiBold
            color: "white"
        }
        ProgressBar {
            Layout.fillWidth: true
            from: 0
            to: 100
            value: overlay.player.volume
        }
    }
}
