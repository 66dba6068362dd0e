import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Shows the sounds shortcut; press it, then type a new combination. Escape cancels.
ColumnLayout {
    id: recorder
    required property var theme
    required property var settings
    required property var behaviour
    property bool recording: false
    property string hint

    spacing: 4

    RowLayout {
        spacing: 6
        Layout.alignment: Qt.AlignRight
        AbstractButton {
            id: field
            focusPolicy: Qt.StrongFocus
            hoverEnabled: true
            implicitWidth: 170
            implicitHeight: 30
            text: recorder.recording ? "Type a shortcut…"
                                     : (recorder.settings.toggleSoundsShortcut || "Off")
            Accessible.role: Accessible.Button
            Accessible.name: "Toggle keystroke sounds: " + text
            Accessible.onPressAction: recorder.start()
            onClicked: recorder.start()
            onActiveFocusChanged: if (!activeFocus) recorder.stop()
            Keys.onPressed: event => {
                if (!recorder.recording) {
                    if (event.key === Qt.Key_Return || event.key === Qt.Key_Space) {
                        recorder.start()
                        event.accepted = true
                    }
                    return
                }
                event.accepted = true
                if (event.key === Qt.Key_Escape && event.modifiers === Qt.NoModifier) {
                    recorder.stop()
                    return
                }
                const result = recorder.behaviour.recordShortcut(event.key, event.modifiers)
                if (result.text !== undefined)
                    recorder.stop()
                else if (result.problem !== undefined)
                    recorder.hint = result.problem
            }
            background: Rectangle {
                radius: 8
                color: recorder.recording ? recorder.theme.background : recorder.theme.card
                border.width: field.visualFocus || recorder.recording ? 2 : 1
                border.color: recorder.recording ? recorder.theme.accent : recorder.theme.divider
            }
            contentItem: Text {
                text: field.text
                color: recorder.recording ? recorder.theme.mutedText : recorder.theme.text
                font.pixelSize: 12
                font.family: "monospace"
                horizontalAlignment: Text.AlignHCenter
                verticalAlignment: Text.AlignVCenter
            }
        }
        ThemedButton {
            theme: recorder.theme
            text: "Reset"
            implicitWidth: 64
            visible: !recorder.recording && recorder.settings.toggleSoundsShortcut !== "Ctrl+Super+K"
            Accessible.name: "Reset the shortcut to Ctrl+Super+K"
            onClicked: recorder.settings.toggleSoundsShortcut = "Ctrl+Super+K"
        }
    }
    Text {
        visible: recorder.recording
        text: recorder.hint || "Press the keys together. Escape cancels."
        color: recorder.hint ? recorder.theme.accent : recorder.theme.mutedText
        font.pixelSize: 11
        wrapMode: Text.WordWrap
        horizontalAlignment: Text.AlignRight
        Layout.preferredWidth: 250
        Layout.alignment: Qt.AlignRight
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }

    function start() {
        hint = ""
        recording = true
        resume.stop()
        behaviour.setRecording(true)
        field.forceActiveFocus()
    }
    function stop() {
        recording = false
        hint = ""
        // The keys of the new combination are still down: listen again once they are up.
        resume.restart()
    }

    Timer {
        id: resume
        interval: 800
        onTriggered: recorder.behaviour.setRecording(false)
    }
}
