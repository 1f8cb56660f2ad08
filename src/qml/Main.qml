import QtQuick
import QtQuick.Window

// The player window: the picture fills it, Space plays and pauses, the title is the file's.
Window {
    id: window

    required property QtObject player

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

    onClosing: player.savePosition()
}
