import QtQuick
import Quorvane
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import Quorvane.Models

// "Playback Error" with the player's message, until dismissed or the next file opens. The
// controls stay usable around it.
GlassPanel {
    id: overlay

    required property Player player

    objectName: "errorOverlay"
    implicitHeight: column.implicitHeight + 40
    visible: player.error !== ""

    ColumnLayout {
        id: column
        anchors.centerIn: parent
        width: parent.width - 48
        spacing: 10
        IconLabel {
            Layout.alignment: Qt.AlignHCenter
            icon.name: "dialog-warning-symbolic"
            icon.color: "#ffb454"
            icon.width: 36
            icon.height: 36
        }
        Label {
            Layout.alignment: Qt.AlignHCenter
            text: qsTr("Playback Error")
            font.pixelSize: 18
            font.weight: Font.DemiBold
            color: "white"
        }
        Label {
            objectName: "errorMessage"
            Layout.fillWidth: true
            text: overlay.player.error
            wrapMode: Text.WordWrap
            horizontalAlignment: Text.AlignHCenter
            font.pixelSize: 14
            color: "#c9cbd2"
        }
        Button {
            Layout.alignment: Qt.AlignHCenter
            text: qsTr("OK")
            focusPolicy: Qt.NoFocus
            onClicked: overlay.player.dismissError()
        }
    }
}
