import QtQuick
import QtMultimedia
import QtWebEngine
import Quorvane.Subtitles
import Quorvane.Models
import Quorvane.Video

// The picture and its input: the surface takes keys, presses and pointer movement; the
// VideoOutput inside it draws what the active backend plays, through the sink handed to the
// player. A web backend's view goes into `webViewSlot`, above the picture.
VideoSurface {
    id: surface
    objectName: "videoSurface"

    readonly property alias videoOutput: output
    // Where a web playback view sits when the web backend plays: it fills the surface and covers
    // the VideoOutput. Keys still go through the surface (it filters the whole window).
    readonly property alias webViewSlot: webSlot

    VideoOutput {
        id: output
        anchors.fill: parent
        fillMode: VideoOutput.PreserveAspectFit
        Component.onCompleted: surface.player.setVideoSink(videoSink)
        Component.onDestruction: surface.player.setVideoSink(null)
    }

    // Subtitles over the picture, whichever backend draws it; the overlay fits the picture's
    // rectangle (letterboxing, full screen) from the video size.
    SubtitleOverlay {
        objectName: "subtitleOverlay"
        anchors.fill: parent
        z: 1
        session: surface.player.subtitles
        videoSize: surface.player.videoSize
    }

    Item {
        id: webSlot
        objectName: "webViewSlot"
        anchors.fill: parent

        // The web backend plays WebM and Ogg files the native path refuses in this view. It takes
        // no input of its own (disabled), so presses, double clicks and keys stay with the surface.
        WebEngineView {
            id: webView
            objectName: "webView"
            anchors.fill: parent
            enabled: false
            visible: surface.player.webViewActive
            backgroundColor: "black"
            Component.onCompleted: surface.player.setWebView(webView)
            Component.onDestruction: surface.player.setWebView(null)
        }
    }
}
