import QtQuick
import QtQuick.Window
import Quorvane.Settings

// The player window: the picture fills it, Space plays and pauses, the title is the file's.
Window {
    id: window

    required property QtObject player
    required property AppSettings appSettings
    property bool showingSettings: false

    width: 960
    height: 540
    visible: true
    color: "black"
    title: player.title

    VideoHost {
        anchors.fill: parent
        videoView: window.player.videoView
    }

    Item {
        anchors.fill: parent
        focus: true
        Keys.onSpacePressed: window.player.toggle()
    }

    Shortcut {
        sequence: "Ctrl+,"
        onActivated: window.showingSettings = true
    }

    // The settings window, made when first shown and dropped when closed.
    Loader {
        active: window.showingSettings
        asynchronous: true
        sourceComponent: SettingsWindow {
            settings: window.appSettings
            visible: true
            onClosing: window.showingSettings = false
        }
    }

    onClosing: player.savePosition()
}
