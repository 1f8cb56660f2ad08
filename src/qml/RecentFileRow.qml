import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// One recent file: its name, its folder, and a bar with the watched share.
ItemDelegate {
    id: row

    required property url url
    required property string name
    required property string folder
    required property real progress

    signal activated(url url)

    height: 54
    focusPolicy: Qt.NoFocus
    onClicked: activated(url)

    background: Rectangle {
        radius: 10
        color: row.hovered ? Qt.rgba(1, 1, 1, 0.08) : Qt.rgba(1, 1, 1, 0.035)
    }

    contentItem: RowLayout {
        spacing: 12
        IconLabel {
            icon.name: "video-x-generic-symbolic"
            icon.color: "#9fa3ad"
            icon.width: 22
            icon.height: 22
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 3
            Label {
                Layout.fillWidth: true
                text: row.name
                font.pixelSize: 14
                color: "#ececf0"
                elide: Text.ElideMiddle
            }
            Label {
                Layout.fillWidth: true
                text: row.folder
                font.pixelSize: 11
                color: "#80838c"
                elide: Text.ElideMiddle
            }
        }
        ColumnLayout {
            Layout.preferredWidth: 96
            spacing: 4
            visible: row.progress > 0
            Label {
                Layout.alignment: Qt.AlignRight
                text: qsTr("Watched") + " " + Math.round(row.progress * 100) + "%"
                font.pixelSize: 11
                color: "#a0a3ad"
            }
            ProgressBar {
                Layout.fillWidth: true
                Layout.preferredHeight: 4
                value: row.progress
            }
        }
    }
}
