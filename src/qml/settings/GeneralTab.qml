pragma ComponentBehavior: Bound

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quorvane.Settings

// "General": the interface language. Each language is listed under its own name, and a choice
// is stored at once, re-labelling every open window.
Item {
    id: root

    required property AppSettings settings

    function tr(key: string): string {
        return root.settings.language.length >= 0 ? root.settings.text(key) : key
    }

    RowLayout {
        anchors.centerIn: parent
        spacing: 12

        Label {
            objectName: "interfaceLanguageLabel"
            text: root.tr("Interface Language")
        }

        ComboBox {
            objectName: "languagePicker"
            Layout.preferredWidth: 180
            model: root.settings.supportedLanguages
            currentIndex: root.settings.languageIndex
            displayText: root.settings.languageName(currentText)
            Accessible.name: root.tr("Interface Language")
            delegate: ItemDelegate {
                required property string modelData
                required property int index
                width: ListView.view.width
                text: root.settings.languageName(modelData)
                highlighted: ListView.isCurrentItem
            }
            onActivated: index => root.settings.language = root.settings.supportedLanguages[index]
        }
    }
}
