import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Headings are Text, not Label: Qt 6.4 reports a Label as a plain label whatever
// role it is given.
// The main kit's tuning: pitch, gain, pitch variation and stereo width, with the
// values shown and a way back to how the kit came.
Card {
    id: card
    required property var tuner
    signal controlFocused(var item)

    implicitHeight: tunerColumn.implicitHeight + 32
    Accessible.role: Accessible.Grouping
    Accessible.name: "Tuner"

    ColumnLayout {
        id: tunerColumn
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12

        RowLayout {
            spacing: 10
            Layout.fillWidth: true
            ColumnLayout {
                spacing: 2
                Layout.fillWidth: true
                Text {
                    text: "Tune the playing pack"
                    color: card.theme.text
                    font.pixelSize: 15
                    font.bold: true
                    Accessible.role: Accessible.Heading
                    Accessible.name: text
                }
                Text {
                    text: card.tuner.hasKit ? card.tuner.kitName : "No pack is chosen."
                    color: card.theme.mutedText
                    font.pixelSize: 12
                    elide: Text.ElideRight
                    Layout.fillWidth: true
                    Accessible.role: Accessible.StaticText
                    Accessible.name: "Pack: " + text
                }
            }
            DesignerButton {
                theme: card.theme
                text: "Reset"
                enabled: card.tuner.hasKit && !card.tuner.isIdentity
                Accessible.name: "Reset tuning"
                onClicked: card.tuner.reset()
                onActiveFocusChanged: if (activeFocus) card.controlFocused(this)
            }
        }

        DesignerSlider {
            theme: card.theme
            label: "Pitch"
            lowWord: "low"
            highWord: "high"
            range: card.tuner.ranges.pitch
            level: card.tuner.pitch
            valueText: card.tuner.pitch.toFixed(2) + "×"
            enabled: card.tuner.hasKit
            Layout.fillWidth: true
            onMoved: value => card.tuner.pitch = value
            slider.onActiveFocusChanged: if (slider.activeFocus) card.controlFocused(this)
        }
        DesignerSlider {
            theme: card.theme
            label: "Gain"
            lowWord: "quiet"
            highWord: "loud"
            range: card.tuner.ranges.gain
            level: card.tuner.gain
            valueText: Math.round(card.tuner.gain * 100) + "%"
            enabled: card.tuner.hasKit
            Layout.fillWidth: true
            onMoved: value => card.tuner.gain = value
            slider.onActiveFocusChanged: if (slider.activeFocus) card.controlFocused(this)
        }
        DesignerSlider {
            theme: card.theme
            label: "Variation"
            lowWord: "steady"
            highWord: "loose"
            range: card.tuner.ranges.variation
            level: card.tuner.variation
            valueText: "±" + (card.tuner.variation * 100).toFixed(1) + "%"
            enabled: card.tuner.hasKit
            Layout.fillWidth: true
            onMoved: value => card.tuner.variation = value
            slider.onActiveFocusChanged: if (slider.activeFocus) card.controlFocused(this)
        }
        DesignerSlider {
            theme: card.theme
            label: "Pan width"
            lowWord: "narrow"
            highWord: "wide"
            range: card.tuner.ranges.panWidth
            level: card.tuner.panWidth
            valueText: Math.round(card.tuner.panWidth * 100) + "%"
            enabled: card.tuner.hasKit
            Layout.fillWidth: true
            onMoved: value => card.tuner.panWidth = value
            slider.onActiveFocusChanged: if (slider.activeFocus) card.controlFocused(this)
        }

        Text {
            text: card.tuner.hint
            color: card.theme.mutedText
            font.pixelSize: 12
            font.italic: true
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
    }
}
