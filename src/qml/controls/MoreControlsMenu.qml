pragma ComponentBehavior: Bound
import QtQml
import QtQuick
import Quorvane
import QtQuick.Controls
import Quorvane.Models

// Audio and subtitle tracks, the speed sheet, clearing the history and the settings.
Menu {
    id: menu

    required property Player player
    required property Actions actions

    TrackListModel {
        id: audioTracks
        objectName: "audioTracks"
        player: menu.player
        kind: "audio"
    }

    TrackListModel {
        id: subtitleTracks
        player: menu.player
        kind: "subtitle"
    }

    Menu {
        id: audioMenu
        title: qsTr("Audio Tracks")
        enabled: audioTracks.count > 0
        Instantiator {
            model: audioTracks
            delegate: MenuItem {
                required property var trackId
                required property string label
                required property bool selected
                text: label
                checkable: true
                checked: selected
                onTriggered: menu.player.selectTrack("audio", trackId)
            }
            onObjectAdded: (index, object) => audioMenu.insertItem(index, object)
            onObjectRemoved: (index, object) => audioMenu.removeItem(object)
        }
    }

    Menu {
        id: subtitleMenu
        title: qsTr("Subtitles")
        Instantiator {
            model: subtitleTracks
            delegate: MenuItem {
                required property var trackId
                required property string label
                required property bool selected
                text: label
                checkable: true
                checked: selected
                onTriggered: menu.player.selectTrack("subtitle", trackId)
            }
            onObjectAdded: (index, object) => subtitleMenu.insertItem(index, object)
            onObjectRemoved: (index, object) => subtitleMenu.removeItem(object)
        }
        MenuSeparator { visible: subtitleTracks.count > 0 }
        MenuItem { action: menu.actions.loadSubtitleFile }
        MenuItem { action: menu.actions.disableSubtitles }
    }

    MenuSeparator {}
    MenuItem { action: menu.actions.speedSheet }
    MenuItem { action: menu.actions.clearHistory }
    MenuSeparator {}
    MenuItem { action: menu.actions.settings }
}
