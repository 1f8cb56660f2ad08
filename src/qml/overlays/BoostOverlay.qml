import QtQuick
import Quorvane
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import Quorvane.Models

// The effective speed while a press-and-hold boost plays the file faster.
GlassPanel {
    id: overlay

    required property Player player

    objectName: "boostOverlay"
    implicitWidth: row.implicitWidth + 36
    implicitHeight: 48
    radius: height / 2
    opacity: player.showingBoost ? 1 : 0
    visible: opacity > 0
    Behavior on opacity { NumberAnimation { duration: 150 } }

    RowLayout {
        id: row
        anchors.centerIn: parent
        spacing: 8
        IconLabel {
            icon.name: "media-seek-forward-symbolic"
            icon.color: "white"
            icon.width: 22
            icon.height: 22
        }
        Label {
            text: (Math.round(overlay.player.speed * 100) / 100) + "×"
            font.pixelSize: 20
            font.weight: Font.DemiBold
            color: "white"
        }
    }
}
