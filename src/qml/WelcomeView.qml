pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import Quorvane.Models

// Shown while no file is open: the title, how to open a file, and the recent files with how much
// of each was watched. A recent file opens on click.
Item {
    id: welcome

    required property Player player
    required property Actions actions

    RecentFilesModel {
        id: recent
        player: welcome.player
    }

    ColumnLayout {
        anchors.centerIn: parent
        width: Math.min(parent.width - 64, 560)
        height: Math.min(parent.height - 48, implicitHeight)
        spacing: 14

        Rectangle {
            Layout.alignment: Qt.AlignHCenter
            implicitWidth: 72
            implicitHeight: 72
            radius: 20
            gradient: Gradient {
                GradientStop { position: 0; color: "#3a7bfd" }
                GradientStop { position: 1; color: "#7b4dff" }
            }
            IconLabel {
                anchors.centerIn: parent
                icon.name: "media-playback-start-symbolic"
                icon.color: "white"
                icon.width: 34
                icon.height: 34
            }
        }

        Label {
            Layout.alignment: Qt.AlignHCenter
            Layout.maximumWidth: parent.width
            text: qsTr("Your private cinema")
            font.pixelSize: 30
            font.weight: Font.DemiBold
            color: "#f2f2f5"
            elide: Text.ElideRight
        }

        Label {
            Layout.alignment: Qt.AlignHCenter
            Layout.maximumWidth: parent.width
            text: qsTr("Drop a video here, or press Ctrl+O to open")
            font.pixelSize: 15
            color: "#a0a3ad"
            wrapMode: Text.WordWrap
            horizontalAlignment: Text.AlignHCenter
        }

        Button {
            objectName: "welcomeOpenButton"
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 6
            action: welcome.actions.openFile
            highlighted: true
            focusPolicy: Qt.NoFocus
            icon.color: "white"
        }

        RowLayout {
            Layout.fillWidth: true
            Layout.topMargin: 18
            visible: recent.count > 0
            Label {
                Layout.fillWidth: true
                text: qsTr("Recently Opened")
                font.pixelSize: 13
                font.weight: Font.DemiBold
                font.capitalization: Font.AllUppercase
                color: "#8a8d96"
                elide: Text.ElideRight
            }
            ToolButton {
                objectName: "welcomeClearHistory"
                action: welcome.actions.clearHistory
                display: AbstractButton.TextOnly
                focusPolicy: Qt.NoFocus
                font.pixelSize: 13
            }
        }

        ListView {
            id: list
            objectName: "recentFiles"
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.preferredHeight: Math.min(contentHeight, 5 * 58)
            Layout.minimumHeight: Math.min(contentHeight, 58)
            visible: recent.count > 0
            clip: true
            spacing: 4
            model: recent
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar {}
            delegate: RecentFileRow {
                width: list.width
                onActivated: url => welcome.player.open(url)
            }
        }
    }
}
