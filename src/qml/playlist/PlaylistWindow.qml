import QtQuick
import Quorvane
import QtQuick.Controls
import Quorvane.Models

// The playlist panel's own tool window; the controller places, shows and hides it.
ApplicationWindow {
    id: panelWindow

    required property Player player
    required property PlaylistPanelController panel

    objectName: "playlistWindow"
    title: qsTr("Playlist")
    flags: Qt.Tool
    width: 340
    height: 520
    minimumWidth: 260
    minimumHeight: 240
    visible: false
    color: "#141519"

    PlaylistView {
        anchors.fill: parent
        player: panelWindow.player
        panel: panelWindow.panel
    }
}
