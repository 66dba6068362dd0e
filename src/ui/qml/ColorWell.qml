import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts

// One editable colour of the custom theme: a swatch that opens the colour dialog.
ColumnLayout {
    id: well
    required property var theme
    property string label
    property string value
    signal picked(string hex)

    spacing: 4

    // Any colour the dialog gives is stored as "#RRGGBB".
    function hex(c) {
        const part = v => Math.round(v * 255).toString(16).padStart(2, "0")
        return ("#" + part(c.r) + part(c.g) + part(c.b)).toUpperCase()
    }

    AbstractButton {
        id: swatch
        focusPolicy: Qt.StrongFocus
        implicitWidth: 56
        implicitHeight: 36
        Accessible.role: Accessible.Button
        Accessible.name: well.label + " colour " + well.value
        Accessible.onPressAction: dialog.open()
        onClicked: dialog.open()
        Keys.onReturnPressed: dialog.open()
        background: Rectangle {
            radius: 8
            color: well.value
            border.width: swatch.visualFocus ? 2 : 1
            border.color: swatch.visualFocus ? well.theme.accent : well.theme.divider
        }
    }
    Text {
        text: well.label
        color: well.theme.mutedText
        font.pixelSize: 11
        Layout.alignment: Qt.AlignHCenter
    }

    ColorDialog {
        id: dialog
        title: well.label
        selectedColor: well.value
        onAccepted: well.picked(well.hex(selectedColor))
    }
}
