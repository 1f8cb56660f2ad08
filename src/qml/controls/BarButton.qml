import QtQuick
import Quorvane
import QtQuick.Controls

// A round icon button of the controls bar. It never takes the keyboard focus, so the arrow keys
// stay with the picture.
ToolButton {
    id: button

    property int iconSize: 20
    // A button whose menu is open shows no tool tip over it.
    property bool popupOpen: false

    display: AbstractButton.IconOnly
    focusPolicy: Qt.NoFocus
    icon.width: iconSize
    icon.height: iconSize
    icon.color: enabled ? "#f4f4f6" : "#6b6e76"
    implicitWidth: 38
    implicitHeight: 38
    padding: 0

    ToolTip.visible: hovered && !popupOpen && text !== ""
    ToolTip.delay: 600
    ToolTip.text: text

    background: Rectangle {
        radius: width / 2
        color: button.down ? Qt.rgba(1, 1, 1, 0.22) : button.hovered ? Qt.rgba(1, 1, 1, 0.12) : "transparent"
    }
}
