pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls
import Quorvane.Models
import Quorvane.Video

// The content of the player window: the picture, the welcome screen while nothing is open, the
// controls bar that hides after two seconds of pointer rest, the overlays, and the speed sheet
// and clear-history alert. It reads the player and calls it; its own state is what is shown.
Item {
    id: root

    required property Player player
    required property Actions actions
    required property PlaylistPanelController playlistPanel

    readonly property bool hasItem: player.currentURL.toString() !== ""
    readonly property bool fullScreen: Window.window !== null && Window.window.visibility === Window.FullScreen

    property bool showingSpeedSettings: false
    property bool showingClearHistory: false
    property bool mouseActive: true
    readonly property bool hoveringControls: controlsBar.hovered
    readonly property bool menusOpen: controlsBar.menuOpen || contextMenu.visible
    readonly property bool sheetOpen: speedSheet.visible || clearHistoryDialog.visible
    readonly property bool controlsShown: hasItem && (mouseActive || hoveringControls || menusOpen || sheetOpen)

    // Exposed for tests and screenshots.
    readonly property alias controls: controlsBar
    readonly property alias surface: host
    readonly property alias initialVideoFit: fit

    // Pointer movement shows the controls; two seconds of rest hide them again.
    function notePointerActivity() {
        mouseActive = true
        hideControls.restart()
    }

    // The window re-sends hover events at a still pointer whenever the picture changes; only a
    // pointer that really moved counts.
    property point lastPointer: Qt.point(-1, -1)
    function notePointerAt(position) {
        if (position.x === lastPointer.x && position.y === lastPointer.y)
            return
        lastPointer = position
        notePointerActivity()
    }

    Timer {
        id: hideControls
        interval: 2000
        running: true
        onTriggered: root.mouseActive = false
    }

    InitialVideoFit {
        id: fit
    }

    Connections {
        target: root.player
        function onVideoSizeChanged() {
            const window = root.Window.window
            if (window)
                fit.fit(window, root.player.videoSize, Math.max(0, window.height - root.height))
        }
    }

    Connections {
        target: root.actions
        function onSpeedSheetRequested() { root.showingSpeedSettings = true }
        function onClearHistoryRequested() { root.showingClearHistory = true }
    }

    WindowBackdrop {
        objectName: "backdrop"
        anchors.fill: parent
        translucent: !root.hasItem
    }

    VideoHost {
        id: host
        anchors.fill: parent
        player: root.player
        keysBlocked: root.sheetOpen
        onPointerActivity: root.notePointerActivity()
        onContextMenuRequested: position => contextMenu.popup(host, position)
    }

    WelcomeView {
        objectName: "welcome"
        anchors.fill: parent
        visible: !root.hasItem
        player: root.player
        actions: root.actions
    }

    HoverHandler {
        id: pointer
        onPointChanged: root.notePointerAt(point.scenePosition)
        // In full screen the cursor hides with the controls while a file plays.
        cursorShape: root.fullScreen && !root.player.paused && !root.controlsShown ? Qt.BlankCursor : Qt.ArrowCursor
    }

    DropArea {
        id: dropArea
        anchors.fill: parent
        onDropped: drop => {
            if (drop.hasUrls) {
                root.player.addFiles(true, drop.urls)
                drop.accept(Qt.CopyAction)
            }
        }
    }

    // Shows where a dragged file will land.
    Rectangle {
        anchors.fill: parent
        anchors.margins: 10
        visible: dropArea.containsDrag
        radius: 18
        color: Qt.rgba(0.36, 0.55, 0.94, 0.12)
        border.width: 2
        border.color: "#5b8def"
    }

    ControlsBar {
        id: controlsBar
        objectName: "controlsBar"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        anchors.margins: 16
        player: root.player
        actions: root.actions
        opacity: root.controlsShown ? 1 : 0
        visible: opacity > 0
        Behavior on opacity { NumberAnimation { duration: 180 } }
    }

    VolumeOverlay {
        anchors.centerIn: parent
        player: root.player
    }

    BoostOverlay {
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.top: parent.top
        anchors.topMargin: 28
        player: root.player
    }

    ErrorOverlay {
        anchors.centerIn: parent
        width: Math.min(parent.width - 48, 440)
        player: root.player
    }

    Menu {
        id: contextMenu
        objectName: "contextMenu"
        MenuItem { action: root.actions.playPause }
        MenuItem { action: root.actions.back10 }
        MenuItem { action: root.actions.forward10 }
        MenuSeparator {}
        MenuItem { action: root.actions.fullScreen }
        MenuItem { action: root.actions.togglePlaylist }
        MenuSeparator {}
        MenuItem { action: root.actions.openFile }
        MenuItem { action: root.actions.speedSheet }
        MenuItem { action: root.actions.settings }
    }

    SpeedSheet {
        id: speedSheet
        player: root.player
        visible: root.showingSpeedSettings
        onClosed: root.showingSpeedSettings = false
    }

    ClearHistoryDialog {
        id: clearHistoryDialog
        player: root.player
        visible: root.showingClearHistory
        onClosed: root.showingClearHistory = false
    }
}
