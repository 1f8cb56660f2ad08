pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls
import Quorvane.Models

// The window's menus: the application menu (About, Settings, Quit), File, Playback and View.
MenuBar {
    id: bar

    required property Actions actions
    required property Player player

    background: Rectangle {
        implicitHeight: 36
        color: "#1c1d22"
        Rectangle {
            anchors.bottom: parent.bottom
            width: parent.width
            height: 1
            color: Qt.rgba(1, 1, 1, 0.06)
        }
    }

    Menu {
        title: "Quorvane Player"
        MenuItem { action: bar.actions.about }
        MenuItem { action: bar.actions.settings }
        MenuSeparator {}
        MenuItem { action: bar.actions.quit }
    }
    Menu {
        title: qsTr("File")
        MenuItem { action: bar.actions.openFile }
        MenuSeparator {}
        MenuItem { action: bar.actions.clearHistory }
    }
    Menu {
        title: qsTr("Playback")
        MenuItem { action: bar.actions.playPause }
        MenuSeparator {}
        MenuItem { action: bar.actions.back5 }
        MenuItem { action: bar.actions.forward5 }
        MenuItem { action: bar.actions.back10 }
        MenuItem { action: bar.actions.forward10 }
        MenuSeparator {}
        MenuItem { action: bar.actions.previous }
        MenuItem { action: bar.actions.next }
        MenuSeparator {}
        SpeedMenu { player: bar.player }
        MenuItem { action: bar.actions.normalSpeed }
        MenuItem { action: bar.actions.speedSheet }
        MenuSeparator {}
        MenuItem { action: bar.actions.mute }
        MenuItem { action: bar.actions.loadSubtitleFile }
        MenuItem { action: bar.actions.disableSubtitles }
    }
    Menu {
        title: qsTr("View")
        MenuItem { action: bar.actions.fullScreen }
        MenuItem { action: bar.actions.togglePlaylist }
    }
}
