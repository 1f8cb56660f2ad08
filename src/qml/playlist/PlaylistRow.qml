import QtQuick
import Quorvane
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// One playlist entry: a marker on the current file, the name, the watched share, and a menu.
ItemDelegate {
    id: row

    required property url url
    required property string name
    required property bool current
    required property real progress

    signal activated(url url)
    signal removeRequested(url url)
    signal revealRequested(url url)

    height: 46
    focusPolicy: Qt.NoFocus
    onClicked: activated(url)

    background: Rectangle {
        radius: 8
        color: row.current ? Qt.rgba(0.30, 0.52, 1.0, 0.22) : row.hovered ? Qt.rgba(1, 1, 1, 0.07) : "transparent"
    }

    TapHandler {
        acceptedButtons: Qt.RightButton
        onTapped: rowMenu.popup()
    }

    contentItem: RowLayout {
        spacing: 10
        IconLabel {
            Layout.preferredWidth: 18
            icon.name: row.current ? "media-playback-start-symbolic" : "video-x-generic-symbolic"
            icon.color: row.current ? "#6ea2ff" : "#8a8d96"
            icon.width: 16
            icon.height: 16
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 4
            Label {
                Layout.fillWidth: true
                text: row.name
                elide: Text.ElideMiddle
                font.pixelSize: 13
                font.weight: row.current ? Font.DemiBold : Font.Normal
                color: row.current ? "#ffffff" : "#dcdde2"
            }
            ProgressBar {
                Layout.fillWidth: true
                Layout.preferredHeight: 3
                visible: row.progress > 0
                value: row.progress
            }
        }
        ToolButton {
            objectName: "rowMenuButton"
            icon.name: "view-more-symbolic"
            icon.color: "#b4b6bd"
            display: AbstractButton.IconOnly
            focusPolicy: Qt.NoFocus
            implicitWidth: 30
            implicitHeight: 30
            onClicked: rowMenu.popup(this, 0, height)
        }
    }

    Menu {
        id: rowMenu
        objectName: "rowMenu"
        MenuItem {
            text: qsTr("Remove from Playlist")
            icon.name: "list-remove-symbolic"
            onTriggered: row.removeRequested(row.url)
        }
        MenuItem {
            text: qsTr("Show in Folder")
            icon.name: "folder-open-symbolic"
            onTriggered: row.revealRequested(row.url)
        }
    }
}
