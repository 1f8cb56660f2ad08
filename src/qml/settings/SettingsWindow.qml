pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window
import Quorvane.Settings

// The settings window: language, feedback, about and updates. Always 560 wide; its height
// follows the tab on show. The selected tab lives only as long as the window.
ApplicationWindow {
    id: root

    required property AppSettings settings

    // General, Feedback, About • Update.
    readonly property list<int> tabHeights: [220, 560, 310]
    readonly property int tabHeight: tabHeights[tabs.currentIndex]

    // Reading `language` makes every binding that calls this follow a change of language.
    function tr(key: string): string {
        return root.settings.language.length >= 0 ? root.settings.text(key) : key
    }

    // The height is fixed to the tab's. The bounds are opened before each resize, so that a
    // window manager never clamps the new height to the old tab's bounds.
    function fitTab() {
        root.minimumHeight = 0
        root.maximumHeight = 16777215
        root.height = root.tabHeight
        root.minimumHeight = root.tabHeight
        root.maximumHeight = root.tabHeight
    }

    title: tr("Settings")
    width: 560
    height: tabHeights[0]
    minimumWidth: 560
    maximumWidth: 560
    onTabHeightChanged: fitTab()
    Component.onCompleted: fitTab()

    TabBar {
        id: tabs
        objectName: "settingsTabs"
        anchors.left: parent.left
        anchors.right: parent.right

        TabButton {
            objectName: "generalTab"
            text: root.tr("General")
        }
        TabButton {
            objectName: "feedbackTab"
            text: root.tr("Feedback")
        }
        TabButton {
            objectName: "aboutTab"
            text: root.tr("About • Update")
            icon.name: "help-about"
        }
    }

    StackLayout {
        anchors.top: tabs.bottom
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        currentIndex: tabs.currentIndex

        GeneralTab {
            settings: root.settings
        }
        FeedbackView {
            settings: root.settings
            feedback: root.settings.feedback
        }
        AboutTab {
            settings: root.settings
        }
    }
}
