import QtQuick
import Quorvane
import QtQuick.Controls
import QtQuick.Layouts
import Quorvane.Models

// Stands in for the settings window: only the interface language for now.
ApplicationWindow {
    id: settings

    required property Localizer localizer

    title: qsTr("Settings")
    width: 420
    height: 200
    visible: true

    RowLayout {
        anchors.centerIn: parent
        width: parent.width - 48
        Label {
            Layout.fillWidth: true
            text: qsTr("Interface Language")
            elide: Text.ElideRight
        }
        ComboBox {
            model: ["English", "简体中文"]
            currentIndex: settings.localizer.language === "zh-Hans" ? 1 : 0
            onActivated: index => settings.localizer.language = index === 1 ? "zh-Hans" : "en"
        }
    }
}
