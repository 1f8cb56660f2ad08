import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quorvane.Settings

// The feedback form: a message, an optional reply address, sending, and copying the privacy-safe
// diagnostic report for a support e-mail.
Item {
    id: root

    required property AppSettings settings
    required property FeedbackController feedback

    function tr(key: string): string {
        return root.settings.language.length >= 0 ? root.settings.text(key) : key
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 8

        Label {
            text: root.tr("Send Feedback")
            font.bold: true
            font.pixelSize: 17
        }
        Label {
            id: intro
            Layout.fillWidth: true
            text: root.tr("Tell us what happened or share a suggestion.")
            wrapMode: Text.Wrap
        }

        ScrollView {
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.minimumHeight: 90
            // Drawn from the text colour, so the box reads on the style's light or dark ground.
            background: Rectangle {
                color: Qt.rgba(intro.color.r, intro.color.g, intro.color.b, 0.06)
                border.color: Qt.rgba(intro.color.r, intro.color.g, intro.color.b, 0.3)
                radius: 2
            }

            TextArea {
                objectName: "messageEditor"
                text: root.feedback.message
                placeholderText: root.tr("Your feedback")
                wrapMode: TextEdit.Wrap
                onTextChanged: root.feedback.message = text
            }
        }

        TextField {
            objectName: "emailField"
            Layout.fillWidth: true
            text: root.feedback.email
            placeholderText: root.tr("Reply email (optional)")
            inputMethodHints: Qt.ImhEmailCharactersOnly
            onTextEdited: root.feedback.email = text
        }

        Label {
            Layout.fillWidth: true
            text: root.tr("Your message, the optional reply email and the app version are sent to the developers. Do not include passwords.")
            wrapMode: Text.Wrap
            font.pixelSize: 11
            opacity: 0.7
        }

        RowLayout {
            spacing: 8

            Button {
                objectName: "sendButton"
                text: root.tr("Send")
                enabled: root.feedback.canSend
                onClicked: root.feedback.send()
            }
            BusyIndicator {
                Layout.preferredHeight: 24
                Layout.preferredWidth: 24
                running: root.feedback.sending
                visible: running
            }
            Label {
                objectName: "sendOutcome"
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                color: {
                    if (root.feedback.succeeded)
                        return "#2e7d32"
                    return root.feedback.failure !== "" ? "#c62828" : intro.color
                }
                visible: text !== ""
                text: {
                    if (!root.feedback.sendingAvailable)
                        return root.tr("Sending feedback is unavailable in this build.")
                    if (root.feedback.failure !== "")
                        return root.tr(root.feedback.failure) + root.feedback.failureDetail
                    if (root.feedback.succeeded)
                        return root.tr("Thanks! Your feedback was sent.")
                    return ""
                }
            }
        }

        MenuSeparator {
            Layout.fillWidth: true
        }

        Label {
            Layout.fillWidth: true
            text: root.tr("Recent technical events can be copied into feedback or a support email. Media names and paths are excluded.")
            wrapMode: Text.Wrap
            font.pixelSize: 11
            opacity: 0.7
        }

        RowLayout {
            spacing: 8

            Button {
                objectName: "copyButton"
                text: root.tr("Copy Diagnostic Log")
                onClicked: root.feedback.copyDiagnosticLog()
            }
            Label {
                objectName: "copyOutcome"
                text: {
                    switch (root.feedback.copyOutcome) {
                    case FeedbackController.Copied:
                        return root.tr("Diagnostic log copied")
                    case FeedbackController.Refused:
                        return root.tr("Unable to copy diagnostic log")
                    default:
                        return ""
                    }
                }
            }
        }
    }
}
