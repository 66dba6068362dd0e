import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A settings row whose control is a small segmented choice.
SettingsRow {
    id: row
    // [{ value, label }]
    property var options: []
    property var current
    signal chosen(var value)

    Row {
        spacing: 0
        Repeater {
            model: row.options
            delegate: AbstractButton {
                id: segment
                required property var modelData
                required property int index
                readonly property bool selected: modelData.value === row.current
                text: modelData.label
                focusPolicy: Qt.StrongFocus
                hoverEnabled: true
                enabled: row.enabled
                implicitHeight: 28
                implicitWidth: Math.max(64, label.implicitWidth + 22)
                Accessible.role: Accessible.RadioButton
                Accessible.name: row.title + ": " + text
                Accessible.checkable: true
                Accessible.checked: selected
                // Qt 6.8 offers a radio button's toggle action where Qt 6.4 offered press.
                Accessible.onPressAction: row.chosen(modelData.value)
                Accessible.onToggleAction: row.chosen(modelData.value)
                onClicked: row.chosen(modelData.value)
                Keys.onReturnPressed: row.chosen(modelData.value)
                background: Rectangle {
                    radius: 7
                    color: segment.selected ? row.theme.accent
                                            : segment.hovered ? row.theme.divider : "transparent"
                    border.width: segment.visualFocus ? 2 : 1
                    border.color: segment.visualFocus ? row.theme.text : row.theme.divider
                }
                contentItem: Text {
                    id: label
                    text: segment.text
                    color: segment.selected ? row.theme.onAccent : row.theme.text
                    font.pixelSize: 12
                    horizontalAlignment: Text.AlignHCenter
                    verticalAlignment: Text.AlignVCenter
                }
            }
        }
    }
}
