import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// "Record my keyboard": name the kit, press Record, type the keys it asks for. The
// level meter and the outline of the last second follow the microphone; Tappix's own
// sounds stay quiet meanwhile, and the kit is cut and saved in the background.
Card {
    id: card
    required property var recorder
    signal controlFocused(var item)

    implicitHeight: recordColumn.implicitHeight + 32
    Accessible.role: Accessible.Grouping
    Accessible.name: "Record my keyboard"

    ColumnLayout {
        id: recordColumn
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12

        Text {
            text: "Record my keyboard"
            color: card.theme.text
            font.pixelSize: 15
            font.weight: Font.DemiBold
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }
        Text {
            text: "Type the keys it asks for near your microphone; each press and release becomes a sound of your own kit."
            color: card.theme.mutedText
            font.pixelSize: 12
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }

        RowLayout {
            spacing: 10
            Layout.fillWidth: true
            TextField {
                id: recordName
                text: card.recorder.name
                enabled: !card.recorder.busy
                placeholderText: "Name"
                placeholderTextColor: card.theme.mutedText
                color: card.theme.text
                selectionColor: card.theme.accent
                selectedTextColor: card.theme.onAccent
                font.pixelSize: 13
                maximumLength: 60
                implicitHeight: 34
                leftPadding: 10
                Layout.fillWidth: true
                Accessible.name: "Recorded kit name"
                onTextEdited: card.recorder.name = text
                onAccepted: card.recorder.start()
                onActiveFocusChanged: if (activeFocus) card.controlFocused(this)
                background: Rectangle {
                    radius: 8
                    color: card.theme.background
                    border.width: recordName.activeFocus ? 2 : 1
                    border.color: recordName.activeFocus ? card.theme.accent : card.theme.divider
                }
            }
            DesignerButton {
                theme: card.theme
                primary: !card.recorder.busy
                text: card.recorder.state === "recording" ? "Finish" : "Record"
                enabled: card.recorder.state !== "saving" && card.recorder.state !== "listening"
                         && recordName.text.trim() !== ""
                onClicked: card.recorder.state === "recording" ? card.recorder.finish()
                                                               : card.recorder.start()
                onActiveFocusChanged: if (activeFocus) card.controlFocused(this)
            }
            DesignerButton {
                theme: card.theme
                text: "Cancel"
                visible: card.recorder.state === "recording" || card.recorder.state === "listening"
                onClicked: card.recorder.cancel()
                onActiveFocusChanged: if (activeFocus) card.controlFocused(this)
            }
        }

        Text {
            text: card.recorder.prompt
            visible: text !== ""
            color: card.theme.text
            font.pixelSize: 18
            font.weight: Font.DemiBold
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }

        // The microphone's level, loudest since the last look.
        Rectangle {
            id: meter
            Layout.fillWidth: true
            Layout.preferredHeight: 8
            radius: 4
            color: card.theme.background
            border.color: card.theme.divider
            border.width: 1
            Accessible.role: Accessible.ProgressBar
            Accessible.name: "Microphone level"
            Accessible.description: Math.round(card.recorder.level * 100) + " per cent"
            Rectangle {
                anchors.left: parent.left
                anchors.top: parent.top
                anchors.bottom: parent.bottom
                width: parent.width * Math.min(1, Math.sqrt(card.recorder.level))
                radius: 4
                color: card.theme.accent
            }
        }

        DesignerWaveform {
            theme: card.theme
            peaks: card.recorder.waveform
            label: "Waveform of the last second recorded"
            Layout.fillWidth: true
            Layout.preferredHeight: 64
        }

        RowLayout {
            spacing: 8
            visible: card.recorder.busy || card.recorder.status !== ""
            Layout.fillWidth: true
            DesignerBusy {
                theme: card.theme
                running: card.recorder.state === "saving"
                visible: running
            }
            Text {
                text: card.recorder.status
                color: card.recorder.state === "failed" ? card.theme.accent : card.theme.mutedText
                font.pixelSize: 12
                wrapMode: Text.WordWrap
                Layout.fillWidth: true
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
        }
    }
}
