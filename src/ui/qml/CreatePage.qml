import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Headings are Text, not Label: Qt 6.4 reports a Label as a plain label whatever
// role it is given.
// The Create page: design a switch from five numbers, hear it, save it as a kit of
// your own; or record your own keyboard into one; then tune whichever kit is playing.
Flickable {
    id: page
    required property var settings
    required property var theme
    required property var typing
    required property var kits
    required property var mixes
    required property var models
    readonly property var designer: models.designer
    readonly property var tuner: models.tuner
    readonly property var recorder: models.recorder

    contentHeight: column.implicitHeight + 8
    clip: true
    boundsBehavior: Flickable.StopAtBounds
    ScrollBar.vertical: ScrollBar { policy: ScrollBar.AsNeeded }

    // Keeps the control that takes the keyboard in sight.
    function reveal(item) {
        const top = item.mapToItem(column, 0, 0).y
        if (top < contentY)
            contentY = Math.max(top - 12, 0)
        else if (top + item.height > contentY + height)
            contentY = Math.min(top + item.height + 12 - height, Math.max(contentHeight - height, 0))
    }

    ColumnLayout {
        id: column
        width: page.width - 12
        spacing: 16

        PageHeader {
            theme: page.theme
            title: "Create"
            subtitle: "Design a switch of your own."
            Layout.fillWidth: true
        }

        Card {
            theme: page.theme
            Layout.fillWidth: true
            implicitHeight: designColumn.implicitHeight + 32
            Accessible.role: Accessible.Grouping
            Accessible.name: "Switch designer"

            ColumnLayout {
                id: designColumn
                anchors.fill: parent
                anchors.margins: 16
                spacing: 12

                Text {
                    text: "Design your own switch"
                    color: page.theme.text
                    font.pixelSize: 15
                    font.weight: Font.DemiBold
                    Accessible.role: Accessible.Heading
                    Accessible.name: text
                }
                Text {
                    text: "Shape a keystroke, preview it, save it as a pack."
                    color: page.theme.mutedText
                    font.pixelSize: 12
                    wrapMode: Text.WordWrap
                    Layout.fillWidth: true
                    Layout.topMargin: -8
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }

                Flow {
                    spacing: 8
                    Layout.fillWidth: true
                    Text {
                        text: "Start from"
                        color: page.theme.mutedText
                        font.pixelSize: 12
                        height: 28
                        verticalAlignment: Text.AlignVCenter
                        Accessible.role: Accessible.StaticText
                        Accessible.name: text
                    }
                    Repeater {
                        model: page.designer.presets
                        delegate: DesignerButton {
                            required property string modelData
                            required property int index
                            theme: page.theme
                            chip: true
                            chosen: page.designer.presetIndex === index
                            text: modelData
                            Accessible.name: "Preset " + modelData + (chosen ? ", chosen" : "")
                            onClicked: page.designer.applyPreset(index)
                            onActiveFocusChanged: if (activeFocus) page.reveal(this)
                        }
                    }
                }

                DesignerWaveform {
                    theme: page.theme
                    peaks: page.designer.waveform
                    Layout.fillWidth: true
                    Layout.preferredHeight: 84
                }

                DesignerSlider {
                    theme: page.theme
                    label: "Depth"
                    lowWord: "thocky"
                    highWord: "poppy"
                    range: page.designer.ranges.bodyHz
                    level: page.designer.bodyHz
                    valueText: Math.round(page.designer.bodyHz) + " Hz"
                    Layout.fillWidth: true
                    onMoved: value => page.designer.bodyHz = value
                    slider.onActiveFocusChanged: if (slider.activeFocus) page.reveal(this)
                }
                DesignerSlider {
                    theme: page.theme
                    label: "Click"
                    lowWord: "soft"
                    highWord: "sharp"
                    range: page.designer.ranges.click
                    level: page.designer.click
                    valueText: Math.round(page.designer.click * 100) + "%"
                    Layout.fillWidth: true
                    onMoved: value => page.designer.click = value
                    slider.onActiveFocusChanged: if (slider.activeFocus) page.reveal(this)
                }
                DesignerSlider {
                    theme: page.theme
                    label: "Sustain"
                    lowWord: "tight"
                    highWord: "ringy"
                    range: page.designer.ranges.decayMs
                    level: page.designer.decayMs
                    valueText: page.designer.decayMs.toFixed(1) + " ms"
                    Layout.fillWidth: true
                    onMoved: value => page.designer.decayMs = value
                    slider.onActiveFocusChanged: if (slider.activeFocus) page.reveal(this)
                }
                DesignerSlider {
                    theme: page.theme
                    label: "Tone"
                    lowWord: "dark"
                    highWord: "bright"
                    range: page.designer.ranges.toneHz
                    level: page.designer.toneHz
                    valueText: (page.designer.toneHz / 1000).toFixed(1) + " kHz"
                    Layout.fillWidth: true
                    onMoved: value => page.designer.toneHz = value
                    slider.onActiveFocusChanged: if (slider.activeFocus) page.reveal(this)
                }

                ThemedSwitch {
                    theme: page.theme
                    text: "Clicky resonance"
                    on: page.designer.clicky
                    leftPadding: 0
                    rightPadding: 0
                    Layout.fillWidth: true
                    onFlipped: value => page.designer.clicky = value
                    onActiveFocusChanged: if (activeFocus) page.reveal(this)
                }

                Rectangle {
                    color: page.theme.divider
                    Layout.fillWidth: true
                    Layout.preferredHeight: 1
                }

                Text {
                    text: "Pack name"
                    color: page.theme.text
                    font.pixelSize: 13
                    Layout.bottomMargin: -6
                    // The field below carries the same name for a screen reader.
                    Accessible.ignored: true
                }
                RowLayout {
                    spacing: 10
                    Layout.fillWidth: true

                    TextField {
                        id: nameField
                        text: page.designer.name
                        placeholderText: "My switch"
                        placeholderTextColor: page.theme.mutedText
                        color: page.theme.text
                        selectionColor: page.theme.accent
                        selectedTextColor: page.theme.onAccent
                        font.pixelSize: 13
                        maximumLength: 60
                        implicitHeight: 34
                        leftPadding: 10
                        Layout.fillWidth: true
                        Accessible.name: "Pack name"
                        onTextEdited: page.designer.name = text
                        onAccepted: page.designer.save()
                        onActiveFocusChanged: if (activeFocus) page.reveal(this)
                        background: Rectangle {
                            radius: 8
                            color: page.theme.background
                            border.width: nameField.activeFocus ? 2 : 1
                            border.color: nameField.activeFocus ? page.theme.accent : page.theme.divider
                        }
                    }
                    DesignerButton {
                        theme: page.theme
                        text: "Preview"
                        onClicked: page.designer.preview()
                        onActiveFocusChanged: if (activeFocus) page.reveal(this)
                    }
                    DesignerButton {
                        theme: page.theme
                        primary: true
                        text: "Save"
                        enabled: page.designer.canSave
                        onClicked: page.designer.save()
                        onActiveFocusChanged: if (activeFocus) page.reveal(this)
                    }
                }

                RowLayout {
                    spacing: 8
                    visible: page.designer.busy || page.designer.status !== ""
                    Layout.fillWidth: true
                    DesignerBusy {
                        theme: page.theme
                        running: page.designer.busy
                        visible: running
                    }
                    Text {
                        text: page.designer.status
                        color: page.designer.status.startsWith("Could not") ? page.theme.accent
                                                                             : page.theme.mutedText
                        font.pixelSize: 12
                        wrapMode: Text.WordWrap
                        Layout.fillWidth: true
                        Accessible.role: Accessible.StaticText
                        Accessible.name: text
                    }
                }
            }
        }

        RecorderCard {
            objectName: "recorderCard"
            theme: page.theme
            recorder: page.recorder
            Layout.fillWidth: true
            onControlFocused: item => page.reveal(item)
        }

        TunerCard {
            theme: page.theme
            tuner: page.tuner
            Layout.fillWidth: true
            onControlFocused: item => page.reveal(item)
        }
    }
}
