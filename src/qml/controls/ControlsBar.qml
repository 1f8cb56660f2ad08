pragma ComponentBehavior: Bound
import QtQuick
import Quorvane
import QtQuick.Controls
import QtQuick.Layouts
import Quorvane.Models

// The floating bar over the picture: the seek bar on top; below it the playlist steps, the
// ten-second skips and play/pause in the middle, volume on the left, and speed, playlist, more
// and full screen on the right.
GlassPanel {
    id: bar

    required property Player player
    required property Actions actions

    readonly property bool hovered: hover.hovered
    readonly property bool menuOpen: speedMenu.visible || moreMenu.visible
    readonly property alias seekBar: seek
    readonly property alias speedMenu: speedMenu
    readonly property alias moreMenu: moreMenu

    implicitHeight: column.implicitHeight + 20

    HoverHandler {
        id: hover
    }

    ColumnLayout {
        id: column
        anchors.fill: parent
        anchors.leftMargin: 16
        anchors.rightMargin: 16
        anchors.topMargin: 8
        anchors.bottomMargin: 10
        spacing: 0

        SeekBar {
            id: seek
            Layout.fillWidth: true
            player: bar.player
        }

        Item {
            Layout.fillWidth: true
            implicitHeight: transport.implicitHeight

            VolumeControl {
                anchors.left: parent.left
                anchors.verticalCenter: parent.verticalCenter
                visible: bar.width > 560
                player: bar.player
                actions: bar.actions
            }

            RowLayout {
                id: transport
                anchors.centerIn: parent
                spacing: 6
                BarButton { objectName: "previousButton"; action: bar.actions.previous }
                BarButton { objectName: "back10Button"; action: bar.actions.back10 }
                BarButton {
                    objectName: "playPauseButton"
                    action: bar.actions.playPause
                    iconSize: 26
                    implicitWidth: 48
                    implicitHeight: 48
                }
                BarButton { objectName: "forward10Button"; action: bar.actions.forward10 }
                BarButton { objectName: "nextButton"; action: bar.actions.next }
            }

            RowLayout {
                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                spacing: 2

                BarButton {
                    id: speedButton
                    objectName: "speedButton"
                    display: AbstractButton.TextOnly
                    text: bar.player.speed + "×"
                    font.pixelSize: 13
                    font.weight: Font.DemiBold
                    implicitWidth: Math.max(44, contentItem.implicitWidth + 14)
                    ToolTip.text: qsTr("Playback Speed")
                    popupOpen: speedMenu.visible
                    onClicked: speedMenu.open()
                    SpeedMenu {
                        id: speedMenu
                        objectName: "speedMenu"
                        x: speedButton.width - width
                        y: -height - 10
                        player: bar.player
                    }
                }
                BarButton { objectName: "playlistButton"; action: bar.actions.togglePlaylist }
                BarButton {
                    id: moreButton
                    objectName: "moreButton"
                    icon.name: "view-more-horizontal-symbolic"
                    text: qsTr("More Playback Options")
                    popupOpen: moreMenu.visible
                    onClicked: moreMenu.open()
                    MoreControlsMenu {
                        id: moreMenu
                        objectName: "moreMenu"
                        x: moreButton.width - width
                        y: -height - 10
                        player: bar.player
                        actions: bar.actions
                    }
                }
                BarButton { objectName: "fullScreenButton"; action: bar.actions.fullScreen }
            }
        }
    }
}
