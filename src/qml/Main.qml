import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import Quorvane.Models
import Quorvane.Settings

// The player window: menu bar (hidden in full screen), the player view, the open panel, the
// playlist panel beside the window, and the About and Settings windows made on demand.
ApplicationWindow {
    id: window

    required property Player player
    required property Localizer localizer
    required property AppSettings appSettings

    readonly property bool fullScreen: visibility === Window.FullScreen
    readonly property bool hasItem: player.currentURL.toString() !== ""

    width: 960
    height: 600
    // The welcome screen needs room for its recent files; a playing picture can go smaller.
    minimumWidth: hasItem ? 600 : 640
    minimumHeight: hasItem ? 360 : 480
    visible: true
    title: player.title !== "" ? player.title : "Quorvane Player"
    color: "black"
    font.capitalization: Font.MixedCase

    onClosing: player.savePosition()

    Actions {
        id: actions
        objectName: "actions"
        player: window.player
        window: window
        playlistPanel: playlistPanel
        onOpenRequested: openDialog.open()
        onAboutRequested: aboutLoader.active = true
        onSettingsRequested: {
            settingsLoader.active = true
            if (settingsLoader.item)
                settingsLoader.item.raise()
        }
        onQuitRequested: window.close()
    }

    menuBar: PlayerMenuBar {
        visible: !window.fullScreen
        actions: actions
        player: window.player
    }

    PlayerView {
        id: view
        objectName: "playerView"
        anchors.fill: parent
        player: window.player
        actions: actions
        playlistPanel: playlistPanel
    }

    PlaylistPanelController {
        id: playlistPanel
        objectName: "playlistPanel"
        parentWindow: window
        panel: playlistWindow
    }

    PlaylistWindow {
        id: playlistWindow
        player: window.player
        panel: playlistPanel
    }

    Connections {
        target: window.player
        function onChooseFileRequested() { openDialog.open() }
        function onChooseSubtitleFileRequested() { subtitleDialog.open() }
    }

    FileDialog {
        id: openDialog
        objectName: "openDialog"
        title: qsTr("Open File…")
        fileMode: FileDialog.OpenFiles
        nameFilters: [qsTr("Media files") + " (*.mp4 *.m4v *.mkv *.mov *.avi *.webm *.ts *.mts *.m2ts *.mpg *.mpeg *.wmv *.flv *.vob *.ogv *.mp3 *.m4a *.aac *.flac *.ogg *.opus *.wav)",
            qsTr("All files") + " (*)"]
        onAccepted: window.player.addFiles(true, selectedFiles)
    }

    FileDialog {
        id: subtitleDialog
        objectName: "subtitleDialog"
        title: qsTr("Load Subtitle File…")
        fileMode: FileDialog.OpenFile
        nameFilters: [qsTr("Subtitles") + " (*.srt *.ass *.ssa *.vtt)", qsTr("All files") + " (*)"]
        onAccepted: window.player.loadSubtitleFile(selectedFile)
    }

    Loader {
        id: aboutLoader
        active: false
        sourceComponent: AboutWindow {
            onClosing: aboutLoader.active = false
        }
    }

    Loader {
        id: settingsLoader
        active: false
        sourceComponent: SettingsWindow {
            settings: window.appSettings
            visible: true
            onClosing: settingsLoader.active = false
        }
    }
}
