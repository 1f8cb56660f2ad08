pragma ComponentBehavior: Bound
import QtQuick
import Quorvane
import QtQuick.Controls
import QtQuick.Layouts
import Quorvane.Models

// The playlist: the sort order on top, then one row per file with the current one marked and its
// watched share. A click opens a row; each row's menu removes it or shows it in its folder.
Item {
    id: view

    required property Player player
    required property PlaylistPanelController panel

    PlaylistModel {
        id: entries
        player: view.player
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 12
        spacing: 10

        RowLayout {
            Layout.fillWidth: true
            Label {
                Layout.fillWidth: true
                text: qsTr("Playlist")
                font.pixelSize: 17
                font.weight: Font.DemiBold
                elide: Text.ElideRight
            }
            Label {
                text: qsTr("Sort By")
                opacity: 0.7
                font.pixelSize: 12
            }
            ComboBox {
                id: sortOrder
                objectName: "sortOrder"
                textRole: "text"
                valueRole: "value"
                implicitWidth: 150
                model: [{ text: qsTr("Name"), value: "name" }, { text: qsTr("Creation Date"), value: "creationDate" }]
                currentIndex: view.player.playlistSortOrder === "creationDate" ? 1 : 0
                onActivated: view.player.playlistSortOrder = currentValue
            }
        }

        ListView {
            id: list
            objectName: "playlistList"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            spacing: 2
            model: entries
            ScrollBar.vertical: ScrollBar {}
            delegate: PlaylistRow {
                width: list.width
                onActivated: url => view.player.open(url)
                onRemoveRequested: url => view.player.removeFile(url)
                onRevealRequested: url => view.panel.showInFolder(url)
            }
        }
    }
}
