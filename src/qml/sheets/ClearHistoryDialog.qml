import QtQuick
import Quorvane
import QtQuick.Controls
import QtQuick.Controls.Material
import QtQuick.Layouts
import Quorvane.Models

// "Clear playback history?": removes recent files, resume points and watched progress.
Dialog {
    id: dialog

    required property Player player

    objectName: "clearHistoryDialog"
    title: qsTr("Clear playback history?")
    anchors.centerIn: parent
    width: Math.min(parent.width - 48, 420)
    modal: true
    Overlay.modal: Rectangle {
        color: Qt.rgba(0, 0, 0, 0.5)
    }

    ColumnLayout {
        anchors.left: parent.left
        anchors.right: parent.right
        Label {
            Layout.fillWidth: true
            text: qsTr("This removes recent files, resume points, and watched progress.")
            wrapMode: Text.WordWrap
        }
    }

    footer: DialogButtonBox {
        Button {
            objectName: "cancelClearHistory"
            text: qsTr("Cancel")
            flat: true
            DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
        }
        Button {
            objectName: "confirmClearHistory"
            text: qsTr("Clear History")
            flat: true
            // Destructive: red, in any style that reads these.
            palette.buttonText: "#ff6b6b"
            Material.foreground: "#ff6b6b"
            DialogButtonBox.buttonRole: DialogButtonBox.DestructiveRole
            onClicked: {
                dialog.player.clearHistory()
                dialog.close()
            }
        }
    }
}
