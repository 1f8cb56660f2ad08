import QtQuick
import QtQuick.Controls
import QtQuick.Window
import Quorvane.Settings

// The notices of the libraries the program runs on, shipped with it in each interface language.
ApplicationWindow {
    id: root

    required property AppSettings settings

    function tr(key: string): string {
        return root.settings.language.length >= 0 ? root.settings.text(key) : key
    }

    title: tr("Third-party notices")
    width: 560
    height: 520
    visible: true

    ScrollView {
        anchors.fill: parent

        TextArea {
            objectName: "noticesText"
            readOnly: true
            selectByMouse: true
            wrapMode: TextEdit.Wrap
            textFormat: TextEdit.MarkdownText
            text: root.settings.thirdPartyNotices
            leftPadding: 20
            rightPadding: 20
            topPadding: 16
            bottomPadding: 16
            background: null
            onLinkActivated: link => Qt.openUrlExternally(link)
        }
    }
}
