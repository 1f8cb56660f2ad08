pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls
import Quorvane.Models

// Every command of the window, declared once with its text, icon and shortcut, and shared by
// the menu bar, the context menu and the controls bar. Commands that open something the view or
// window owns are signalled up.
Item {
    id: actions

    required property Player player
    required property ApplicationWindow window
    required property PlaylistPanelController playlistPanel

    readonly property bool hasItem: player.currentURL.toString() !== ""

    signal openRequested
    signal aboutRequested
    signal settingsRequested
    signal quitRequested
    signal speedSheetRequested
    signal clearHistoryRequested

    function toggleFullScreen() {
        window.visibility = window.visibility === Window.FullScreen ? Window.Windowed : Window.FullScreen
    }

    readonly property Action openFile: Action {
        text: qsTr("Open File…")
        icon.name: "document-open-symbolic"
        shortcut: StandardKey.Open
        onTriggered: actions.player.chooseFile()
    }
    readonly property Action playPause: Action {
        text: qsTr("Play / Pause")
        icon.name: actions.player.paused ? "media-playback-start-symbolic" : "media-playback-pause-symbolic"
        shortcut: "Space"
        enabled: actions.hasItem
        onTriggered: actions.player.toggle()
    }
    readonly property Action back5: Action {
        text: qsTr("Back 5 Seconds")
        enabled: actions.player.loaded
        onTriggered: actions.player.seekBy(-5)
    }
    readonly property Action forward5: Action {
        text: qsTr("Forward 5 Seconds")
        enabled: actions.player.loaded
        onTriggered: actions.player.seekBy(5)
    }
    readonly property Action back10: Action {
        text: qsTr("Back 10 Seconds")
        icon.name: "media-seek-backward-symbolic"
        shortcut: "Ctrl+Left"
        enabled: actions.player.loaded
        onTriggered: actions.player.seekBy(-10)
    }
    readonly property Action forward10: Action {
        text: qsTr("Forward 10 Seconds")
        icon.name: "media-seek-forward-symbolic"
        shortcut: "Ctrl+Right"
        enabled: actions.player.loaded
        onTriggered: actions.player.seekBy(10)
    }
    readonly property Action previous: Action {
        text: qsTr("Previous")
        icon.name: "media-skip-backward-symbolic"
        shortcut: "PgUp"
        enabled: actions.hasItem && actions.player.playlist.length > 1
        onTriggered: actions.player.next(-1)
    }
    readonly property Action next: Action {
        text: qsTr("Next")
        icon.name: "media-skip-forward-symbolic"
        shortcut: "PgDown"
        enabled: actions.hasItem && actions.player.playlist.length > 1
        onTriggered: actions.player.next(1)
    }
    readonly property Action togglePlaylist: Action {
        text: actions.playlistPanel.visible ? qsTr("Hide Playlist") : qsTr("Show Playlist")
        icon.name: "view-list-bullet-symbolic"
        shortcut: "Ctrl+L"
        onTriggered: actions.playlistPanel.toggle()
    }
    readonly property Action fullScreen: Action {
        text: actions.window.visibility === Window.FullScreen ? qsTr("Exit Full Screen") : qsTr("Full Screen")
        icon.name: actions.window.visibility === Window.FullScreen ? "view-restore-symbolic" : "view-fullscreen-symbolic"
        shortcut: "F11"
        onTriggered: actions.toggleFullScreen()
    }
    readonly property Action mute: Action {
        property real restoreVolume: 80
        text: actions.player.volume > 0 ? qsTr("Mute") : qsTr("Unmute")
        icon.name: actions.player.volume > 0 ? "audio-volume-high-symbolic" : "audio-volume-muted-symbolic"
        shortcut: "Ctrl+M"
        onTriggered: {
            if (actions.player.volume > 0) {
                restoreVolume = actions.player.volume
                actions.player.adjustVolume(-actions.player.volume)
            } else {
                actions.player.adjustVolume(restoreVolume > 0 ? restoreVolume : 80)
            }
        }
    }
    readonly property Action normalSpeed: Action {
        text: qsTr("Normal Speed")
        shortcut: "Ctrl+0"
        onTriggered: actions.player.setBaseSpeed(1)
    }
    readonly property Action speedSheet: Action {
        text: qsTr("Playback Speed…")
        icon.name: "preferences-system-time-symbolic"
        onTriggered: actions.speedSheetRequested()
    }
    readonly property Action loadSubtitleFile: Action {
        text: qsTr("Load Subtitle File…")
        enabled: actions.player.currentURL.toString() !== ""
        onTriggered: actions.player.chooseSubtitleFile()
    }
    readonly property Action disableSubtitles: Action {
        text: qsTr("Disable Subtitles")
        enabled: actions.player.subtitleID !== 0
        onTriggered: actions.player.selectTrack("subtitle", 0)
    }
    readonly property Action clearHistory: Action {
        text: qsTr("Clear History")
        icon.name: "edit-clear-all-symbolic"
        onTriggered: actions.clearHistoryRequested()
    }
    readonly property Action settings: Action {
        text: qsTr("Settings")
        icon.name: "emblem-system-symbolic"
        shortcut: "Ctrl+,"
        onTriggered: actions.settingsRequested()
    }
    readonly property Action about: Action {
        text: qsTr("About Quorvane Player")
        icon.name: "help-about-symbolic"
        onTriggered: actions.aboutRequested()
    }
    readonly property Action quit: Action {
        text: qsTr("Quit")
        icon.name: "application-exit-symbolic"
        shortcut: StandardKey.Quit
        onTriggered: actions.quitRequested()
    }
}
