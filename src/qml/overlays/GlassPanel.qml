import QtQuick
import Quorvane

// The translucent "glass" every overlay and the controls bar share: dark, slightly see-through,
// rounded, with a faint light edge.
Rectangle {
    radius: 16
    color: Qt.rgba(0.07, 0.07, 0.09, 0.78)
    border.width: 1
    border.color: Qt.rgba(1, 1, 1, 0.09)
}
