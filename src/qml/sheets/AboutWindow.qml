import QtQuick
import Quorvane
import QtQuick.Controls
import QtQuick.Layouts

// The About window: name, version and what the player is.
ApplicationWindow {
    id: about

    title: qsTr("About Quorvane Player")
    width: 380
    height: 240
    minimumWidth: 320
    minimumHeight: 200
    visible: true
    flags: Qt.Dialog

    ColumnLayout {
        anchors.centerIn: parent
        width: parent.width - 48
        spacing: 8
        Label {
            Layout.alignment: Qt.AlignHCenter
            text: "Quorvane Player"
            font.pixelSize: 22
            font.weight: Font.DemiBold
        }
        Label {
            objectName: "aboutVersion"
            Layout.alignment: Qt.AlignHCenter
            text: qsTr("Version") + " " + Qt.application.version
            opacity: 0.8
        }
        Label {
            Layout.fillWidth: true
            text: qsTr("A local video and audio player.")
            wrapMode: Text.WordWrap
            horizontalAlignment: Text.AlignHCenter
            opacity: 0.8
        }
        Button {
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 8
            text: qsTr("OK")
            onClicked: about.close()
        }
    }
}
