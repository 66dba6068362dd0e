import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The theme, and the on-screen keys.
SettingsScroll {
    id: page
    required property var settings
    required property var typing
    required property var kits
    required property var mixes
    required property var models

    title: "Look"
    subtitle: "Theme, and the on-screen keys."

    SettingsSection {
        theme: page.theme
        title: "Theme"

        GridLayout {
            id: swatches
            columns: 5
            rowSpacing: 12
            columnSpacing: 10
            Layout.fillWidth: true
            Layout.margins: 12

            Repeater {
                model: page.theme.palettes.concat([{ id: "custom", name: "Custom",
                    background: page.theme.customBackground, text: page.theme.customText,
                    accent: page.theme.customAccent }])
                delegate: AbstractButton {
                    id: swatch
                    required property var modelData
                    readonly property bool selected: page.theme.selectedID === modelData.id
                    focusPolicy: Qt.StrongFocus
                    hoverEnabled: true
                    implicitWidth: 96
                    implicitHeight: 78
                    Layout.fillWidth: true
                    Accessible.role: Accessible.RadioButton
                    Accessible.name: modelData.name
                    Accessible.checkable: true
                    Accessible.checked: selected
                    Accessible.onPressAction: page.theme.selectedID = modelData.id
                    Accessible.onToggleAction: page.theme.selectedID = modelData.id
                    onClicked: page.theme.selectedID = modelData.id
                    Keys.onReturnPressed: page.theme.selectedID = modelData.id
                    background: Item {}
                    contentItem: ColumnLayout {
                        spacing: 5
                        Rectangle {
                            Layout.fillWidth: true
                            Layout.preferredHeight: 52
                            radius: 10
                            color: swatch.modelData.background
                            border.width: swatch.selected || swatch.visualFocus ? 2 : 1
                            border.color: swatch.selected ? page.theme.accent
                                        : swatch.visualFocus ? page.theme.text : page.theme.divider
                            Text {
                                anchors.left: parent.left
                                anchors.leftMargin: 10
                                anchors.verticalCenter: parent.verticalCenter
                                text: "Aa"
                                color: swatch.modelData.text
                                font.pixelSize: 17
                                font.bold: true
                            }
                            Rectangle {
                                anchors.right: parent.right
                                anchors.rightMargin: 10
                                anchors.verticalCenter: parent.verticalCenter
                                width: 16
                                height: 16
                                radius: 8
                                color: swatch.modelData.accent
                            }
                        }
                        Text {
                            text: swatch.modelData.name
                            color: swatch.selected ? page.theme.text : page.theme.mutedText
                            font.pixelSize: 11
                            font.weight: swatch.selected ? Font.DemiBold : Font.Normal
                            Layout.alignment: Qt.AlignHCenter
                        }
                    }
                }
            }
        }

        SettingsRow {
            theme: page.theme
            title: "Custom"
            note: "Cards, dividers and muted text are derived from these three"
            RowLayout {
                spacing: 10
                ColorWell {
                    theme: page.theme
                    label: "Background"
                    value: page.theme.customBackground
                    onPicked: hex => page.pickCustom(hex, page.theme.customText, page.theme.customAccent)
                }
                ColorWell {
                    theme: page.theme
                    label: "Text"
                    value: page.theme.customText
                    onPicked: hex => page.pickCustom(page.theme.customBackground, hex, page.theme.customAccent)
                }
                ColorWell {
                    theme: page.theme
                    label: "Accent"
                    value: page.theme.customAccent
                    onPicked: hex => page.pickCustom(page.theme.customBackground, page.theme.customText, hex)
                }
            }
        }
    }

    SettingsSection {
        theme: page.theme
        title: "On-screen keys"
        SwitchRow {
            first: true
            theme: page.theme
            title: "Cast my keys on screen"
            note: "A floating, click-through overlay, made for demos and recordings"
            on: page.settings.visualizerEnabled
            onFlipped: value => page.settings.visualizerEnabled = value
        }
        SwitchRow {
            theme: page.theme
            enabled: page.settings.visualizerEnabled
            title: "Hide plain typing; show ⌘-combos"
            on: page.settings.visualizerShortcutsOnly
            onFlipped: value => page.settings.visualizerShortcutsOnly = value
        }
        ChoiceRow {
            theme: page.theme
            enabled: page.settings.visualizerEnabled
            title: "Size"
            options: [{ value: "small", label: "Small" }, { value: "medium", label: "Medium" },
                      { value: "large", label: "Large" }]
            current: page.settings.visualizerSize
            onChosen: value => page.settings.visualizerSize = value
        }
        ChoiceRow {
            theme: page.theme
            enabled: page.settings.visualizerEnabled
            title: "Position"
            options: [{ value: "bottomLeft", label: "Bottom left" },
                      { value: "bottomCenter", label: "Bottom centre" },
                      { value: "bottomRight", label: "Bottom right" },
                      { value: "topRight", label: "Top right" }]
            current: page.settings.visualizerPosition
            onChosen: value => page.settings.visualizerPosition = value
        }
        SettingsRow {
            theme: page.theme
            title: "Type anywhere to see it. The overlay floats above every app and never catches your clicks."
        }
    }

    // Editing a colour makes the custom theme the one in use.
    function pickCustom(background, text, accent) {
        page.theme.setCustomColors(background, text, accent)
        page.theme.selectedID = "custom"
    }
}
