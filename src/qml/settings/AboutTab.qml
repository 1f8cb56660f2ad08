pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import QtQuick.Controls.Material
import QtQuick.Layouts
import QtQuick.Window
import Quorvane.Settings

// "About • Update": the program's name, version and notes, the third-party notices, and what is
// known about updates.
Item {
    id: root

    required property AppSettings settings

    // The Mac builds keep the texts that name the Mac; every other build shows neutral ones.
    readonly property bool mac: Qt.platform.os === "osx"

    function tr(key: string): string {
        return root.settings.language.length >= 0 ? root.settings.text(key) : key
    }

    ColumnLayout {
        anchors.centerIn: parent
        width: parent.width - 48
        spacing: 4

        Image {
            Layout.alignment: Qt.AlignHCenter
            Layout.preferredWidth: 64
            Layout.preferredHeight: 64
            source: "qrc:/icons/quorvane-player.svg"
            sourceSize.width: 128
            sourceSize.height: 128
            fillMode: Image.PreserveAspectFit
        }
        Label {
            Layout.alignment: Qt.AlignHCenter
            text: "Quorvane Player"
            font.bold: true
            font.pixelSize: 20
        }
        Label {
            id: versionLine
            objectName: "versionLabel"
            Layout.alignment: Qt.AlignHCenter
            text: root.tr("Version") + " " + root.settings.version
        }

        Repeater {
            model: [root.mac ? "A local video and audio player for Mac."
                             : "A local video and audio player.",
                "Independently developed for a focused viewing experience.",
                root.mac ? "Supported formats depend on macOS. External subtitles are not supported in this version."
                         : "Supported formats depend on the installed media framework. Subtitle files (SRT, ASS, SSA, WebVTT) can be loaded from the Subtitles menu."]

            Label {
                required property string modelData
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                text: root.tr(modelData)
                font.pixelSize: 11
                opacity: 0.7
            }
        }

        Label {
            objectName: "noticesLink"
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 4
            textFormat: Text.StyledText
            text: "<a href=\"notices\">" + root.tr("Third-party notices") + "</a>"
            linkColor: Material.accentColor
            onLinkActivated: notices.open()

            HoverHandler {
                cursorShape: Qt.PointingHandCursor
            }
        }

        // The update area.
        Button {
            objectName: "checkForUpdatesButton"
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 6
            visible: root.settings.hasUpdater
            text: root.tr("Check for Updates…")
            onClicked: root.settings.checkForUpdates()
        }
        Label {
            objectName: "updateLine"
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 6
            readonly property bool newVersion: root.settings.hasUpdater && root.settings.updateNotice.available
            visible: text !== ""
            color: newVersion ? "#d32f2f" : versionLine.color
            text: {
                if (!root.settings.hasUpdater)
                    return root.tr("Update checks are unavailable in this build.")
                return newVersion ? root.tr("A new version is available") : ""
            }
        }
    }

    // The notices window, made when first asked for and dropped when closed.
    Loader {
        id: notices
        objectName: "noticesLoader"

        function open() {
            if (item)
                (item as Window).raise()
            else
                setSource("ThirdPartyNoticesWindow.qml", {settings: root.settings})
        }

        Connections {
            target: notices.item as Window
            function onClosing() {
                notices.source = ""
            }
        }
    }
}
